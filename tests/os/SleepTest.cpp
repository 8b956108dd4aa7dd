#include "kpl/os/Sleep.h"

#include <gtest/gtest.h>
#include <limits.h>

#include "tests/support/SignalRain.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::os::osal_Sleep;
using kpl::test::kCeilingMs;
using kpl::test::SignalRain;
using kpl::test::Stopwatch;

TEST(SleepTest, TenSleepsTenMilliseconds) {
    const Stopwatch watch;
    osal_Sleep(10);  // allow-sleep: the subject
    EXPECT_GE(watch.ElapsedMs(), 10);
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST(SleepTest, AboveASecondTheSecondsCountToo) {
    const Stopwatch watch;
    osal_Sleep(1050);  // allow-sleep: the subject
    EXPECT_GE(watch.ElapsedMs(), 1050);
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST(SleepTest, ZeroAndBelowReturnAtOnce) {
    const Stopwatch watch;
    osal_Sleep(0);         // allow-sleep: the subject
    osal_Sleep(-1);        // allow-sleep: the subject
    osal_Sleep(LONG_MIN);  // allow-sleep: the subject
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST(SleepTest, SignalsDoNotShortenIt) {
    const SignalRain rain;
    const Stopwatch watch;
    osal_Sleep(100);  // allow-sleep: the subject
    EXPECT_GE(watch.ElapsedMs(), 100);
    EXPECT_GE(rain.Count(), 1);
}

}  // namespace
