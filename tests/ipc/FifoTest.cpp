#include "ipc/Fifo.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include "ipc/Breaker.h"
#include "os/WaitReadable.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TempDir.h"

namespace {

using kpl::ipc::Breaker;
using kpl::ipc::KeepSigPipeBlocked;
using kpl::ipc::MakeFifo;
using kpl::ipc::OpenFifoForReading;
using kpl::ipc::OpenFifoForWriting;
using kpl::ipc::OpenFifoReader;
using kpl::ipc::WaitLimit;
using kpl::ipc::WriteFifo;
using kpl::test::Stopwatch;

class FifoTest : public ::testing::Test {
protected:
    void SetUp() override { m_descriptors = kpl::test::OpenDescriptorCount(); }
    void TearDown() override { EXPECT_EQ(kpl::test::OpenDescriptorCount(), m_descriptors); }
    WaitLimit Within(long ms) const { return WaitLimit(&m_breaker, ms); }
    const char* Fifo() const { return m_path.c_str(); }

    kpl::test::TempDir m_dir;
    Breaker m_breaker;
    std::string m_path = m_dir.Path() + "/fifo";

private:
    int m_descriptors = 0;
};

bool IsOpenHere(const std::string& path) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        if (std::filesystem::read_symlink(entry.path(), ignored) == path) {
            return true;
        }
    }
    return false;
}

// Both ends, the writing one not blocking.
struct Ends {
    explicit Ends(const char* path)
        : reader(OpenFifoReader(path)), writer(open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC)) {}
    ~Ends() {
        close(writer);
        if (reader != -1) {
            close(reader);
        }
    }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;

    int reader;
    int writer;
};

TEST_F(FifoTest, MakingAFifoKeepsAnExistingOne) {
    MakeFifo(Fifo());
    struct stat first {};
    ASSERT_EQ(stat(Fifo(), &first), 0);
    EXPECT_TRUE(S_ISFIFO(first.st_mode));
    MakeFifo(Fifo());
    struct stat second {};
    ASSERT_EQ(stat(Fifo(), &second), 0);
    EXPECT_EQ(first.st_ino, second.st_ino);
}

TEST_F(FifoTest, OpeningWhatDoesNotExistFailsAtOnce) {
    EXPECT_EQ(OpenFifoForWriting(Fifo(), Within(-1)), -1);
    EXPECT_EQ(OpenFifoForReading(Fifo(), Within(-1)), -1);
    EXPECT_EQ(OpenFifoReader(Fifo()), -1);
}

TEST_F(FifoTest, OpeningWhatIsNoFifoFailsAtOnce) {
    close(open(Fifo(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_EQ(OpenFifoForWriting(Fifo(), Within(-1)), -1);
    EXPECT_EQ(OpenFifoForReading(Fifo(), Within(-1)), -1);
    EXPECT_EQ(OpenFifoReader(Fifo()), -1);
    EXPECT_EQ(OpenFifoReader(m_dir.c_str()), -1);
}

TEST_F(FifoTest, OpeningWaitsForTheOtherEndUntilTheLimit) {
    MakeFifo(Fifo());
    for (const auto openEnd : {OpenFifoForWriting, OpenFifoForReading}) {
        const Stopwatch watch;
        EXPECT_EQ(openEnd(Fifo(), Within(60)), -1);
        EXPECT_GE(watch.ElapsedMs(), 60);
        EXPECT_LT(watch.ElapsedMs(), 1500);
    }
}

TEST_F(FifoTest, ALimitOfZeroStillOpensWhatIsThereAlready) {
    MakeFifo(Fifo());
    const int both = open(Fifo(), O_RDWR | O_CLOEXEC);
    const int writer = OpenFifoForWriting(Fifo(), Within(0));
    const int reader = OpenFifoForReading(Fifo(), Within(0));
    EXPECT_NE(writer, -1);
    EXPECT_NE(reader, -1);
    for (const int fd : {writer, reader}) {
        EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        close(fd);
    }
    close(both);
}

TEST_F(FifoTest, AReaderThatComesLaterIsFound) {
    MakeFifo(Fifo());
    int writer = -1;
    std::thread opening([&] { writer = OpenFifoForWriting(Fifo(), Within(-1)); });
    const int reader = open(Fifo(), O_RDONLY | O_CLOEXEC);  // blocks until the writer is there
    opening.join();
    EXPECT_NE(writer, -1);
    close(writer);
    close(reader);
}

TEST_F(FifoTest, AWriterThatComesLaterIsFound) {
    MakeFifo(Fifo());
    int reader = -1;
    std::thread opening([&] { reader = OpenFifoForReading(Fifo(), Within(-1)); });
    const int writer = open(Fifo(), O_WRONLY | O_CLOEXEC);  // blocks until the reader is there
    opening.join();
    EXPECT_NE(reader, -1);
    close(writer);
    close(reader);
}

TEST_F(FifoTest, AWriterThatLeftDataBehindIsFoundToo) {
    MakeFifo(Fifo());
    int reader = -1;
    std::thread opening([&] { reader = OpenFifoForReading(Fifo(), Within(-1)); });
    const int writer = open(Fifo(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(writer, "x", 1), 1);
    close(writer);
    opening.join();
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    close(reader);
}

TEST_F(FifoTest, ABrokenBreakerEndsBothOpens) {
    MakeFifo(Fifo());
    for (const auto openEnd : {OpenFifoForWriting, OpenFifoForReading}) {
        int fd = 0;
        m_breaker.Mend();
        std::thread opening([&] { fd = openEnd(Fifo(), Within(-1)); });
        m_breaker.Break();
        opening.join();
        EXPECT_EQ(fd, -1);
    }
}

TEST_F(FifoTest, ASetFlagEndsBothOpens) {
    MakeFifo(Fifo());
    for (const auto openEnd : {OpenFifoForWriting, OpenFifoForReading}) {
        std::atomic<bool> flag{false};
        WaitLimit limit = Within(-1);
        limit.WatchFlag(&flag);
        int fd = 0;
        std::thread opening([&] { fd = openEnd(Fifo(), limit); });
        flag = true;
        opening.join();
        EXPECT_EQ(fd, -1);
    }
}

TEST_F(FifoTest, RemovingTheNameEndsBothOpens) {
    for (const auto openEnd : {OpenFifoForWriting, OpenFifoForReading}) {
        MakeFifo(Fifo());
        int fd = 0;
        std::thread opening([&] { fd = openEnd(Fifo(), Within(-1)); });
        unlink(Fifo());
        opening.join();
        EXPECT_EQ(fd, -1);
    }
}

TEST_F(FifoTest, AnotherFifoUnderTheSameNameIsNotTheOneBeingOpened) {
    MakeFifo(Fifo());
    int fd = 0;
    std::thread opening([&] { fd = OpenFifoForReading(Fifo(), Within(-1)); });
    ASSERT_TRUE(kpl::test::WaitUntil([this] { return IsOpenHere(m_path); }));
    const std::string other = m_dir.Path() + "/other";
    MakeFifo(other.c_str());
    EXPECT_EQ(rename(other.c_str(), Fifo()), 0);
    opening.join();
    EXPECT_EQ(fd, -1);
}

TEST_F(FifoTest, APauseEndsWhenThePeerLeaves) {
    MakeFifo(Fifo());
    {
        Ends ends(Fifo());
        WaitLimit limit = Within(-1);
        limit.WatchPeer(ends.writer);
        EXPECT_TRUE(limit.Pause(1000));
        close(ends.reader);
        ends.reader = -1;
        EXPECT_FALSE(limit.Pause(60000000));
    }
    const int reader = OpenFifoReader(Fifo());
    const int writer = open(Fifo(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(write(writer, "x", 1), 1);
    WaitLimit limit = Within(-1);
    limit.WatchPeer(reader);
    EXPECT_TRUE(limit.Pause(1000)) << "data is no reason to end it";
    close(writer);
    EXPECT_FALSE(limit.Pause(60000000));
    close(reader);
}

TEST_F(FifoTest, APauseIsRefusedWhenTheTimeIsOverOrTheBreakerBroken) {
    EXPECT_FALSE(Within(0).Pause(1));
    EXPECT_TRUE(Within(1000).Pause(1));
    m_breaker.Break();
    EXPECT_FALSE(Within(1000).Pause(1));
}

TEST_F(FifoTest, WaitingForABadDescriptorFails) {
    EXPECT_EQ(Within(0).WaitWritable(-1), -1);
    EXPECT_EQ(Within(0).WaitWritable(4000), -1);
}

TEST_F(FifoTest, AnEndlessLimitIsNone) {
    MakeFifo(Fifo());
    Ends ends(Fifo());
    EXPECT_EQ(Within(LONG_MAX).WaitWritable(ends.writer), 1);
    EXPECT_TRUE(Within(LONG_MAX).Pause(1));
    EXPECT_TRUE(Within(LONG_MIN).Pause(1));
}

TEST_F(FifoTest, WritingToAFullFifoReturnsMinusTwoAndAPartOfWhatIsLonger) {
    MakeFifo(Fifo());
    Ends ends(Fifo());
    const std::string data(100000, 'x');
    EXPECT_EQ(WriteFifo(ends.writer, data.data(), 100000, Within(50)), 65536);
    const Stopwatch watch;
    EXPECT_EQ(WriteFifo(ends.writer, "x", 1, Within(50)), -2);
    EXPECT_GE(watch.ElapsedMs(), 50);
    EXPECT_LT(watch.ElapsedMs(), 1500);
    m_breaker.Break();
    EXPECT_EQ(WriteFifo(ends.writer, "x", 1, Within(-1)), -1);
}

TEST_F(FifoTest, WhatFitsIsWrittenWithABrokenBreakerToo) {
    MakeFifo(Fifo());
    Ends ends(Fifo());
    m_breaker.Break();
    EXPECT_EQ(WriteFifo(ends.writer, "abc", 3, Within(-1)), 3);
}

TEST_F(FifoTest, WritingWithoutAReaderFailsWithEpipe) {
    MakeFifo(Fifo());
    Ends ends(Fifo());
    close(ends.reader);
    ends.reader = -1;
    errno = 0;
    EXPECT_EQ(WriteFifo(ends.writer, "abc", 3, Within(-1)), -1);
    EXPECT_EQ(errno, EPIPE) << "and SIGPIPE would have killed this process";
}

bool HasSigPipe(int (*fill)(sigset_t*)) {
    sigset_t set;
    sigemptyset(&set);
    fill(&set);
    return sigismember(&set, SIGPIPE) == 1;
}

int Mask(sigset_t* set) {
    return pthread_sigmask(SIG_SETMASK, nullptr, set);
}

TEST_F(FifoTest, AThreadThatKeepsSigPipeBlockedHasNonePendingAfterAWriteWithoutAReader) {
    MakeFifo(Fifo());
    Ends ends(Fifo());
    EXPECT_EQ(WriteFifo(ends.writer, "abc", 3, Within(-1)), 3);
    close(ends.reader);
    ends.reader = -1;
    std::thread writer([&] {
        KeepSigPipeBlocked();
        EXPECT_EQ(WriteFifo(ends.writer, "abc", 3, Within(-1)), -1);
        EXPECT_EQ(errno, EPIPE);
        EXPECT_FALSE(HasSigPipe(&sigpending));
        EXPECT_TRUE(HasSigPipe(&Mask));
    });
    writer.join();
    EXPECT_FALSE(HasSigPipe(&Mask)) << "another thread's mask";
    EXPECT_EQ(WriteFifo(ends.writer, "abc", 3, Within(-1)), -1) << "and this one's";
}

}  // namespace
