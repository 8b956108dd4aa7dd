#include "kpl/tools/TimerObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "kpl/os/CEvent.h"
#include "kpl/os/Sleep.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::os::CEvent;
using kpl::test::ChildProcess;
using kpl::test::kCeilingMs;
using kpl::test::SettledThreadCount;
using kpl::test::Stopwatch;
using kpl::test::ThreadCount;
using kpl::test::WaitUntil;
using kpl::tools::TimerObject;
using testing::ElementsAre;

// Remembers every tick and when it came.
class Ticks {
public:
    static void OnTick(void* self, int tick) { static_cast<Ticks*>(self)->Add(tick); }

    std::vector<int> Numbers() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_numbers;
    }

    // Milliseconds from the construction to tick `index`.
    long TimeOf(size_t index) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_times.at(index);
    }

    size_t Count() const { return Numbers().size(); }

    bool WaitForCount(size_t count) const {
        return WaitUntil([&] { return Count() >= count; });
    }

private:
    void Add(int tick) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_numbers.push_back(tick);
        m_times.push_back(m_watch.ElapsedMs());
    }

    Stopwatch m_watch;
    mutable std::mutex m_mutex;
    std::vector<int> m_numbers;
    std::vector<long> m_times;
};

bool WaitForEnd(const TimerObject& timer) {
    return WaitUntil([&] { return !timer.IsRunning(); });
}

constexpr unsigned int kHour = 3600000;

TEST(TimerObjectTest, ThreeTicksComeOneIntervalApartTheFirstAfterOneInterval) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(100, &Ticks::OnTick, &ticks, 3, false, 0));
    EXPECT_TRUE(timer.IsRunning());
    ASSERT_TRUE(WaitForEnd(timer));
    EXPECT_THAT(ticks.Numbers(), ElementsAre(1, 2, 3));
    EXPECT_GE(ticks.TimeOf(0), 100);
    EXPECT_GE(ticks.TimeOf(1) + 1, ticks.TimeOf(0) + 100);
    EXPECT_GE(ticks.TimeOf(2) + 1, ticks.TimeOf(1) + 100);
    EXPECT_LT(ticks.TimeOf(2), kCeilingMs);
    EXPECT_FALSE(timer.IsRunning());
}

TEST(TimerObjectTest, CalledAtStartTheOtherTicksFollowOneIntervalApart) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(100, &Ticks::OnTick, &ticks, 3, true, 0));
    ASSERT_TRUE(WaitForEnd(timer));
    EXPECT_THAT(ticks.Numbers(), ElementsAre(1, 2, 3));
    EXPECT_GE(ticks.TimeOf(1) + 1, ticks.TimeOf(0) + 100);
    EXPECT_GE(ticks.TimeOf(2) + 1, ticks.TimeOf(1) + 100);
}

TEST(TimerObjectTest, CalledAtStartTheFirstTickComesAtOnce) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(kHour, &Ticks::OnTick, &ticks, 3, true, 0));
    EXPECT_TRUE(ticks.WaitForCount(1));
    timer.Stop();
    EXPECT_THAT(ticks.Numbers(), ElementsAre(1));
}

TEST(TimerObjectTest, CalledAtStartACountOfOneIsOneTick) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(1, &Ticks::OnTick, &ticks, 1, true, 0));
    ASSERT_TRUE(WaitForEnd(timer));
    timer.Stop();
    EXPECT_THAT(ticks.Numbers(), ElementsAre(1));
}

void ExpectTicksUntilStop(int count) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(1, &Ticks::OnTick, &ticks, count, false, 0));
    EXPECT_TRUE(ticks.WaitForCount(30));
    EXPECT_TRUE(timer.IsRunning());
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
    const size_t atStop = ticks.Count();
    CEvent(false).Wait(20);  // allow-sleep: nothing may happen meanwhile
    EXPECT_EQ(ticks.Count(), atStop);
    EXPECT_EQ(ticks.Numbers().back(), static_cast<int>(atStop));
}

TEST(TimerObjectTest, WithACountOfZeroTicksComeUntilStop) {
    ExpectTicksUntilStop(0);
}

TEST(TimerObjectTest, WithACountOfMinusOneTicksComeUntilStop) {
    ExpectTicksUntilStop(-1);
}

TEST(TimerObjectTest, WithTheSmallestCountTicksComeUntilStop) {
    ExpectTicksUntilStop(INT_MIN);
}

void ExpectPromptStop(unsigned int intervalMs) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(intervalMs, &Ticks::OnTick, &ticks, 0, false, 0));
    CEvent(false).Wait(20);  // allow-sleep: nothing may happen meanwhile
    const Stopwatch watch;
    timer.Stop();
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
    EXPECT_EQ(ticks.Count(), 0u);
}

TEST(TimerObjectTest, StopIsPromptEvenWithALongInterval) {
    ExpectPromptStop(kHour);
}

TEST(TimerObjectTest, AnIntervalAbove2147483647WaitsUntilStop) {
    ExpectPromptStop(2147483648u);
    ExpectPromptStop(UINT_MAX);
}

TEST(TimerObjectTest, ANullCallbackReturnsFalseAndLeavesARunningTimerRunning) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(1, &Ticks::OnTick, &ticks, 0, false, 0));
    EXPECT_FALSE(timer.Start(kHour, nullptr, nullptr, 1, true, 0));
    EXPECT_TRUE(timer.IsRunning());
    const size_t before = ticks.Count();
    EXPECT_TRUE(ticks.WaitForCount(before + 10));
}

TEST(TimerObjectTest, ANullCallbackStartsNothing) {
    const int threads = ThreadCount();
    TimerObject timer;
    EXPECT_FALSE(timer.Start(1, nullptr, nullptr, 1, true, 0));
    EXPECT_FALSE(timer.IsRunning());
    EXPECT_EQ(ThreadCount(), threads);
}

TEST(TimerObjectTest, StartOnARunningTimerStopsTheOldRunFirst) {
    Ticks old;
    Ticks fresh;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(1, &Ticks::OnTick, &old, 0, false, 0));
    ASSERT_TRUE(old.WaitForCount(5));
    ASSERT_TRUE(timer.Start(1, &Ticks::OnTick, &fresh, 0, false, 0));
    const size_t oldCount = old.Count();
    EXPECT_TRUE(fresh.WaitForCount(10));
    EXPECT_EQ(old.Count(), oldCount);
    timer.Stop();
    EXPECT_EQ(fresh.Numbers().front(), 1);
}

TEST(TimerObjectTest, AfterItsLastTickItCanBeStartedAgain) {
    Ticks ticks;
    TimerObject timer;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(timer.Start(1, &Ticks::OnTick, &ticks, 2, false, 0));
        ASSERT_TRUE(WaitForEnd(timer));
    }
    EXPECT_THAT(ticks.Numbers(), ElementsAre(1, 2, 1, 2, 1, 2));
}

TEST(TimerObjectTest, StopFromAnyStateCanBeRepeated) {
    Ticks ticks;
    TimerObject timer;
    timer.Stop();
    timer.Stop();
    ASSERT_TRUE(timer.Start(kHour, &Ticks::OnTick, &ticks, 0, false, 0));
    timer.Stop();
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
}

TEST(TimerObjectTest, TheDestructorStops) {
    const int threads = ThreadCount();
    Ticks ticks;
    auto timer = std::make_unique<TimerObject>();
    ASSERT_TRUE(timer->Start(kHour, &Ticks::OnTick, &ticks, 0, false, 0));
    timer.reset();
    EXPECT_EQ(SettledThreadCount(threads), threads);
}

// A callback that takes its time: says that it has begun and lasts until it is let go.
struct SlowCallback {
    CEvent begun{false};
    CEvent letGo{false};
    int calls = 0;

    static void OnTick(void* self, int) {
        auto* callback = static_cast<SlowCallback*>(self);
        ++callback->calls;
        callback->begun.Set();
        callback->letGo.Wait(-1);
    }
};

TEST(TimerObjectTest, StopWaitsForARunningCallbackAndNoOtherFollows) {
    SlowCallback slow;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(1, &SlowCallback::OnTick, &slow, 0, true, 0));
    ASSERT_TRUE(slow.begun.Wait(kCeilingMs));
    CEvent stopped(false);
    struct Stopper {
        TimerObject* timer;
        CEvent* stopped;
    } stopper{&timer, &stopped};
    kpl::os::CThread thread(
        [](void* arg) {
            auto* s = static_cast<Stopper*>(arg);
            s->timer->Stop();
            s->stopped->Set();
        },
        &stopper);
    ASSERT_TRUE(thread.Run(0));
    EXPECT_FALSE(stopped.Wait(30));
    slow.letGo.Set();
    EXPECT_TRUE(stopped.Wait(kCeilingMs));
    EXPECT_EQ(slow.calls, 1);
}

void TickSlowly(void* ticks, int tick) {
    Ticks::OnTick(ticks, tick);
    kpl::os::osal_Sleep(60);  // allow-sleep: the callback's own run time is the subject
}

TEST(TimerObjectTest, TheIntervalRunsFromTheEndOfTheCallback) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(60, &TickSlowly, &ticks, 3, true, 0));
    ASSERT_TRUE(WaitForEnd(timer));
    ASSERT_EQ(ticks.Count(), 3u);
    EXPECT_GE(ticks.TimeOf(1) + 1, ticks.TimeOf(0) + 120);
    EXPECT_GE(ticks.TimeOf(2) + 1, ticks.TimeOf(1) + 120);
}

TEST(TimerObjectTest, WithAnIntervalOfZeroTheTicksFollowEachOther) {
    Ticks ticks;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(0, &Ticks::OnTick, &ticks, 4, false, 0));
    ASSERT_TRUE(WaitForEnd(timer));
    EXPECT_THAT(ticks.Numbers(), ElementsAre(1, 2, 3, 4));
}

void StoreStackSize(void* size, int) {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, static_cast<size_t*>(size));
    pthread_attr_destroy(&attributes);
}

TEST(TimerObjectTest, TheThreadHasTheStackThatStartWasGiven) {
    constexpr int kStackSize = 1 << 25;
    size_t size = 0;
    TimerObject timer;
    ASSERT_TRUE(timer.Start(1, &StoreStackSize, &size, 1, true, kStackSize));
    timer.Stop();
    EXPECT_GE(size, static_cast<size_t>(kStackSize));
}

TEST(TimerObjectTest, WhereNoThreadCanBeCreatedStartDoesNotReturn) {
    ChildProcess child([] {
        Ticks ticks;
        TimerObject timer;
        timer.Start(1, &Ticks::OnTick, &ticks, 1, false, -1);
        return 0;
    });
    EXPECT_EQ(child.Wait(300), -1);
}

}  // namespace
