#include "kpl/os/CEvent.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <sys/time.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "tests/support/Stopwatch.h"

namespace {

using kpl::os::CEvent;
using kpl::test::kCeilingMs;
using kpl::test::ShortestMs;
using kpl::test::Stopwatch;

TEST(CEventTest, ConstructedSetAPollReturnsTrue) {
    CEvent event(true);
    EXPECT_TRUE(event.Wait(0));
    EXPECT_TRUE(event.Wait(0));
}

TEST(CEventTest, ConstructedUnsetAPollReturnsFalseWithoutBlocking) {
    CEvent event(false);
    const long ms = ShortestMs(1000, [&] {
        for (int i = 0; i < 1000; ++i) {
            ASSERT_FALSE(event.Wait(0));
        }
    });
    EXPECT_LT(ms, 1000);
}

TEST(CEventTest, AfterSetTwoEndlessWaitsReturnAtOnce) {
    CEvent event(false);
    event.Set();
    const Stopwatch watch;
    EXPECT_TRUE(event.Wait(-1));
    EXPECT_TRUE(event.Wait(-1));
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST(CEventTest, AfterResetAWaitOf50ReturnsFalseAfterAbout50Ms) {
    CEvent event(true);
    event.Reset();
    const Stopwatch watch;
    EXPECT_FALSE(event.Wait(50));
    EXPECT_GE(watch.ElapsedMs(), 50);
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST(CEventTest, SetTwiceIsUndoneByOneReset) {
    CEvent event(false);
    event.Set();
    event.Set();
    EXPECT_TRUE(event.Wait(0));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

// Waits in a thread of its own, and says when it is about to and what came of it.
class Waiter {
public:
    Waiter(CEvent* event, long timeoutMs)
        : m_thread([this, event, timeoutMs] {
              m_waits.Set();
              m_result = event->Wait(timeoutMs);
              m_returned.Set();
          }) {
        m_waits.Wait(-1);
    }

    ~Waiter() { m_thread.join(); }

    bool HasReturned(long timeoutMs) { return m_returned.Wait(timeoutMs); }
    bool Result() const { return m_result; }

private:
    CEvent m_waits{false};
    CEvent m_returned{false};
    std::atomic<bool> m_result{false};
    std::thread m_thread;
};

TEST(CEventTest, SetWakesEveryWaiter) {
    CEvent event(false);
    Waiter endless(&event, -1);
    Waiter another(&event, -1);
    Waiter timed(&event, 60000);
    EXPECT_FALSE(endless.HasReturned(20));
    event.Set();
    for (Waiter* waiter : {&endless, &another, &timed}) {
        EXPECT_TRUE(waiter->HasReturned(kCeilingMs));
        EXPECT_TRUE(waiter->Result());
    }
}

TEST(CEventTest, SetKeptWakesEveryWaiterAndStaysSet) {
    CEvent event(false);
    Waiter endless(&event, -1);
    Waiter another(&event, -1);
    Waiter timed(&event, 60000);
    EXPECT_FALSE(endless.HasReturned(20));
    event.SetKept();
    for (Waiter* waiter : {&endless, &another, &timed}) {
        EXPECT_TRUE(waiter->HasReturned(kCeilingMs));
        EXPECT_TRUE(waiter->Result());
    }
    event.SetKept();
    EXPECT_TRUE(event.Wait(0));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

TEST(CEventTest, EveryNegativeTimeoutWaitsWithoutLimit) {
    CEvent event(false);
    Waiter smallest(&event, LONG_MIN);
    Waiter anyOther(&event, -5);
    EXPECT_FALSE(smallest.HasReturned(50));
    EXPECT_FALSE(anyOther.HasReturned(50));
    event.Set();
    EXPECT_TRUE(smallest.HasReturned(kCeilingMs));
    EXPECT_TRUE(anyOther.HasReturned(kCeilingMs));
}

TEST(CEventTest, TheLargestTimeoutWaitsAndIsWoken) {
    CEvent event(false);
    Waiter waiter(&event, LONG_MAX);
    EXPECT_FALSE(waiter.HasReturned(50));
    event.Set();
    EXPECT_TRUE(waiter.HasReturned(kCeilingMs));
    EXPECT_TRUE(waiter.Result());
}

// What a series of waits showed. A wait crosses when its deadline lies in the next second, where
// the plain sum of its nanoseconds is no longer one that the platform accepts.
struct Series {
    std::atomic<int> waits{0};
    std::atomic<int> crossed{0};
    std::atomic<int> early{0};
    std::atomic<int> late{0};
};

int64_t NowUs() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

void WaitAndJudge(CEvent* event, long timeoutMs, Series* series) {
    const int64_t start = NowUs();
    ASSERT_FALSE(event->Wait(timeoutMs));
    const int64_t waited = NowUs() - start;
    ++series->waits;
    series->crossed += start % 1000000 + timeoutMs * 1000 >= 1000000 ? 1 : 0;
    series->early += waited < timeoutMs * 1000 ? 1 : 0;
    series->late += waited > kCeilingMs * 1000 ? 1 : 0;
}

void RunInThreads(int count, const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Back to back, so that each thread is in a wait whenever the clock's seconds change.
TEST(CEventTest, ThousandsOfShortWaitsNeverEndEarlyNorHang) {
    CEvent event(false);
    Series series;
    const int64_t end = NowUs() + 60000000;  // A busy machine takes longer to see enough.
    const auto hasSeenEnough = [&] { return series.waits >= 4000 && series.crossed >= 12; };
    RunInThreads(8, [&](int index) {
        for (int i = index; !hasSeenEnough() && NowUs() < end; ++i) {
            WaitAndJudge(&event, 1 + i % 3, &series);
        }
    });
    EXPECT_GE(series.waits, 4000);
    EXPECT_GE(series.crossed, 12);
    EXPECT_EQ(series.early, 0);
    EXPECT_EQ(series.late, 0);
}

TEST(CEventTest, WaitsThatStartJustBelowTheFullSecondNeverEndEarly) {
    CEvent event(false);
    Series series;
    RunInThreads(16, [&](int) {
        const long untilJustBefore = 997 - static_cast<long>(NowUs() % 1000000 / 1000);
        if (untilJustBefore > 0) {
            CEvent(false).Wait(
                untilJustBefore);  // allow-sleep: the position of the clock is the subject
        }
        for (long timeoutMs : {4, 3, 900, 120}) {
            WaitAndJudge(&event, timeoutMs, &series);
        }
    });
    EXPECT_EQ(series.waits, 64);
    EXPECT_GE(series.crossed, 16);
    EXPECT_EQ(series.early, 0);
    EXPECT_EQ(series.late, 0);
}

}  // namespace
