#include "kpl/ipc/IpcClientPipeImpl.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OwnProgram.h"
#include "tests/support/Process.h"

namespace {

using kpl::ipc::IpcClientPipeImpl;
using kpl::ipc::IpcStreamer;
using kpl::ipc::IpcStreamerPipeImpl;
using kpl::test::ChildProcess;
using kpl::test::IpcTest;
using kpl::test::kPromptMs;
using kpl::test::LogCapture;
using kpl::test::MsOf;
using kpl::test::RawAccept;
using kpl::test::RawConnection;
using kpl::test::WaitUntil;
using kpl::test::WatchedThread;
using Messages = std::vector<std::string>;

constexpr const char* kFailed = "IpcClientPipeImpl::Connect(): ??????? Open Connection failed\n";

class IpcClientPipeImplTest : public IpcTest {
protected:
    void MakeRoot() const { ASSERT_EQ(mkfifo(Path("FooRoot").c_str(), 0700), 0); }
    void RemoveRoot() const { unlink(Path("FooRoot").c_str()); }

    // A server process that knows only the published names, bytes and order of opens, with plain
    // blocking calls. It echoes until the client leaves.
    int ServeRaw(int connections) const {
        for (int i = 0; i < connections; ++i) {
            const int root = open(Path("FooRoot").c_str(), O_RDONLY);
            int id = -1;
            RawConnection connection = RawAccept(root, Dir().Path(), "Foo", &id);
            close(root);
            if (!connection.IsOpen()) {
                return 1;
            }
            char byte = 0;
            while (read(connection.readFd, &byte, 1) == 1) {
                if (write(connection.writeFd, &byte, 1) != 1) {
                    return 2;
                }
            }
            connection.Close();
        }
        return 0;
    }
};

std::string ThreadInHex() {
    char text[32];
    snprintf(text, sizeof(text), "0x%x", static_cast<unsigned>(pthread_self()));
    return text;
}

TEST_F(IpcClientPipeImplTest, AConnectionToAServerWithoutTheLibraryMessageByMessage) {
    MakeRoot();
    ChildProcess server([this] { return ServeRaw(1); });
    LogCapture log;
    {
        IpcClientPipeImpl client;
        log.Clear();
        ASSERT_TRUE(client.Connect("Foo", this));
        auto* streamer = static_cast<IpcStreamerPipeImpl*>(client.GetStreamer());
        ASSERT_NE(streamer, nullptr);
        EXPECT_EQ(streamer->GetRefCount(), 2);
        const std::string id = std::to_string(streamer->GetId());
        EXPECT_EQ(
            log.Messages(),
            (Messages{"IpcClientPipeImpl::Connect(): Server=Foo\n",
                      "IpcClientPipeImpl::Connect(): Open root pipe=" + Path("FooRoot\n"),
                      "IpcClientPipeImpl::Connect(): ID=" + id + "(" + ThreadInHex() + ")\n",
                      "IpcClientPipeImpl::Connect(): Write=16\n",
                      "IpcStreamerRefCnt::IpcStreamerRefCnt(): ....\n",
                      "IpcStreamerPipeImpl::IpcStreamerPipeImpl(): Pipe ID=" + id + ", Server=0\n",
                      "IpcClientPipeImpl::Connect(): Open Connection...\n",
                      "IpcStreamerPipeImpl::DoOpen(): Client is opened. Result=1\n",
                      "IpcStreamerRefCnt::Open(): Ref counter=2\n"}));
        EXPECT_TRUE(kpl::test::EchoWorks(streamer, "hello"));
        log.Clear();
        client.Disconnect();
        EXPECT_EQ(client.GetStreamer(), nullptr);
        EXPECT_EQ(Dir().Entries(), (Messages{"FooRoot"}));
        EXPECT_EQ(
            log.Messages(),
            (Messages{"IpcStreamerRefCnt::Close(): Ref counter=1\n",
                      "IpcStreamerRefCnt::Close(): Ref counter=0\n",
                      "IpcStreamerPipeImpl::DoClose(): (" + Path("FooClient" + id) + ")(" +
                          Path("FooServer" + id) + ")\n",
                      "IpcStreamerPipeImpl::~IpcStreamerPipeImpl(): Server=0, ID=" + id + "\n",
                      "IpcStreamerRefCnt::~IpcStreamerRefCnt(): ....\n",
                      "IpcClientPipeImpl::Disconnect(): .....\n"}));
        log.Clear();
    }
    EXPECT_EQ(log.Messages(), (Messages{"IpcClientPipeImpl::Disconnect(): .....\n",
                                        "IpcClientPipeImpl::~IpcClientPipeImpl(): .....\n"}));
    EXPECT_EQ(server.Wait(), 0);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, AClientMayConnectAgainAfterDisconnect) {
    MakeRoot();
    ChildProcess server([this] { return ServeRaw(3); });
    IpcClientPipeImpl client;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(client.Connect("Foo", nullptr, 10000));
        EXPECT_TRUE(kpl::test::EchoWorks(client.GetStreamer(), "again"));
        client.Disconnect();
        EXPECT_EQ(client.GetStreamer(), nullptr);
    }
    EXPECT_EQ(server.Wait(), 0);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, ConnectWithoutARootFifoReturnsFalseAtOnce) {
    IpcClientPipeImpl client;
    LogCapture log;
    EXPECT_LT(MsOf([&] { EXPECT_FALSE(client.Connect("Foo", nullptr)); }), kPromptMs);
    EXPECT_EQ(log.Messages(),
              (Messages{"IpcClientPipeImpl::Connect(): Server=Foo\n",
                        "IpcClientPipeImpl::Connect(): Open root pipe=" + Path("FooRoot\n")}));
    EXPECT_EQ(client.GetStreamer(), nullptr);
}

TEST_F(IpcClientPipeImplTest, ConnectWithANullOrEmptyNameReturnsFalse) {
    IpcClientPipeImpl client;
    LogCapture log;
    EXPECT_FALSE(client.Connect("", nullptr));
    EXPECT_EQ(log.Messages(), (Messages{"IpcClientPipeImpl::Connect(): Server=\n"}));
    EXPECT_FALSE(client.Connect(nullptr, nullptr));
}

TEST_F(IpcClientPipeImplTest, ConnectWithANameTooLongForAPathReturnsFalse) {
    const size_t longest = 256 - Dir().Path().size() - sizeof("/Server2147483647");
    const std::string name(longest + 1, 'n');
    ASSERT_EQ(mkfifo(Path(name + "Root").c_str(), 0700), 0);
    const int root = open(Path(name + "Root").c_str(), O_RDWR | O_CLOEXEC);
    IpcClientPipeImpl client;
    EXPECT_FALSE(client.Connect(name.c_str(), nullptr, 1000));
    close(root);
    unlink(Path(name + "Root").c_str());
}

TEST_F(IpcClientPipeImplTest, ARootThatIsNoFifoIsNotWrittenTo) {
    const int fd = open(Path("FooRoot").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    ASSERT_NE(fd, -1);
    IpcClientPipeImpl client;
    EXPECT_FALSE(client.Connect("Foo", nullptr));
    EXPECT_EQ(lseek(fd, 0, SEEK_END), 0);
    close(fd);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, AStaleRootFifoThatNobodyReadsEndsWithTheTimeLimit) {
    MakeRoot();
    IpcClientPipeImpl client;
    const long ms = MsOf([&] { EXPECT_FALSE(client.Connect("Foo", nullptr, 150)); });
    EXPECT_GE(ms, 149);
    EXPECT_LT(ms, kPromptMs);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, AServerThatNeverOpensItsEndsEndsWithTheTimeLimit) {
    MakeRoot();
    const int root = open(Path("FooRoot").c_str(), O_RDWR | O_CLOEXEC);
    LogCapture log(LogCapture::Debug::Off);
    IpcClientPipeImpl client;
    const long ms = MsOf([&] { EXPECT_FALSE(client.Connect("Foo", nullptr, 150)); });
    EXPECT_GE(ms, 149);
    EXPECT_LT(ms, kPromptMs);
    EXPECT_EQ(client.GetStreamer(), nullptr);
    EXPECT_EQ(log.Messages(), (Messages{kFailed})) << "forced: also with the log switched off";
    EXPECT_EQ(Dir().Entries(), (Messages{"FooRoot"})) << "what it made, it removes";
    close(root);
    RemoveRoot();
}

// After such a failure nothing may point to the streamer that it destroyed.
TEST_F(IpcClientPipeImplTest, AFailedOpenMessageByMessageLeavesNoStreamer) {
    MakeRoot();
    const int root = open(Path("FooRoot").c_str(), O_RDWR | O_CLOEXEC);
    LogCapture log;
    IpcClientPipeImpl client;
    log.Clear();
    EXPECT_FALSE(client.Connect("Foo", nullptr, 50));
    const auto announced = [&] {
        uint32_t words[4] = {};
        EXPECT_TRUE(kpl::test::ReadAll(root, words, sizeof(words)));
        return std::to_string(words[1]);
    }();
    EXPECT_EQ(
        log.Messages(),
        (Messages{
            "IpcClientPipeImpl::Connect(): Server=Foo\n",
            "IpcClientPipeImpl::Connect(): Open root pipe=" + Path("FooRoot\n"),
            "IpcClientPipeImpl::Connect(): ID=" + announced + "(" + ThreadInHex() + ")\n",
            "IpcClientPipeImpl::Connect(): Write=16\n",
            "IpcStreamerRefCnt::IpcStreamerRefCnt(): ....\n",
            "IpcStreamerPipeImpl::IpcStreamerPipeImpl(): Pipe ID=" + announced + ", Server=0\n",
            "IpcClientPipeImpl::Connect(): Open Connection...\n",
            "IpcStreamerPipeImpl::DoOpen(): Client is opened. Result=0\n", kFailed,
            "IpcStreamerRefCnt::Close(): Ref counter=0\n",
            "IpcStreamerPipeImpl::DoClose(): (" + Path("FooClient" + announced) + ")(" +
                Path("FooServer" + announced) + ")\n",
            "IpcStreamerPipeImpl::~IpcStreamerPipeImpl(): Server=0, ID=" + announced + "\n",
            "IpcStreamerRefCnt::~IpcStreamerRefCnt(): ....\n"}));
    EXPECT_EQ(client.GetStreamer(), nullptr);
    client.Disconnect();
    close(root);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, CancelConnectEndsAConnectToAStaleRootFifo) {
    MakeRoot();
    IpcClientPipeImpl client;
    bool connected = true;
    WatchedThread connecting([&] { connected = client.Connect("Foo", nullptr); });
    connecting.WaitUntilBlocked();
    EXPECT_FALSE(connecting.HasEnded());
    EXPECT_LT(MsOf([&] {
                  client.CancelConnect();
                  connecting.Join();
              }),
              kPromptMs);
    EXPECT_FALSE(connected);
    EXPECT_FALSE(client.Connect("Foo", nullptr)) << "every later one too";
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, CancelConnectEndsAConnectWhoseServerNeverOpens) {
    MakeRoot();
    const int root = open(Path("FooRoot").c_str(), O_RDWR | O_CLOEXEC);
    IpcClientPipeImpl client;
    bool connected = true;
    WatchedThread connecting([&] { connected = client.Connect("Foo", nullptr); });
    ASSERT_TRUE(WaitUntil([&] { return Dir().Entries().size() == 3; }));
    EXPECT_LT(MsOf([&] {
                  client.CancelConnect();
                  connecting.Join();
              }),
              kPromptMs);
    EXPECT_FALSE(connected);
    EXPECT_EQ(Dir().Entries(), (Messages{"FooRoot"}));
    close(root);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, ACancelAtAnyMomentIsEitherInTimeOrHarmless) {
    MakeRoot();
    constexpr int kRounds = 80;
    ChildProcess server([this] {
        const int root = open(Path("FooRoot").c_str(), O_RDWR);
        for (;;) {
            int id = -1;
            uint32_t words[4] = {};
            if (!kpl::test::ReadAll(root, words, sizeof(words)) || words[0] == 0) {
                return 0;
            }
            id = static_cast<int>(words[1]);
            IpcStreamerPipeImpl* end = kpl::test::NewStreamer("Foo", id, true);
            char buf[16];
            if (end->OpenWithin(5)) {
                const int got = end->Read(buf, sizeof(buf), 0);
                if (got > 0) {
                    end->Write(buf, got);
                }
                end->Close();
            }
            end->Close();
        }
    });
    int connections = 0;
    for (int i = 0; i < kRounds; ++i) {
        IpcClientPipeImpl client;
        bool connected = false;
        std::thread connecting([&] { connected = client.Connect("Foo", nullptr); });
        const timespec pause{0, i * 10000L};
        nanosleep(&pause, nullptr);  // allow-sleep: another moment each time
        client.CancelConnect();
        connecting.join();
        ASSERT_EQ(connected, client.GetStreamer() != nullptr);
        if (connected) {
            ++connections;
            ASSERT_TRUE(kpl::test::EchoWorks(client.GetStreamer(), "x"));
        }
    }
    EXPECT_LT(connections, kRounds);
    ASSERT_TRUE(kpl::test::WriteToRoot(Path("FooRoot"), std::string(16, '\0')));
    EXPECT_EQ(server.Wait(), 0);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, AClosedRootFifoMakesTheAnnouncementFailWithoutASignal) {
    MakeRoot();
    // A full Root FIFO holds the announcement back until its reader goes away.
    const int reader = open(Path("FooRoot").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int filler = open(Path("FooRoot").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const std::string page(4096, 'x');
    while (write(filler, page.data(), page.size()) > 0) {
    }
    LogCapture log;
    IpcClientPipeImpl client;
    bool connected = true;
    WatchedThread connecting([&] { connected = client.Connect("Foo", nullptr); });
    connecting.WaitUntilBlocked();
    EXPECT_FALSE(connecting.HasEnded());
    close(reader);
    connecting.Join();
    EXPECT_FALSE(connected);
    EXPECT_TRUE(log.Contains("IpcClientPipeImpl::Connect(): Write=-1\n"));
    close(filler);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, TwoClientsSeedTheGeneratorOnceAndTheirIdsComeFromOneSequence) {
    if (!kpl::test::RunsInFreshProcess()) {
        return;
    }
    MakeRoot();
    const int root = open(Path("FooRoot").c_str(), O_RDWR | O_CLOEXEC);
    LogCapture log;
    IpcClientPipeImpl first;
    IpcClientPipeImpl second;
    EXPECT_EQ(log.Messages(), (Messages{"IpcClientPipeImpl::IpcClientPipeImpl(): .....\n",
                                        "IpcClientPipeImpl::IpcClientPipeImpl(): Init random....\n",
                                        "IpcClientPipeImpl::IpcClientPipeImpl(): .....\n"}));
    srand48(4711);
    for (IpcClientPipeImpl* client : {&first, &second, &first}) {
        EXPECT_FALSE(client->Connect("Foo", nullptr, 0));
    }
    srand48(4711);
    for (int i = 0; i < 3; ++i) {
        uint32_t words[4] = {};
        ASSERT_TRUE(kpl::test::ReadAll(root, words, sizeof(words)));
        EXPECT_EQ(words[1], static_cast<uint32_t>(lrand48()));
    }
    close(root);
    RemoveRoot();
}

// The time in milliseconds, cut to 32 bits.
TEST_F(IpcClientPipeImplTest, TheSeedIsTheTime) {
    if (!kpl::test::RunsInFreshProcess()) {
        return;
    }
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    IpcClientPipeImpl client;
    gettimeofday(&after, nullptr);
    const long drawn = lrand48();
    const auto ms = [](const timeval& t) { return int64_t{t.tv_sec} * 1000 + t.tv_usec / 1000; };
    bool found = false;
    for (int64_t seed = ms(before); seed <= ms(after); ++seed) {
        srand48(static_cast<int32_t>(seed));
        found = found || lrand48() == drawn;
    }
    EXPECT_TRUE(found);
}

TEST_F(IpcClientPipeImplTest, ClientsMadeAndConnectingInManyThreadsDrawDifferentIds) {
    MakeRoot();
    const int root = open(Path("FooRoot").c_str(), O_RDWR | O_CLOEXEC);
    constexpr int kThreads = 8;
    constexpr int kEach = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < kEach; ++i) {
                IpcClientPipeImpl client;
                EXPECT_FALSE(client.Connect("Foo", nullptr, 0));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<uint32_t> ids;
    for (int i = 0; i < kThreads * kEach; ++i) {
        uint32_t words[4] = {};
        ASSERT_TRUE(kpl::test::ReadAll(root, words, sizeof(words)));
        EXPECT_EQ(words[0], 0x49504320U);
        EXPECT_LE(words[1], 0x7fffffffU);
        EXPECT_EQ(words[2], 0U);
        EXPECT_EQ(words[3], 0U);
        ids.insert(words[1]);
    }
    // Two clashes among 400 draws of 31 bits would be a wonder; one is likely once in 27000 runs.
    EXPECT_GE(ids.size(), static_cast<size_t>(kThreads * kEach - 1));
    close(root);
    RemoveRoot();
}

TEST_F(IpcClientPipeImplTest, AnEndlessTimeLimitDoesNotOverflow) {
    MakeRoot();
    ChildProcess server([this] { return ServeRaw(1); });
    IpcClientPipeImpl client;
    EXPECT_TRUE(client.Connect("Foo", nullptr, LONG_MAX));
    client.Disconnect();
    EXPECT_EQ(server.Wait(), 0);
    RemoveRoot();
}

}  // namespace
