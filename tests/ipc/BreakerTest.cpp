#include "ipc/Breaker.h"

#include <gtest/gtest.h>

#include <thread>

#include "os/WaitReadable.h"

namespace {

using kpl::ipc::Breaker;

TEST(BreakerTest, IsWholeAtFirstAndStaysBrokenUntilItIsMended) {
    Breaker breaker;
    EXPECT_NE(breaker.Descriptor(), -1);
    EXPECT_FALSE(breaker.IsBroken());
    breaker.Break();
    breaker.Break();
    EXPECT_TRUE(breaker.IsBroken());
    EXPECT_TRUE(breaker.IsBroken());
    breaker.Mend();
    EXPECT_FALSE(breaker.IsBroken());
    breaker.Mend();
    EXPECT_FALSE(breaker.IsBroken());
}

TEST(BreakerTest, EndsAWaitOnItsDescriptor) {
    Breaker breaker;
    std::thread waiter([&] { EXPECT_EQ(kpl::os::WaitReadable(breaker.Descriptor(), nullptr), 1); });
    breaker.Break();
    waiter.join();
}

}  // namespace
