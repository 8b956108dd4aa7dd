#include "kpl/os/CCritSec.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "kpl/os/CEvent.h"
#include "tests/support/Process.h"

namespace {

using kpl::os::CAutoLock;
using kpl::os::CCritSec;
using kpl::os::CEvent;
using kpl::test::ChildProcess;

TEST(CCritSecTest, OnlyOneThreadAtATimeHoldsIt) {
    CCritSec section;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 10000; ++j) {
                section.Lock();
                ++count;
                section.Unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 40000);
}

int LockTwice(int reportFd) KPL_NO_THREAD_SAFETY_ANALYSIS {
    CCritSec section;
    section.Lock();
    const bool reported = write(reportFd, "1", 1) == 1;
    section.Lock();
    return reported ? 0 : 1;
}

TEST(CCritSecTest, ASecondLockByItsOwnerBlocksForEver) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ChildProcess child([&] { return LockTwice(ends[1]); });
    char first = 0;
    ASSERT_EQ(read(ends[0], &first, 1), 1);
    EXPECT_EQ(child.Wait(200), -1);
    close(ends[0]);
    close(ends[1]);
}

TEST(CAutoLockTest, HoldsTheLockForItsOwnLifetime) {
    CCritSec section;
    CEvent entered(false);
    std::thread other;
    {
        CAutoLock lock(&section);
        other = std::thread([&] {
            CAutoLock inner(&section);
            entered.Set();
        });
        EXPECT_FALSE(entered.Wait(50));
    }
    EXPECT_TRUE(entered.Wait(10000));
    other.join();
}

TEST(CAutoLockTest, ANullLockIsAcceptedAndGuardsNothing) {
    CCritSec* none = nullptr;
    CCritSec* noneEither = nullptr;
    CAutoLock first(none);
    CAutoLock second(noneEither);
}

}  // namespace
