#include "os/WaitReadable.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "tests/support/SignalRain.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::os::MsTimeout;
using kpl::os::UnscaledTimeout;
using kpl::os::WaitEitherReadable;
using kpl::os::WaitReadable;
using kpl::test::kCeilingMs;
using kpl::test::ShortestMs;
using kpl::test::SignalRain;
using kpl::test::Stopwatch;

// Both ends of a pipe; each can be closed early.
struct Pipe {
    int ends[2] = {-1, -1};

    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        Close(0);
        Close(1);
    }

    int Reader() const { return ends[0]; }
    int Writer() const { return ends[1]; }
    void Write() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void Close(int end) {
        if (ends[end] >= 0) {
            close(ends[end]);
            ends[end] = -1;
        }
    }
};

constexpr timespec kNow{0, 0};

int ClosedDescriptor() {
    Pipe pipe;
    return pipe.Reader();
}

TEST(WaitReadableTest, TheSplitKeepsTheRemainderUnscaled) {
    const timespec timeout = UnscaledTimeout(2999);
    EXPECT_EQ(timeout.tv_sec, 2);
    EXPECT_EQ(timeout.tv_nsec, 999 * 1000);
}

TEST(WaitReadableTest, AnUnscaledWaitBelowASecondIsOverAlmostAtOnce) {
    const Pipe pipe;
    const timespec timeout = UnscaledTimeout(999);
    EXPECT_LT(ShortestMs(900, [&] { EXPECT_EQ(WaitReadable(pipe.Reader(), &timeout), 0); }), 900);
}

TEST(WaitReadableTest, AnUnscaledWaitOfASecondIsASecond) {
    const Pipe pipe;
    const timespec timeout = UnscaledTimeout(1000);
    const Stopwatch watch;
    EXPECT_EQ(WaitReadable(pipe.Reader(), &timeout), 0);
    EXPECT_GE(watch.ElapsedMs(), 1000);
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST(WaitReadableTest, TheOtherSplitIsInMilliseconds) {
    const timespec timeout = MsTimeout(2999);
    EXPECT_EQ(timeout.tv_sec, 2);
    EXPECT_EQ(timeout.tv_nsec, 999000000);
}

TEST(WaitReadableTest, NothingToReadIsZeroAfterTheTimeOut) {
    const Pipe pipe;
    EXPECT_EQ(WaitReadable(pipe.Reader(), &kNow), 0);
    const timespec timeout = MsTimeout(50);
    const Stopwatch watch;
    EXPECT_EQ(WaitReadable(pipe.Reader(), &timeout), 0);
    EXPECT_GE(watch.ElapsedMs(), 50);
}

TEST(WaitReadableTest, DataIsReadable) {
    const Pipe pipe;
    pipe.Write();
    EXPECT_EQ(WaitReadable(pipe.Reader(), &kNow), 1);
    EXPECT_EQ(WaitReadable(pipe.Reader(), nullptr), 1);
}

TEST(WaitReadableTest, WithoutATimeOutItWaitsForData) {
    const Pipe pipe;
    std::thread writer([&] { pipe.Write(); });
    EXPECT_EQ(WaitReadable(pipe.Reader(), nullptr), 1);
    writer.join();
}

TEST(WaitReadableTest, AHangUpIsReadable) {
    Pipe pipe;
    pipe.Close(1);
    EXPECT_EQ(WaitReadable(pipe.Reader(), &kNow), 1);
}

TEST(WaitReadableTest, TheEndOfFileIsReadable) {
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    EXPECT_EQ(WaitReadable(sockets[0], &kNow), 0);
    shutdown(sockets[1], SHUT_WR);
    EXPECT_EQ(WaitReadable(sockets[0], &kNow), 1);
    close(sockets[0]);
    close(sockets[1]);
}

TEST(WaitReadableTest, ABadDescriptorIsMinusOne) {
    EXPECT_EQ(WaitReadable(-1, nullptr), -1);
    EXPECT_EQ(WaitReadable(-1, &kNow), -1);
    EXPECT_EQ(WaitReadable(ClosedDescriptor(), nullptr), -1);
}

TEST(WaitReadableTest, ANegativeTimeOutIsMinusOne) {
    const Pipe pipe;
    const timespec seconds = UnscaledTimeout(-1000);
    const timespec rest = UnscaledTimeout(-1);
    EXPECT_EQ(WaitReadable(pipe.Reader(), &seconds), -1);
    EXPECT_EQ(WaitReadable(pipe.Reader(), &rest), -1);
}

TEST(WaitReadableTest, DescriptorsAbove1024Work) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    if (before.rlim_max < 1600) {
        GTEST_SKIP() << "this process may not open so many descriptors";
    }
    rlimit more = before;
    more.rlim_cur = 1600;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
    const Pipe pipe;
    const int high = fcntl(pipe.Reader(), F_DUPFD_CLOEXEC, 1500);
    ASSERT_GE(high, 1500);
    EXPECT_EQ(WaitReadable(high, &kNow), 0);
    pipe.Write();
    EXPECT_EQ(WaitReadable(high, &kNow), 1);
    EXPECT_EQ(WaitEitherReadable(pipe.Reader(), high, &kNow), 3);
    close(high);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST(WaitReadableTest, ASignalDoesNotEndAWaitWithATimeOut) {
    const Pipe pipe;
    const SignalRain rain;
    const timespec timeout = MsTimeout(100);
    const Stopwatch watch;
    EXPECT_EQ(WaitReadable(pipe.Reader(), &timeout), 0);
    EXPECT_GE(watch.ElapsedMs(), 100);
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
    EXPECT_GE(rain.Count(), 1);
}

TEST(WaitReadableTest, ASignalDoesNotEndAWaitWithoutATimeOut) {
    const Pipe pipe;
    const SignalRain rain;
    std::thread writer([&] {
        while (rain.Count() < 5) {
            std::this_thread::yield();
        }
        pipe.Write();
    });
    EXPECT_EQ(WaitReadable(pipe.Reader(), nullptr), 1);
    EXPECT_GE(rain.Count(), 5);
    writer.join();
}

TEST(WaitReadableTest, TheLongestTimeOutIsWaitedFor) {
    const Pipe pipe;
    const timespec timeout = MsTimeout(LONG_MAX);
    const SignalRain rain;
    std::thread writer([&] {
        while (rain.Count() < 5) {
            std::this_thread::yield();
        }
        pipe.Write();
    });
    EXPECT_EQ(WaitReadable(pipe.Reader(), &timeout), 1);
    EXPECT_GE(rain.Count(), 5);
    writer.join();
}

TEST(WaitEitherReadableTest, TheMaskSaysWhichOne) {
    const Pipe first;
    const Pipe second;
    EXPECT_EQ(WaitEitherReadable(first.Reader(), second.Reader(), &kNow), 0);
    second.Write();
    EXPECT_EQ(WaitEitherReadable(first.Reader(), second.Reader(), &kNow), 2);
    EXPECT_EQ(WaitEitherReadable(second.Reader(), first.Reader(), nullptr), 1);
    first.Write();
    EXPECT_EQ(WaitEitherReadable(first.Reader(), second.Reader(), &kNow), 3);
}

TEST(WaitEitherReadableTest, AHangUpOfOneIsReadable) {
    Pipe first;
    const Pipe second;
    first.Close(1);
    EXPECT_EQ(WaitEitherReadable(first.Reader(), second.Reader(), &kNow), 1);
}

TEST(WaitEitherReadableTest, ABadDescriptorIsMinusOne) {
    const Pipe pipe;
    pipe.Write();
    EXPECT_EQ(WaitEitherReadable(-1, pipe.Reader(), &kNow), -1);
    EXPECT_EQ(WaitEitherReadable(pipe.Reader(), -1, &kNow), -1);
    const int closed = ClosedDescriptor();
    EXPECT_EQ(WaitEitherReadable(pipe.Reader(), closed, &kNow), -1);
    EXPECT_EQ(WaitEitherReadable(closed, pipe.Reader(), &kNow), -1);
}

}  // namespace
