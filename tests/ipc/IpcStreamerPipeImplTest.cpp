#include "kpl/ipc/IpcStreamerPipeImpl.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "kpl/os/Sleep.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::ipc::IpcStreamerPipeImpl;
using kpl::test::ChildProcess;
using kpl::test::IpcTest;
using kpl::test::kPromptMs;
using kpl::test::LogCapture;
using kpl::test::MsOf;
using kpl::test::NewStreamer;
using kpl::test::ShortestMs;
using kpl::test::StreamerPair;
using kpl::test::WatchedThread;
using Messages = std::vector<std::string>;

class IpcStreamerPipeImplTest : public IpcTest {};

// What the two ends log when the peer's messages are somebody else's: the peer is a child process
// with plain system calls.
TEST_F(IpcStreamerPipeImplTest, TheLifeOfAServersEndMessageByMessage) {
    const std::string server = Path("FooServer5");
    const std::string client = Path("FooClient5");
    ChildProcess peer([&] {
        if (!kpl::test::WaitUntil([&] { return Exists("FooServer5"); })) {
            return 1;
        }
        const int in = open(client.c_str(), O_RDONLY);
        const int out = open(server.c_str(), O_WRONLY);
        char byte = 0;
        return in != -1 && out != -1 && read(in, &byte, 1) == 0 ? 0 : 2;
    });
    LogCapture log;
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, true);
    EXPECT_TRUE(streamer->Open());
    EXPECT_EQ(streamer->SetOption(10, 0x2f), 0);
    EXPECT_EQ(streamer->GetOption(10), -1);
    streamer->Close();
    streamer->Close();
    EXPECT_EQ(peer.Wait(), 0);
    EXPECT_EQ(log.Messages(),
              (Messages{"IpcStreamerRefCnt::IpcStreamerRefCnt(): ....\n",
                        "IpcStreamerPipeImpl::IpcStreamerPipeImpl(): Pipe ID=5, Server=1\n",
                        "IpcStreamerPipeImpl::DoOpen(): Server is opened. Result=1\n",
                        "IpcStreamerRefCnt::Open(): Ref counter=2\n",
                        "IpcStreamerPipeImpl::SetOption(): 10=0x2f\n",
                        "IpcStreamerRefCnt::Close(): Ref counter=1\n",
                        "IpcStreamerRefCnt::Close(): Ref counter=0\n",
                        "IpcStreamerPipeImpl::DoClose(): (" + server + ")(" + client + ")\n",
                        "IpcStreamerPipeImpl::~IpcStreamerPipeImpl(): Server=1, ID=5\n",
                        "IpcStreamerRefCnt::~IpcStreamerRefCnt(): ....\n"}));
}

TEST_F(IpcStreamerPipeImplTest, TheLifeOfAClientsEndMessageByMessage) {
    const std::string server = Path("FooServer5");
    const std::string client = Path("FooClient5");
    ChildProcess peer([&] {
        if (!kpl::test::WaitUntil([&] { return Exists("FooClient5"); })) {
            return 1;
        }
        const int out = open(client.c_str(), O_WRONLY);
        const int in = open(server.c_str(), O_RDONLY);
        char byte = 0;
        return in != -1 && out != -1 && read(in, &byte, 1) == 0 ? 0 : 2;
    });
    LogCapture log;
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, false);
    EXPECT_TRUE(streamer->Open());
    streamer->Close();
    streamer->Close();
    EXPECT_EQ(peer.Wait(), 0);
    EXPECT_EQ(log.Messages(),
              (Messages{"IpcStreamerRefCnt::IpcStreamerRefCnt(): ....\n",
                        "IpcStreamerPipeImpl::IpcStreamerPipeImpl(): Pipe ID=5, Server=0\n",
                        "IpcStreamerPipeImpl::DoOpen(): Client is opened. Result=1\n",
                        "IpcStreamerRefCnt::Open(): Ref counter=2\n",
                        "IpcStreamerRefCnt::Close(): Ref counter=1\n",
                        "IpcStreamerRefCnt::Close(): Ref counter=0\n",
                        "IpcStreamerPipeImpl::DoClose(): (" + client + ")(" + server + ")\n",
                        "IpcStreamerPipeImpl::~IpcStreamerPipeImpl(): Server=0, ID=5\n",
                        "IpcStreamerRefCnt::~IpcStreamerRefCnt(): ....\n"}));
}

TEST_F(IpcStreamerPipeImplTest, AFailedOpenIsLoggedWithZeroAndOneCloseEndsIt) {
    LogCapture log;
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, true);
    EXPECT_FALSE(streamer->OpenWithin(0));
    EXPECT_EQ(streamer->GetRefCount(), 1);
    EXPECT_TRUE(log.Contains("IpcStreamerPipeImpl::DoOpen(): Server is opened. Result=0\n"));
    EXPECT_TRUE(Exists("FooServer5"));
    streamer->Close();
    EXPECT_TRUE(log.Contains("IpcStreamerPipeImpl::~IpcStreamerPipeImpl(): Server=1, ID=5\n"));
}

TEST_F(IpcStreamerPipeImplTest, OpenTwiceThenCloseTwiceLeavesItAliveAndAThirdCloseTearsItDown) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    EXPECT_TRUE(pair.server->Open());
    EXPECT_EQ(pair.server->GetRefCount(), 3);
    pair.server->Close();
    pair.server->Close();
    EXPECT_EQ(pair.server->GetRefCount(), 1);
    EXPECT_TRUE(pair.server->IsOpened());
    EXPECT_TRUE(Exists("PairServer7"));
    pair.server->Close();
    pair.server = nullptr;
    EXPECT_FALSE(Exists("PairServer7"));
    EXPECT_FALSE(Exists("PairClient7"));
}

TEST_F(IpcStreamerPipeImplTest, AfterTearDownNeitherFifoIsThereWhicheverSideGoesFirst) {
    for (const bool serverFirst : {true, false}) {
        StreamerPair pair;
        ASSERT_TRUE(pair.opened);
        EXPECT_EQ(Dir().Entries(), (Messages{"PairClient7", "PairServer7"}));
        serverFirst ? pair.CloseServer() : pair.CloseClient();
        EXPECT_TRUE(Dir().Entries().empty());
        serverFirst ? pair.CloseClient() : pair.CloseServer();
        EXPECT_TRUE(Dir().Entries().empty());
    }
}

TEST_F(IpcStreamerPipeImplTest, TheFifosAreForEverybodyWithinTheUmask) {
    const mode_t before = umask(027);
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, true);
    EXPECT_FALSE(streamer->OpenWithin(0));
    umask(before);
    for (const char* name : {"FooServer5", "FooClient5"}) {
        struct stat status {};
        ASSERT_EQ(stat(Path(name).c_str(), &status), 0);
        EXPECT_TRUE(S_ISFIFO(status.st_mode));
        EXPECT_EQ(status.st_mode & 0777, 0750U);
    }
    streamer->Close();
}

TEST_F(IpcStreamerPipeImplTest, NoOptionExists) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    for (const int code : {-1, 0, 1, 4711}) {
        EXPECT_EQ(pair.client->SetOption(code, 1), 0);
        EXPECT_EQ(pair.client->GetOption(code), -1);
    }
    EXPECT_TRUE(pair.client->IsOpened());
}

TEST_F(IpcStreamerPipeImplTest, ReadAndWriteRefuseBadArgumentsAndAClosedStream) {
    char buf[8] = {};
    IpcStreamerPipeImpl* closed = NewStreamer("Foo", 5, true);
    EXPECT_FALSE(closed->IsOpened());
    EXPECT_EQ(closed->Read(buf, 8, 1), -1);
    EXPECT_EQ(closed->Write(buf, 8), -1);
    closed->Close();
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    EXPECT_EQ(pair.client->Read(nullptr, 8, 1), -1);
    EXPECT_EQ(pair.client->Read(buf, 0, 1), -1);
    EXPECT_EQ(pair.client->Read(buf, -1, 1), -1);
    EXPECT_EQ(pair.client->Write(nullptr, 8), -1);
    EXPECT_EQ(pair.client->Write(buf, 0), -1);
    EXPECT_EQ(pair.client->Write(buf, -1), -1);
}

TEST_F(IpcStreamerPipeImplTest, ReadReturnsAtMostWhatWasAskedForAndTheRestLater) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    char buf[8] = {};
    ASSERT_EQ(pair.client->Write("abcdef", 6), 6);
    EXPECT_EQ(pair.server->Read(buf, 4, 0), 4);
    EXPECT_EQ(std::string(buf, 4), "abcd");
    EXPECT_EQ(pair.server->Read(buf, 8, 0), 2);
    EXPECT_EQ(std::string(buf, 2), "ef");
    ASSERT_EQ(pair.server->Write("back", 4), 4);
    EXPECT_EQ(pair.client->Read(buf, 8, 0), 4);
}

TEST_F(IpcStreamerPipeImplTest, ReadWithATimeOutOfZeroOrBelowBlocksUntilDataArrives) {
    for (const int timeout : {0, -5}) {
        StreamerPair pair;
        ASSERT_TRUE(pair.opened);
        int result = -99;
        WatchedThread reader([&] {
            char buf[8];
            result = pair.server->Read(buf, sizeof(buf), timeout);
        });
        reader.WaitUntilBlocked();
        EXPECT_FALSE(reader.HasEnded());
        ASSERT_EQ(pair.client->Write("abc", 3), 3);
        reader.Join();
        EXPECT_EQ(result, 3);
    }
}

TEST_F(IpcStreamerPipeImplTest, ReadWithATimeOutOfZeroOrBelowBlocksUntilThePeerCloses) {
    for (const int timeout : {0, -5}) {
        StreamerPair pair;
        ASSERT_TRUE(pair.opened);
        int result = -99;
        WatchedThread reader([&] {
            char buf[8];
            result = pair.server->Read(buf, sizeof(buf), timeout);
        });
        reader.WaitUntilBlocked();
        EXPECT_FALSE(reader.HasEnded());
        pair.CloseClient();
        reader.Join();
        EXPECT_EQ(result, 0);
    }
}

TEST_F(IpcStreamerPipeImplTest, ReadFromAPeerThatHasClosedReturnsZeroNotATimeOut) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    ASSERT_EQ(pair.client->Write("last", 4), 4);
    pair.CloseClient();
    char buf[8];
    EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1000), 4);
    EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1000), 0);
    EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1), 0);
}

TEST_F(IpcStreamerPipeImplTest, ATimeOutOf1500WaitsOneSecondAnd999ReturnsAtOnce) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    char buf[8];
    int result = 0;
    const long long1 = ShortestMs(1400, [&] {
        result = pair.server->Read(buf, sizeof(buf), 1500);
        EXPECT_EQ(result, -2);
    });
    EXPECT_GE(long1, 1000);
    EXPECT_LT(long1, 1400);
    const long short1 = ShortestMs(300, [&] {
        result = pair.server->Read(buf, sizeof(buf), 999);
        EXPECT_EQ(result, -2);
    });
    EXPECT_LT(short1, 300);
}

void IgnoreSignal(int) {}

TEST_F(IpcStreamerPipeImplTest, ASignalDoesNotEndAWait) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = IgnoreSignal;  // without SA_RESTART
    sigaction(SIGUSR1, &action, &before);
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    int timed = 0;
    int unlimited = 0;
    long timedMs = 0;
    WatchedThread reader([&] {
        char buf[8];
        timedMs = MsOf([&] { timed = pair.server->Read(buf, sizeof(buf), 1000); });
        unlimited = pair.server->Read(buf, sizeof(buf), 0);
    });
    for (int i = 0; i < 200; ++i) {
        pthread_kill(reader.Handle(), SIGUSR1);
        kpl::os::osal_Sleep(7);  // allow-sleep: signals all over the wait and beyond it
    }
    EXPECT_FALSE(reader.HasEnded());
    ASSERT_EQ(pair.client->Write("abc", 3), 3);
    reader.Join();
    EXPECT_EQ(timed, -2);
    EXPECT_GE(timedMs, 1000);
    EXPECT_LT(timedMs, 2300) << "begun again by every signal it would be 2400";
    EXPECT_EQ(unlimited, 3);
    sigaction(SIGUSR1, &before, nullptr);
}

// select() would corrupt memory here.
TEST_F(IpcStreamerPipeImplTest, DescriptorNumbersAbove1024Work) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit raised = before;
    raised.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0) << "the hard limit is too low for this test";
    std::vector<int> fillers;
    do {
        fillers.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_NE(fillers.back(), -1);
    } while (fillers.back() < 1100);
    {
        StreamerPair pair;
        EXPECT_TRUE(pair.opened);
        char buf[8];
        EXPECT_EQ(pair.client->Write("abc", 3), 3);
        EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1000), 3);
        EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1), -2);
        pair.CloseClient();
        EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1000), 0);
    }
    for (const int fd : fillers) {
        close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(IpcStreamerPipeImplTest, DescriptorsAreNotInheritedAcrossExec) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    for (int fd = 3; fd < 256; ++fd) {
        struct stat status {};
        if (fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode)) {
            struct stat named {};
            ASSERT_EQ(stat(Path("PairServer7").c_str(), &named), 0);
            if (status.st_dev == named.st_dev) {
                EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
            }
        }
    }
}

std::atomic<int> sigPipes{0};

void CountSigPipe(int) {
    ++sigPipes;
}

bool IsSigPipePending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

class SigPipeTest : public IpcTest {
protected:
    void SetUp() override {
        IpcTest::SetUp();
        struct sigaction action {};
        action.sa_handler = CountSigPipe;
        sigaction(SIGPIPE, &action, &m_before);
        sigPipes = 0;
    }
    void TearDown() override {
        sigaction(SIGPIPE, &m_before, nullptr);
        IpcTest::TearDown();
    }

    // Writes until the reader, which takes a little and then closes, has gone.
    static int WriteToAReaderThatLeaves(StreamerPair* pair, size_t size) {
        const std::string data(size, 'x');
        int result = 0;
        WatchedThread writer(
            [&] { result = pair->server->Write(data.data(), static_cast<int>(size)); });
        writer.WaitUntilBlocked();
        char buf[10000];
        EXPECT_GT(pair->client->Read(buf, sizeof(buf), 0), 0);
        pair->CloseClient();
        writer.Join();
        return result;
    }

private:
    struct sigaction m_before {};
};

TEST_F(SigPipeTest, AWriteToAPeerThatHasGoneFailsWithoutASignal) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    pair.CloseClient();
    EXPECT_EQ(pair.server->Write("abc", 3), -1);
    EXPECT_EQ(sigPipes, 0);
    EXPECT_FALSE(IsSigPipePending());
}

TEST_F(SigPipeTest, AWriteAbove4096BytesThatIsCutShortReturnsItsPartWithoutASignal) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    const int result = WriteToAReaderThatLeaves(&pair, 1 << 20);
    EXPECT_GT(result, 0);
    EXPECT_LT(result, 1 << 20);
    EXPECT_EQ(sigPipes, 0);
    EXPECT_FALSE(IsSigPipePending());
}

TEST_F(SigPipeTest, NoSignalIsLeftPendingWhereTheCallerBlocksThem) {
    sigset_t pipe;
    sigset_t before;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    {
        StreamerPair pair;
        ASSERT_TRUE(pair.opened);
        pair.CloseClient();
        EXPECT_EQ(pair.server->Write("abc", 3), -1);
        EXPECT_FALSE(IsSigPipePending());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(sigPipes, 0);
}

TEST_F(SigPipeTest, ASignalThatWasBlockedAndPendingBeforeStaysPending) {
    sigset_t pipe;
    sigset_t before;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    pthread_kill(pthread_self(), SIGPIPE);
    ASSERT_TRUE(IsSigPipePending());
    {
        StreamerPair pair;
        ASSERT_TRUE(pair.opened);
        pair.CloseClient();
        EXPECT_EQ(pair.server->Write("abc", 3), -1);
        EXPECT_TRUE(IsSigPipePending());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(sigPipes, 1);
}

TEST_F(SigPipeTest, TheThreadsSignalMaskIsAsBefore) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    EXPECT_EQ(pair.server->Write("abc", 3), 3);
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

TEST_F(IpcStreamerPipeImplTest, AWriteLargerThanTheFifoArrivesWhole) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    std::string sent(1000003, '\0');
    for (size_t i = 0; i < sent.size(); ++i) {
        sent[i] = static_cast<char>(i * 7 % 251);
    }
    int written = 0;
    WatchedThread writer(
        [&] { written = pair.client->Write(sent.data(), static_cast<int>(sent.size())); });
    std::string got;
    char buf[5000];
    while (got.size() < sent.size()) {
        const int n = pair.server->Read(buf, sizeof(buf), 10000);
        ASSERT_GT(n, 0);
        got.append(buf, static_cast<size_t>(n));
    }
    writer.Join();
    EXPECT_EQ(written, static_cast<int>(sent.size()));
    EXPECT_TRUE(got == sent);
}

TEST_F(IpcStreamerPipeImplTest, ReadTimedWaitsMillisecondsAndTakesWhatIsThere) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    char buf[8];
    int result = 0;
    const long noneMs = MsOf([&] { result = pair.client->ReadTimed(buf, sizeof(buf), 200); });
    EXPECT_EQ(result, -2);
    EXPECT_GE(noneMs, 199);
    EXPECT_LT(noneMs, kPromptMs);
    EXPECT_LT(ShortestMs(150,
                         [&] {
                             result = pair.client->ReadTimed(buf, sizeof(buf), 0);
                             EXPECT_EQ(result, -2);
                         }),
              150);
    for (const long timeout : {0L, 1L, LONG_MAX, -1L}) {
        EXPECT_EQ(pair.server->Write("abc", 3), 3);
        EXPECT_EQ(pair.client->ReadTimed(buf, sizeof(buf), timeout), 3);
    }
}

TEST_F(IpcStreamerPipeImplTest, ReadTimedWithoutLimitEndsWithThePeerOrAnInterrupt) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    char buf[8];
    int result = 1;
    WatchedThread reader([&] { result = pair.client->ReadTimed(buf, sizeof(buf), -1); });
    reader.WaitUntilBlocked();
    EXPECT_FALSE(reader.HasEnded());
    pair.CloseServer();
    reader.Join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(pair.client->ReadTimed(buf, 0, -1), -1);
    EXPECT_EQ(pair.client->ReadTimed(nullptr, 8, -1), -1);
    StreamerPair other;
    ASSERT_TRUE(other.opened);
    WatchedThread interrupted([&] { result = other.client->ReadTimed(buf, sizeof(buf), -1); });
    interrupted.WaitUntilBlocked();
    other.client->Interrupt();
    interrupted.Join();
    EXPECT_EQ(result, -2);
}

TEST_F(IpcStreamerPipeImplTest, WriteTimedReturnsThePartThatWentInAndThenMinusTwo) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    const std::string data(1 << 20, 'x');
    int result = 0;
    const long partMs = MsOf([&] { result = pair.client->WriteTimed(data.data(), 1 << 20, 200); });
    EXPECT_EQ(result, 65536);
    EXPECT_GE(partMs, 199);
    EXPECT_LT(partMs, kPromptMs);
    const long noneMs = MsOf([&] { result = pair.client->WriteTimed("abc", 3, 200); });
    EXPECT_EQ(result, -2);
    EXPECT_GE(noneMs, 199);
    EXPECT_LT(noneMs, kPromptMs);
    EXPECT_LT(ShortestMs(150,
                         [&] {
                             result = pair.client->WriteTimed("abc", 3, 0);
                             EXPECT_EQ(result, -2);
                         }),
              150);
}

TEST_F(IpcStreamerPipeImplTest, WriteTimedToAnEmptyFifoIsAWrite) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    char buf[8];
    for (const long timeout : {0L, 1L, LONG_MAX}) {
        EXPECT_EQ(pair.client->WriteTimed("abc", 3, timeout), 3);
        EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1000), 3);
    }
    pair.CloseServer();
    EXPECT_EQ(pair.client->WriteTimed("abc", 3, 1000), -1);
}

TEST_F(IpcStreamerPipeImplTest, AnEndlessTimeLimitDoesNotOverflow) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    const std::string data(1 << 20, 'x');
    int result = 0;
    WatchedThread writer([&] { result = pair.client->WriteTimed(data.data(), 1 << 20, LONG_MAX); });
    writer.WaitUntilBlocked();
    EXPECT_FALSE(writer.HasEnded());
    pair.CloseServer();
    writer.Join();
    EXPECT_EQ(result, 65536);
}

TEST_F(IpcStreamerPipeImplTest, OpenWithinGivesUpInTimeAndCanBeTriedAgain) {
    for (const bool isServer : {true, false}) {
        IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, isServer);
        bool opened = true;
        const long ms = MsOf([&] { opened = streamer->OpenWithin(100); });
        EXPECT_FALSE(opened);
        EXPECT_GE(ms, 99);
        EXPECT_LT(ms, kPromptMs);
        EXPECT_FALSE(streamer->IsOpened());
        IpcStreamerPipeImpl* peer = NewStreamer("Foo", 5, !isServer);
        std::thread opener([&] { EXPECT_TRUE(peer->OpenWithin(10000)); });
        EXPECT_TRUE(streamer->OpenWithin(10000));
        opener.join();
        for (IpcStreamerPipeImpl* end : {streamer, peer}) {
            end->Close();
            end->Close();
        }
    }
}

TEST_F(IpcStreamerPipeImplTest, InterruptEndsAnOpenThatWaits) {
    for (const bool isServer : {true, false}) {
        IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, isServer);
        bool opened = true;
        WatchedThread opener([&] { opened = streamer->Open(); });
        ASSERT_TRUE(kpl::test::WaitUntil([&] { return Exists("FooServer5"); }));
        opener.WaitUntilBlocked();
        EXPECT_FALSE(opener.HasEnded());
        EXPECT_LT(MsOf([&] {
                      streamer->Interrupt();
                      opener.Join();
                  }),
                  kPromptMs);
        EXPECT_FALSE(opened);
        EXPECT_FALSE(streamer->Open());
        streamer->Close();
    }
}

TEST_F(IpcStreamerPipeImplTest, InterruptEndsAReadAndEveryLaterOneWithoutData) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    int result = 0;
    char buf[8];
    WatchedThread reader([&] { result = pair.server->Read(buf, sizeof(buf), 0); });
    reader.WaitUntilBlocked();
    EXPECT_FALSE(reader.HasEnded());
    pair.server->Interrupt();
    reader.Join();
    EXPECT_EQ(result, -2);
    EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 0), -2);
    ASSERT_EQ(pair.client->Write("abc", 3), 3);
    EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 0), 3);
    pair.CloseClient();
    EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 0), 0);
}

TEST_F(IpcStreamerPipeImplTest, InterruptEndsAWriteThatCannotGoOn) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    const std::string data(1 << 20, 'x');
    int result = 0;
    WatchedThread writer([&] { result = pair.client->Write(data.data(), 1 << 20); });
    writer.WaitUntilBlocked();
    EXPECT_FALSE(writer.HasEnded());
    pair.client->Interrupt();
    writer.Join();
    EXPECT_EQ(result, 65536);
    EXPECT_EQ(pair.client->Write("abc", 3), -1);
}

TEST_F(IpcStreamerPipeImplTest, CancelOpenEndsAnOpenThatWaitsAndEveryLaterOne) {
    for (const bool isServer : {true, false}) {
        IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, isServer);
        bool opened = true;
        WatchedThread opener([&] { opened = streamer->Open(); });
        ASSERT_TRUE(kpl::test::WaitUntil([&] { return Exists("FooServer5"); }));
        streamer->CancelOpen();
        opener.Join();
        EXPECT_FALSE(opened);
        EXPECT_FALSE(streamer->Open());
        streamer->Close();
    }
}

TEST_F(IpcStreamerPipeImplTest, CancelOpenSparesAStreamThatIsOpen) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    pair.server->CancelOpen();
    char buf[8];
    ASSERT_EQ(pair.client->Write("abc", 3), 3);
    EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 0), 3);
    const long ms = MsOf([&] { EXPECT_EQ(pair.server->Read(buf, sizeof(buf), 1000), -2); });
    EXPECT_GE(ms, 1000);
}

TEST_F(IpcStreamerPipeImplTest, AnOpenWhoseFifosAreRemovedFailsInsteadOfWaitingForEver) {
    for (const bool isServer : {true, false}) {
        IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, isServer);
        bool opened = true;
        WatchedThread opener([&] { opened = streamer->Open(); });
        ASSERT_TRUE(kpl::test::WaitUntil([&] { return Exists("FooServer5"); }));
        ASSERT_TRUE(kpl::test::WaitUntil([&] { return Exists("FooClient5"); }));
        unlink(Path("FooServer5").c_str());
        unlink(Path("FooClient5").c_str());
        opener.Join();
        EXPECT_FALSE(opened);
        streamer->Close();
    }
}

TEST_F(IpcStreamerPipeImplTest, AServersOpenWhosePeerLeavesInTheMiddleFails) {
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, true);
    bool opened = true;
    WatchedThread opener([&] { opened = streamer->Open(); });
    ASSERT_TRUE(kpl::test::WaitUntil([&] { return Exists("FooClient5"); }));
    // Blocks until the server has the Client FIFO open.
    const int fd = open(Path("FooClient5").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_NE(fd, -1);
    close(fd);
    opener.Join();
    EXPECT_FALSE(opened);
    streamer->Close();
}

TEST_F(IpcStreamerPipeImplTest, AClientsOpenWhosePeerLeavesInTheMiddleFails) {
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, false);
    bool opened = true;
    WatchedThread opener([&] { opened = streamer->Open(); });
    ASSERT_TRUE(kpl::test::WaitUntil([&] { return Exists("FooClient5"); }));
    // A visit that falls between two looks of the client goes unseen; then another follows.
    while (!opener.HasEnded()) {
        const int fd = open(Path("FooClient5").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        kpl::os::osal_Sleep(20);  // allow-sleep: nothing shows whether the client has looked
        close(fd);
        kpl::os::osal_Sleep(20);  // allow-sleep: nor whether it has seen that nobody is there
    }
    opener.Join();
    EXPECT_FALSE(opened);
    streamer->Close();
}

TEST_F(IpcStreamerPipeImplTest, WithoutADescriptorOpenFailsInsteadOfSeeingAPeerThatIsNotThere) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of virtual calls needs a descriptor of its own";
#endif
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, false);
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    // One is left: enough for the reading end, not for the look whether somebody writes.
    for (const int left : {0, 1}) {
        rlimit tight = before;
        tight.rlim_cur = static_cast<rlim_t>(next + left);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
        EXPECT_FALSE(streamer->OpenWithin(100));
        setrlimit(RLIMIT_NOFILE, &before);
    }
    streamer->Close();
}

TEST_F(IpcStreamerPipeImplTest, ANameThatIsNoFifoIsNotOpened) {
    for (const bool isServer : {true, false}) {
        const int fd = open(Path("FooClient5").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        ASSERT_NE(fd, -1);
        close(fd);
        IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 5, isServer);
        EXPECT_FALSE(streamer->Open());
        streamer->Close();
    }
}

TEST_F(IpcStreamerPipeImplTest, ANameTooLongForAPathGivesAStreamThatNeverOpens) {
    const size_t longest = 256 - Dir().Path().size() - sizeof("/Server2147483647");
    const std::string fits(longest, 'n');
    IpcStreamerPipeImpl* good = NewStreamer(fits.c_str(), 2147483647, true);
    EXPECT_FALSE(good->OpenWithin(0));
    EXPECT_TRUE(Exists(fits + "Server2147483647"));
    good->Close();
    for (const std::string& name : {fits + "n", std::string(400, 'n')}) {
        IpcStreamerPipeImpl* streamer = NewStreamer(name.c_str(), 5, true);
        EXPECT_FALSE(streamer->Open());
        EXPECT_TRUE(Dir().Entries().empty());
        streamer->Close();
    }
}

TEST_F(IpcStreamerPipeImplTest, ABadNameOrIdGivesAStreamThatNeverOpens) {
    for (IpcStreamerPipeImpl* streamer :
         {NewStreamer(nullptr, 5, true), NewStreamer("", 5, false), NewStreamer("Foo", -1, true)}) {
        EXPECT_FALSE(streamer->Open());
        streamer->Close();
    }
}

TEST_F(IpcStreamerPipeImplTest, TheIdCanBeAsked) {
    IpcStreamerPipeImpl* streamer = NewStreamer("Foo", 2147483647, true);
    EXPECT_EQ(streamer->GetId(), 2147483647);
    streamer->Close();
}

TEST_F(IpcStreamerPipeImplTest, OneThreadReadsWhileAnotherWrites) {
    StreamerPair pair;
    ASSERT_TRUE(pair.opened);
    constexpr int kRounds = 2000;
    std::thread echo([&] {
        char buf[256];
        for (;;) {
            const int got = pair.server->Read(buf, sizeof(buf), 0);
            if (got <= 0 || pair.server->Write(buf, got) != got) {
                return;
            }
        }
    });
    std::thread writer([&] {
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(pair.client->Write("12345678", 8), 8);
        }
    });
    int got = 0;
    char buf[256];
    while (got < kRounds * 8) {
        const int n = pair.client->Read(buf, sizeof(buf), 10000);
        ASSERT_GT(n, 0);
        got += n;
    }
    writer.join();
    pair.CloseClient();
    echo.join();
}

}  // namespace
