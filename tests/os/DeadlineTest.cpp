#include "os/Deadline.h"

#include <gtest/gtest.h>
#include <limits.h>

namespace {

using kpl::os::Deadline;
using kpl::os::NowNs;

TEST(DeadlineTest, IsNotOverBeforeItsTime) {
    for (int i = 0; i < 100; ++i) {
        const int64_t begin = NowNs();
        const Deadline deadline(1);
        while (!deadline.IsOver()) {
        }
        ASSERT_GE(NowNs() - begin, 1000000);
    }
}

TEST(DeadlineTest, WhatIsLeftIsAtMostTheLimit) {
    const Deadline deadline(60000);
    const long left = deadline.LeftMs();
    EXPECT_LE(left, 60000);
    EXPECT_GT(left, 0);
    EXPECT_TRUE(deadline.HasLimit());
}

TEST(DeadlineTest, ZeroIsOverAtOnce) {
    EXPECT_TRUE(Deadline(0).IsOver());
    EXPECT_TRUE(Deadline(0).HasLimit());
}

TEST(DeadlineTest, NegativeOrBeyondAHundredYearsIsNoLimit) {
    for (const int64_t timeoutMs : {int64_t{-1}, int64_t{INT_MIN}, INT64_MAX}) {
        EXPECT_FALSE(Deadline(timeoutMs).HasLimit());
        EXPECT_EQ(Deadline(timeoutMs).LeftMs(), -1);
        EXPECT_FALSE(Deadline(timeoutMs).IsOver());
    }
}

}  // namespace
