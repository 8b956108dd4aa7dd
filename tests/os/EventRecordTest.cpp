#include "os/EventRecord.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/Stopwatch.h"

namespace {

using namespace kpl::os;

timeval Clock(long seconds, long microseconds) {
    timeval now{};
    now.tv_sec = seconds;
    now.tv_usec = microseconds;
    return now;
}

TEST(EventRecordTest, WaitOf1500At600000UsHasADeadlineThatIsNotCarried) {
    const timespec deadline = WaitDeadline(Clock(1000, 600000), 1500);
    EXPECT_EQ(deadline.tv_sec, 1001);
    EXPECT_EQ(deadline.tv_nsec, 1100000000);
}

TEST(EventRecordTest, TheDeadlinesNanosecondsReachTheirMaximum) {
    const timespec deadline = WaitDeadline(Clock(1000, 999999), 999);
    EXPECT_EQ(deadline.tv_sec, 1000);
    EXPECT_EQ(deadline.tv_nsec, 1998999000);
}

TEST(EventRecordTest, ADeadlineWithinTheSecondIsThePlainSum) {
    const timespec deadline = WaitDeadline(Clock(7, 1), 2001);
    EXPECT_EQ(deadline.tv_sec, 9);
    EXPECT_EQ(deadline.tv_nsec, 1001000);
}

TEST(EventRecordTest, ThePlatformGetsTheSameInstantInNormalForm) {
    const timespec carried = NormalDeadline(WaitDeadline(Clock(1000, 600000), 1500));
    EXPECT_EQ(carried.tv_sec, 1002);
    EXPECT_EQ(carried.tv_nsec, 100000000);
    const timespec full = NormalDeadline(WaitDeadline(Clock(1000, 500000), 500));
    EXPECT_EQ(full.tv_sec, 1001);
    EXPECT_EQ(full.tv_nsec, 0);
    const timespec unchanged = NormalDeadline(WaitDeadline(Clock(1000, 499999), 500));
    EXPECT_EQ(unchanged.tv_sec, 1000);
    EXPECT_EQ(unchanged.tv_nsec, 999999000);
}

TEST(EventRecordTest, TheTagTellsALiveRecordFromADestroyedOne) {
    EXPECT_EQ(kEventTag, 0x7ABC0002u);
    EXPECT_EQ(kThreadTag, 0x7ABC0000u);
    EventRecord record{};
    InitEvent(&record, false);
    EXPECT_EQ(record.tag, 0x7ABC0002u);
    DestroyEvent(&record);
    EXPECT_EQ(record.tag, 0u);
}

TEST(EventRecordTest, AWaitReportsItsStatusWord) {
    EventRecord record{};
    InitEvent(&record, false);
    EXPECT_EQ(WaitForEvent(&record, 0), 0x20010001u);
    EXPECT_EQ(WaitForEvent(&record, 1), 0x20010001u);
    SetEvent(&record);
    EXPECT_EQ(WaitForEvent(&record, 0), 0x10000000u);
    EXPECT_EQ(WaitForEvent(&record, 1), 0x10000000u);
    EXPECT_EQ(WaitForEvent(&record, -1), 0x10000000u);
    DestroyEvent(&record);
}

TEST(EventRecordTest, TheFlagIsZeroOrOne) {
    EventRecord record{};
    InitEvent(&record, true);
    EXPECT_EQ(record.signalled, 1u);
    SetEvent(&record);
    EXPECT_EQ(record.signalled, 1u);
    ResetEvent(&record);
    EXPECT_EQ(record.signalled, 0u);
    DestroyEvent(&record);
}

// Wakes whoever waits for the record, again and again, without setting it.
class SpuriousWakeUps {
public:
    explicit SpuriousWakeUps(EventRecord* record)
        : m_thread([this, record] {
              while (!m_stop) {
                  pthread_mutex_lock(&record->mutex);
                  pthread_cond_broadcast(&record->condition);
                  pthread_mutex_unlock(&record->mutex);
                  ++m_count;
                  std::this_thread::yield();
              }
          }) {}

    ~SpuriousWakeUps() {
        m_stop = true;
        m_thread.join();
    }

    int Count() const { return m_count; }

private:
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_count{0};
    std::thread m_thread;
};

TEST(EventRecordTest, WakeUpsWithoutASetNeitherEndNorExtendATimedWait) {
    EventRecord record{};
    InitEvent(&record, false);
    {
        const SpuriousWakeUps wakeUps(&record);
        do {
            const kpl::test::Stopwatch watch;
            EXPECT_EQ(WaitForEvent(&record, 100), 0x20010001u);
            EXPECT_GE(watch.ElapsedMs(), 100);
            EXPECT_LT(watch.ElapsedMs(), kpl::test::kCeilingMs);
        } while (wakeUps.Count() < 10);  // a busy machine may give it no time at first
    }
    DestroyEvent(&record);
}

TEST(EventRecordTest, WakeUpsWithoutASetDoNotEndAnEndlessWait) {
    EventRecord record{};
    InitEvent(&record, false);
    {
        const SpuriousWakeUps wakeUps(&record);
        std::thread setter([&] {
            while (wakeUps.Count() < 1000) {
                std::this_thread::yield();
            }
            SetEvent(&record);
        });
        EXPECT_EQ(WaitForEvent(&record, -1), 0x10000000u);
        EXPECT_GE(wakeUps.Count(), 1000);
        setter.join();
    }
    DestroyEvent(&record);
}

}  // namespace
