#include "GuideClock.h"

#include <gtest/gtest.h>

namespace {

using guide::GuideClock;
using guide::GuideTime;

constexpr GuideTime kStart = 1773446400;

TEST(GuideClockTest, RunsAsOftenAsFastAsItsSpeed) {
    EXPECT_EQ(kStart, GuideClock::TimeAfter(kStart, 1, 0));
    EXPECT_EQ(kStart + 1, GuideClock::TimeAfter(kStart, 1, 1000));
    EXPECT_EQ(kStart + 1200, GuideClock::TimeAfter(kStart, 1200, 1000));
    EXPECT_EQ(kStart + 12, GuideClock::TimeAfter(kStart, 1200, 10));
}

// A wait that ended a millisecond too early would announce a programme before its start.
TEST(GuideClockTest, AfterTheWaitItShowsTheTimeAndNotBefore) {
    for (const int speed : {1, 7, 60, 999, 1000, 1200, 100000}) {
        for (GuideTime time = kStart + 1; time < kStart + 5000; time += 7) {
            const long long ms = GuideClock::ElapsedMsAt(kStart, speed, time);
            EXPECT_GE(GuideClock::TimeAfter(kStart, speed, ms), time) << speed;
            EXPECT_LT(GuideClock::TimeAfter(kStart, speed, ms - 1), time) << speed;
        }
    }
}

TEST(GuideClockTest, WhatHasBeenNeedsNoWait) {
    const GuideClock clock(kStart, 1);
    EXPECT_EQ(0, clock.MsUntil(kStart));
    EXPECT_EQ(0, clock.MsUntil(kStart - 100));
    EXPECT_GT(clock.MsUntil(kStart + 3600), 3000 * 1000);
    EXPECT_LE(clock.MsUntil(kStart + 3600), 3600 * 1000);
}

TEST(GuideClockTest, ADecadeAtFullSpeedDoesNotOverflow) {
    const long long decadeMs = 10LL * 365 * 86400 * 1000;
    EXPECT_EQ(kStart + decadeMs / 1000 * GuideClock::kMaxSpeed,
              GuideClock::TimeAfter(kStart, GuideClock::kMaxSpeed, decadeMs));
}

}  // namespace
