#include "net/server/Arrivals.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "tests/support/NoDescriptors.h"
#include "tests/support/Stopwatch.h"

namespace kpl::net::server {
namespace {

using test::ShortestMs;
using test::Stopwatch;

constexpr long kNever = 200'000'000;  // not within a test that waits for something else
constexpr long kSoon = 1'000'000;

struct Pipe {
    int ends[2] = {-1, -1};

    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int Reader() const { return ends[0]; }
    void Write() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void Read() const {
        char byte = 0;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
};

using Serials = std::vector<uint64_t>;

// Without the ticks.
Serials TakeFrom(Arrivals* arrivals, bool mayWait = false) {
    Serials serials;
    arrivals->Take(mayWait, [&serials](uint64_t serial, short) {
        if (serial != 0) {
            serials.push_back(serial);
        }
    });
    return serials;
}

TEST(ArrivalsTest, EachIsToldOnce) {
    Arrivals arrivals(kNever);
    ASSERT_TRUE(arrivals.IsUsable());
    const Pipe pipe;
    ASSERT_TRUE(arrivals.Watch(pipe.Reader(), 7));
    EXPECT_EQ(TakeFrom(&arrivals), Serials{});
    pipe.Write();
    EXPECT_EQ(TakeFrom(&arrivals), Serials{7});
    EXPECT_EQ(TakeFrom(&arrivals), Serials{});
    pipe.Write();
    EXPECT_EQ(TakeFrom(&arrivals), Serials{7});
}

TEST(ArrivalsTest, WhatIsThereAlreadyHasArrived) {
    Arrivals arrivals(kNever);
    const Pipe pipe;
    pipe.Write();
    ASSERT_TRUE(arrivals.Watch(pipe.Reader(), 7));
    EXPECT_EQ(TakeFrom(&arrivals), Serials{7});
}

TEST(ArrivalsTest, WhatHasBeenReadMeanwhileIsNotTold) {
    Arrivals arrivals(kNever);
    const Pipe pipe;
    ASSERT_TRUE(arrivals.Watch(pipe.Reader(), 7));
    pipe.Write();
    pipe.Read();
    EXPECT_EQ(TakeFrom(&arrivals), Serials{});
}

TEST(ArrivalsTest, TellsOfMoreThanItTakesAtOnce) {
    Arrivals arrivals(kNever);
    const std::vector<Pipe> pipes(150);
    for (size_t i = 0; i < pipes.size(); ++i) {
        ASSERT_TRUE(arrivals.Watch(pipes[i].Reader(), i + 1));
        pipes[i].Write();
    }
    EXPECT_EQ(TakeFrom(&arrivals).size(), pipes.size());
}

TEST(ArrivalsTest, OneThatIsWatchedAlreadyGetsTheNewSerial) {
    Arrivals arrivals(kNever);
    const Pipe pipe;
    EXPECT_TRUE(arrivals.Watch(pipe.Reader(), 7));
    EXPECT_TRUE(arrivals.Watch(pipe.Reader(), 8));
    pipe.Write();
    EXPECT_EQ(TakeFrom(&arrivals), Serials{8});
}

TEST(ArrivalsTest, WhatIsNotOpenCannotBeWatched) {
    const Arrivals arrivals(kNever);
    EXPECT_FALSE(arrivals.Watch(-1, 8));
}

TEST(ArrivalsTest, AWaitEndsWithATickWhichComesAgain) {
    Arrivals arrivals(kSoon);
    const Stopwatch watch;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(TakeFrom(&arrivals, true), Serials{});
    }
    EXPECT_GE(watch.ElapsedMs(), 19);
}

// The shortest time between the ticks from the fourth on, while something arrives between them.
double ShortestBusyTickMs() {
    using Clock = std::chrono::steady_clock;
    Arrivals arrivals(kSoon);
    const Pipe pipe;
    EXPECT_TRUE(arrivals.Watch(pipe.Reader(), 7));
    double shortest = test::kCeilingMs;
    auto last = Clock::now();
    for (int ticks = 0; ticks < 10;) {
        bool isTick = false;
        pipe.Write();
        arrivals.Take(true, [&isTick](uint64_t serial, short) { isTick |= serial == 0; });
        pipe.Read();
        if (isTick) {
            const std::chrono::duration<double, std::milli> took = Clock::now() - last;
            shortest = ++ticks > 3 ? std::min(shortest, took.count()) : shortest;
            last = Clock::now();
        }
    }
    return shortest;
}

// A thread that does not run in time misses an arrival between two ticks.
TEST(ArrivalsTest, TicksComeUpToFourTimesAsSlowlyWhileSomethingArrives) {
    double ms = 0;
    for (int tries = 0; tries < 100 && ms < 3.5; ++tries) {
        ms = ShortestBusyTickMs();
    }
    EXPECT_GE(ms, 3.5);
}

// Also not the one that it could have had.
TEST(ArrivalsTest, WithoutDescriptorsItIsNotUsableAndKeepsNone) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of virtual calls needs a descriptor of its own";
#endif
    for (const int left : {0, 1}) {
        const int spare = dup(STDERR_FILENO);
        const Pipe pipe;
        const test::NoDescriptors none;
        if (left == 1) {
            close(spare);
        }
        const Arrivals arrivals(kNever);
        EXPECT_FALSE(arrivals.IsUsable());
        EXPECT_FALSE(arrivals.Watch(pipe.Reader(), 7));
        const int next = dup(STDERR_FILENO);
        EXPECT_EQ(next, left == 1 ? spare : -1);
        close(left == 1 ? next : spare);
    }
}

// As by somebody who closes a number once too often.
TEST(ArrivalsTest, OneWhoseDescriptorIsClosedSaysSo) {
    const int number = dup(STDERR_FILENO);
    close(number);
    Arrivals arrivals(kNever);
    const auto ignore = [](uint64_t, short) {};
    EXPECT_TRUE(arrivals.Take(false, ignore));
    close(number);
    EXPECT_FALSE(arrivals.Take(true, ignore));
}

TEST(ArrivalsTest, AWaitIsEndedFromOutside) {
    const long ms = ShortestMs(kNever / 1'000'000, [] {
        Arrivals arrivals(kNever);
        std::thread other([&arrivals] { arrivals.TickNow(); });
        EXPECT_EQ(TakeFrom(&arrivals, true), Serials{});
        other.join();
    });
    EXPECT_LT(ms, kNever / 1'000'000);
}

}  // namespace
}  // namespace kpl::net::server
