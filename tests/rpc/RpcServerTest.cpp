#include "kpl/rpc/RpcServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/ipc/IpcServerManager.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/RawClient.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::rpc;
using kpl::os::CEvent;
using kpl::test::GoodAnnouncement;
using kpl::test::kCeilingMs;
using kpl::test::LogCapture;
using kpl::test::RawClient;
using kpl::test::RawInvoke;
using kpl::test::Stopwatch;
using kpl::test::WaitUntil;
using kpl::test::WriteToRoot;

// A server named "S" that serves a table of functions; at the end nothing of it may be left.
class RpcServerTest : public testing::Test {
protected:
    RpcServerTest() : log(LogCapture::Debug::Off) {
        kpl::ipc::SetPipeRootPath(directory.c_str());
        m_descriptors = kpl::test::OpenDescriptorCount();
        m_threads = kpl::test::ThreadCount();
        table.Bind("Add", [](int a, int b) { return a + b; });
        table.Bind("Echo", [](const char* text) { return std::string(text); });
        table.Bind("One", [](int a) { return a; });
        RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    }
    ~RpcServerTest() override {
        server.Stop();
        RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
        EXPECT_TRUE(directory.Entries().empty());
        EXPECT_EQ(kpl::test::OpenDescriptorCount(), m_descriptors);
        // TSan's own background thread may come late; ours must be gone.
        EXPECT_LE(kpl::test::SettledThreadCount(m_threads + 1), m_threads + 1);
    }

    void StartServer() { ASSERT_TRUE(server.Start("S", nullptr)); }

    // Whether another client is served at once.
    bool Serves() {
        RpcClient client;
        return client.Connect("S", nullptr, 10000) && Call<int>(client, 10000, "Add", 2, 3) == 5;
    }

    std::vector<std::string> ForcedMessages() const {
        std::vector<std::string> messages;
        for (const std::string& message : log.Messages()) {
            if (message.find("RpcClient::RpcClient(): Framework") == std::string::npos) {
                messages.push_back(message);
            }
        }
        return messages;
    }

    kpl::test::TempDir directory;
    LogCapture log;
    RpcFunctionTable table;
    RpcServer server;

private:
    int m_descriptors = 0;
    int m_threads = 0;
};

TEST_F(RpcServerTest, StartRefusesBadNamesAndASecondStart) {
    EXPECT_FALSE(server.Start(nullptr, nullptr));
    EXPECT_FALSE(server.Start("", nullptr));
    EXPECT_FALSE(server.Start(std::string(300, 'x').c_str(), nullptr));
    EXPECT_FALSE(server.Start("no/such/directory", nullptr));
    EXPECT_TRUE(server.Start("S", nullptr));
    EXPECT_FALSE(server.Start("S", nullptr));
    EXPECT_TRUE(Serves());
}

TEST_F(RpcServerTest, StopIsFalseWithoutAServerAndAServerCanStartAgain) {
    EXPECT_FALSE(server.Stop());
    StartServer();
    EXPECT_TRUE(Serves());
    EXPECT_TRUE(server.Stop());
    EXPECT_FALSE(server.Stop());
    StartServer();
    EXPECT_TRUE(Serves());
}

TEST_F(RpcServerTest, CountsItsConnections) {
    StartServer();
    EXPECT_EQ(server.GetConnectionCount(), 0);
    RpcClient a;
    RpcClient b;
    ASSERT_TRUE(a.Connect("S", nullptr) && b.Connect("S", nullptr));
    EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 2; }));
    a.Disconnect();
    EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 1; }));
    EXPECT_EQ(Call<int>(b, "Add", 1, 1), 2);
}

TEST_F(RpcServerTest, TheEndOfAConnectionRemovesItsFifosWithoutAnotherClientComing) {
    StartServer();
    RawClient client(directory.Path(), "S", 5);
    ASSERT_EQ(directory.Entries(), (std::vector<std::string>{"SClient5", "SRoot", "SServer5"}));
    client.Close();
    EXPECT_TRUE(
        WaitUntil([&] { return directory.Entries() == std::vector<std::string>{"SRoot"}; }));
}

TEST_F(RpcServerTest, ServesThePublishedBytesWithoutTheLibrarysClient) {
    StartServer();
    RawClient client(directory.Path(), "S", 17);
    ASSERT_TRUE(client.Write(RawInvoke(99, "One", 7)));
    const std::string expected(
        "\x12\x27\0\0"
        "\x63\0\0\0"
        "\x1c\0\0\0"
        "\x01\0\0\0"
        "\x02\0\0\0"
        "\x04\0\0\0"
        "\x07\0\0\0",
        28);
    EXPECT_EQ(client.ReadCommand(), expected);
}

TEST_F(RpcServerTest, ServesSeveralCommandsOfOneWriteAndOneThatArrivesInPieces) {
    StartServer();
    RawClient client(directory.Path(), "S", 17);
    const std::string third = RawInvoke(3, "One", 30);
    ASSERT_TRUE(
        client.Write(RawInvoke(1, "One", 10) + RawInvoke(2, "One", 20) + third.substr(0, 9)));
    EXPECT_EQ(client.ReadCommand().substr(4, 1), std::string("\1"));
    EXPECT_EQ(client.ReadCommand().substr(4, 1), std::string("\2"));
    for (const char byte : third.substr(9)) {
        ASSERT_TRUE(client.Write(std::string(1, byte)));
    }
    EXPECT_EQ(client.ReadCommand().substr(4, 1), std::string("\3"));
}

TEST_F(RpcServerTest, ACommandThatNoExecutorAnswersGetsAnEmptyResult) {
    StartServer();
    RawClient client(directory.Path(), "S", 1);
    ASSERT_TRUE(client.Write(RawInvoke(8, "Nobody", 1)));
    EXPECT_EQ(client.ReadCommand(), std::string("\x12\x27\0\0\x08\0\0\0\x10\0\0\0\0\0\0\0", 16));
    EXPECT_EQ(
        ForcedMessages(),
        std::vector<std::string>{
            "RpcExecutorManager::Execute(): ??????????? ERROR: Cannot find function(Nobody)\n"});
}

// Whatever is wrong with them, bad bytes cost their own connection, one message, and nothing else.
class BadBytesTest : public RpcServerTest, public testing::WithParamInterface<int> {
protected:
    static std::string Bytes(int which) {
        std::string good = RawInvoke(1, "One", 1);
        const auto set = [&good](size_t offset, uint32_t word) {
            memcpy(&good[offset], &word, sizeof(word));
        };
        switch (which) {
            case 0:
                return "GET / HTTP/1.1\r\n\r\n";
            case 1:
                set(0, 10002);  // a result
                break;
            case 2:
                set(0, 10003);  // a callback
                break;
            case 3:
                set(8, 15);  // total size
                break;
            case 4:
                set(8, 16385);
                break;
            case 5:
                set(8, 0xFFFFFFFF);
                break;
            case 6:
                set(12, 0);  // parameter count
                break;
            case 7:
                set(12, 0x7FFFFFFF);
                break;
            case 8:
                set(12, 0xFFFFFFFF);
                break;
            case 9:
                set(12, 1);
                break;
            case 10:
                set(20, 0xFFFFFFFF);  // a parameter's length
                break;
            case 11:
                set(20, 5);
                break;
            case 12:
                good.back() = 'x';  // a name that does not end
                break;
            case 13:
                set(8, static_cast<uint32_t>(good.size()) + 1);
                good += "x";
                break;
            default:
                return std::string(64, '\0');
        }
        return good;
    }
};

TEST_P(BadBytesTest, EndTheirOwnConnectionWithOneMessage) {
    StartServer();
    RpcClient other;
    ASSERT_TRUE(other.Connect("S", nullptr));
    RawClient bad(directory.Path(), "S", 5);
    ASSERT_TRUE(bad.Write(Bytes(GetParam())));
    EXPECT_TRUE(bad.AwaitEnd());
    EXPECT_EQ(ForcedMessages(),
              std::vector<std::string>{
                  "RpcServer: ????? Bad bytes from client. Server(S), Connection(5)\n"});
    EXPECT_EQ(Call<int>(other, "Add", 20, 22), 42);
    EXPECT_TRUE(Serves());
}

INSTANTIATE_TEST_SUITE_P(RpcServerTest, BadBytesTest, testing::Range(0, 15));

TEST_F(RpcServerTest, AResultAbove16384BytesBecomesAnEmptyOne) {
    table.Bind("Large", [] { return std::string(17000, 'x'); });
    StartServer();
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    EXPECT_EQ(Call<std::string>(client, "Large"), std::nullopt);
    EXPECT_EQ(ForcedMessages(), std::vector<std::string>{
                                    "RpcFunctionTable::Execute(): ????? Large(): the result does "
                                    "not fit\n"});
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
}

TEST_F(RpcServerTest, AClientThatDiesBeforeItOpensCostsTheNextOneOnlyTheOpenTimeout) {
    server.SetOpenTimeout(100);
    StartServer();
    ASSERT_TRUE(WriteToRoot(directory.Path() + "/SRoot", GoodAnnouncement(9)));
    const Stopwatch watch;
    EXPECT_TRUE(Serves());
    EXPECT_LT(watch.ElapsedMs(), 5000);
    EXPECT_TRUE(
        WaitUntil([&] { return directory.Entries() == std::vector<std::string>{"SRoot"}; }));
}

TEST_F(RpcServerTest, StopDoesNotWaitForAClientThatNeverOpens) {
    server.SetOpenTimeout(-1);
    StartServer();
    ASSERT_TRUE(WriteToRoot(directory.Path() + "/SRoot", GoodAnnouncement(9)));
    ASSERT_TRUE(WaitUntil([&] { return directory.Entries().size() == 3; }));
    const Stopwatch watch;
    EXPECT_TRUE(server.Stop());
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

// Asks until the server's answers fill the FIFO, and never reads one.
void AskWithoutReading(RawClient* client) {
    std::string text(4000, 'x');
    char buffer[8192];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    muxer.Push(text.c_str());
    const int size = muxer.Finish(RPC_COMMAND_INVOKE, "Echo", 1);
    for (int i = 0; i < 24; ++i) {  // 16 fit into the FIFO.
        ASSERT_TRUE(client->Write(std::string(buffer, static_cast<size_t>(size))));
    }
}

TEST_F(RpcServerTest, AClientThatDoesNotReadHoldsUpNobodyAndIsGivenUp) {
    server.SetWriteTimeout(300);
    StartServer();
    RawClient silent(directory.Path(), "S", 1);
    AskWithoutReading(&silent);
    const Stopwatch watch;
    EXPECT_TRUE(Serves());
    EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 0; }));
    EXPECT_LT(watch.ElapsedMs(), 5000);
    EXPECT_TRUE(silent.AwaitEnd());
}

TEST_F(RpcServerTest, StopDoesNotWaitForAClientThatDoesNotRead) {
    server.SetWriteTimeout(-1);
    StartServer();
    RawClient silent(directory.Path(), "S", 1);
    AskWithoutReading(&silent);
    const Stopwatch watch;
    EXPECT_TRUE(server.Stop());
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
    EXPECT_TRUE(ForcedMessages().empty());
}

TEST_F(RpcServerTest, AnExecutorThatSendsToAClientThatDoesNotReadIsNotHeldUp) {
    std::vector<RpcRemoteCallback> subscribers;
    table.Bind("Subscribe", [&](RpcRemoteCallback callback) { subscribers.push_back(callback); });
    table.Bind("Publish", [&](int count) {
        const std::string text(4000, 'x');
        int sent = 0;
        for (int i = 0; i < count; ++i) {
            sent += subscribers[0](text) ? 1 : 0;
        }
        return sent;
    });
    server.SetWriteTimeout(-1);
    StartServer();
    auto silent = std::make_unique<RawClient>(directory.Path(), "S", 1);
    char buffer[128];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    ASSERT_TRUE(muxer.Push(RpcCallbackContext()));
    const int size = muxer.Finish(RPC_COMMAND_INVOKE, "Subscribe", 1);
    ASSERT_TRUE(silent->Write(std::string(buffer, static_cast<size_t>(size))));
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    ASSERT_TRUE(
        WaitUntil([&] { return Call<int>(client, "Publish", 0) == 0 && !subscribers.empty(); }));
    const Stopwatch watch;
    EXPECT_EQ(Call<int>(client, "Publish", 100), 100);  // Far more than the FIFO holds.
    EXPECT_LT(watch.ElapsedMs(), 5000);
    // More than a megabyte of them ends the connection.
    EXPECT_LT(Call<int>(client, "Publish", 300).value_or(300), 300);
    EXPECT_TRUE(silent->AwaitEnd());
    server.Stop();
}

TEST_F(RpcServerTest, StopSaysWhichFunctionItWaitsFor) {
    CEvent entered(false);
    CEvent go(false);
    table.Bind("Sleepy", [&] {
        entered.Set();
        go.Wait(-1);
    });
    StartServer();
    RawClient client(directory.Path(), "S", 44);
    char buffer[64];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    const int size = muxer.Finish(RPC_COMMAND_INVOKE, "Sleepy", 1);
    ASSERT_TRUE(client.Write(std::string(buffer, static_cast<size_t>(size))));
    ASSERT_TRUE(entered.Wait(10000));
    auto stopped = std::async(std::launch::async, [this] { return server.Stop(); });
    EXPECT_TRUE(log.WaitFor(
        "RpcServer: ????? Stop waits for Server(S), Connection(44), Function(Sleepy)\n"));
    go.Set();
    EXPECT_TRUE(stopped.get());
    EXPECT_EQ(ForcedMessages().size(), 1U);
}

TEST_F(RpcServerTest, ServesAsAnObserverOfAServerThatTheRegistryRuns) {
    kpl::ipc::IpcServerManager* const manager = kpl::ipc::IpcServerManager::GetInstance();
    ASSERT_TRUE(manager->StartServer("S", 0, nullptr));
    ASSERT_TRUE(manager->RegisterObserver("S", &server));
    EXPECT_TRUE(Serves());
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
    EXPECT_TRUE(manager->StopServer("S"));
    EXPECT_EQ(server.GetConnectionCount(), 0);
    EXPECT_TRUE(WaitUntil([&] { return !client.IsAlive(); }));
    // And of the next one of that name.
    ASSERT_TRUE(manager->StartServer("S", 0, nullptr));
    ASSERT_TRUE(manager->RegisterObserver("S", &server));
    EXPECT_TRUE(Serves());
    EXPECT_TRUE(manager->StopServer("S"));
}

TEST_F(RpcServerTest, RefusesClientsAfterStopUntilTheNextStart) {
    kpl::ipc::IpcServerManager* const manager = kpl::ipc::IpcServerManager::GetInstance();
    ASSERT_TRUE(manager->StartServer("S", 0, nullptr));
    ASSERT_TRUE(manager->RegisterObserver("S", &server));
    server.Stop();
    RpcClient client;
    EXPECT_FALSE(client.Connect("S", nullptr, 200));
    EXPECT_EQ(server.GetConnectionCount(), 0);
    EXPECT_TRUE(manager->StopServer("S"));
}

// As in two processes that have seeded their sequences in the same millisecond.
TEST_F(RpcServerTest, ClientsThatDrawTheSameIdGetAConnectionEach) {
    StartServer();
    { const kpl::ipc::IpcClientPipeImpl seedsTheSequence; }
    RpcClient first;
    RpcClient second;
    for (RpcClient* client : {&first, &second}) {
        srand48(7);
        ASSERT_TRUE(client->Connect("S", nullptr, 10000));
    }
    EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 2; }));
    std::thread other([&] {
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(Call<int>(second, "Add", i, 1), i + 1);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(Call<int>(first, "Add", i, 2), i + 2);
    }
    other.join();
    second.Disconnect();
    EXPECT_EQ(Call<int>(first, "Add", 3, 2), 5);
}

TEST_F(RpcServerTest, StreamersOfAnotherKindAreRefused) {
    EXPECT_FALSE(server.ClientAccepted(nullptr));
}

// --- Callbacks ---

// Its write would raise a signal that ends this process.
TEST_F(RpcServerTest, AResultForAClientThatHasGoneCostsNobodyElseAnything) {
    CEvent runs(false);
    CEvent goOn(false);
    table.Bind("Slow", [&](int a) {
        runs.Set();
        goOn.Wait(kCeilingMs);
        return a;
    });
    StartServer();
    {
        RawClient client(directory.Path(), "S", 5);
        ASSERT_TRUE(client.Write(RawInvoke(1, "Slow", 1)));
        EXPECT_TRUE(runs.Wait(kCeilingMs));
        client.Close();
    }
    goOn.Set();
    EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 0; }));
    EXPECT_TRUE(Serves());
}

// Blocked once for the thread, not around each write of a result.
TEST_F(RpcServerTest, FunctionsRunWithSigPipeBlocked) {
    table.Bind("IsBlocked", [] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        return sigismember(&mask, SIGPIPE);
    });
    StartServer();
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr, kCeilingMs));
    EXPECT_EQ(Call<int>(client, "IsBlocked"), 1);
}

TEST_F(RpcServerTest, CallbacksReachTheClientDuringAndAfterTheCall) {
    std::unique_ptr<RpcRemoteCallback> kept;
    table.Bind("Watch", [&](int count, RpcRemoteCallback callback) {
        for (int i = 0; i < count; ++i) {
            EXPECT_TRUE(callback(i, "during"));
        }
        kept = std::make_unique<RpcRemoteCallback>(callback);
    });
    StartServer();
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    std::mutex mutex;
    std::vector<std::string> heard;
    const auto hear = [&](int number, const std::string& when) {
        std::lock_guard<std::mutex> lock(mutex);
        heard.push_back(when + std::to_string(number));
    };
    ASSERT_TRUE(Call<void>(client, "Watch", 2, hear));
    EXPECT_TRUE((*kept)(7, "after"));
    EXPECT_TRUE(WaitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return heard.size() == 3;
    }));
    EXPECT_EQ(heard, (std::vector<std::string>{"during0", "during1", "after7"}));
}

TEST_F(RpcServerTest, ACallbackIsFalseOnceItsClientHasGone) {
    std::unique_ptr<RpcRemoteCallback> kept;
    table.Bind("Watch", [&](RpcRemoteCallback callback) {
        kept = std::make_unique<RpcRemoteCallback>(callback);
    });
    StartServer();
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    ASSERT_TRUE(Call<void>(client, "Watch", [](int) {}));
    EXPECT_TRUE((*kept)(1));
    client.Disconnect();
    EXPECT_TRUE(WaitUntil([&] { return !(*kept)(2); }));
    server.Stop();
    EXPECT_FALSE((*kept)(3));  // Also after the server.
}

TEST_F(RpcServerTest, ResultsAndCallbacksOfManyThreadsDoNotInterleave) {
    std::vector<RpcRemoteCallback> kept;
    table.Bind("Watch", [&](RpcRemoteCallback callback) { kept.push_back(callback); });
    StartServer();
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    std::atomic<int> heard{0};
    std::atomic<int> sent{0};
    const std::string text(9000, 't');
    ASSERT_TRUE(Call<void>(client, "Watch", [&](const std::string& got) {
        EXPECT_EQ(got, text);
        ++heard;
    }));
    constexpr int kThreads = 3;
    constexpr int kEach = 100;
    std::vector<std::thread> senders;
    for (int i = 0; i < kThreads; ++i) {
        senders.emplace_back([&] {
            for (int n = 0; n < kEach; ++n) {
                // What waits to be written stays far below the limit.
                ASSERT_TRUE(WaitUntil([&] { return sent - heard < 50; }));
                ++sent;
                ASSERT_TRUE(kept[0](text));
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(Call<std::string>(client, "Echo", "hello"), "hello");
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    EXPECT_TRUE(WaitUntil([&] { return heard == kThreads * kEach; }));
}

TEST_F(RpcServerTest, AFunctionMaySendACallbackWhoseFunctionCallsBackIn) {
    table.Bind("Watch", [](RpcRemoteCallback callback) { callback(4); });
    StartServer();
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    std::promise<int> answer;
    ASSERT_TRUE(Call<void>(client, "Watch", [&](int value) {
        answer.set_value(Call<int>(client, 10000, "Add", value, value).value_or(-1));
    }));
    EXPECT_EQ(answer.get_future().get(), 8);
}

// --- Two processes ---

TEST_F(RpcServerTest, AKilledClientIsForgottenAndTheNextOneIsServed) {
    StartServer();
    for (int i = 0; i < 10; ++i) {
        int ready[2];
        ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
        const pid_t child = fork();
        if (child == 0) {
            // Only system calls here: the parent has threads.
            RawClient client(directory.Path(), "S", 100 + i);
            client.Write(RawInvoke(1, "One", i).substr(0, static_cast<size_t>(4 * i)));
            (void)!write(ready[1], "r", 1);
            pause();
            _exit(0);
        }
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(ready[0]);
        close(ready[1]);
        EXPECT_TRUE(Serves());
    }
    EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 0; }));
    EXPECT_TRUE(
        WaitUntil([&] { return directory.Entries() == std::vector<std::string>{"SRoot"}; }));
}

// --- Load ---

TEST_F(RpcServerTest, TwoThreadsOnOneClientEachGetTheirOwnOfAHundredThousandResults) {
    StartServer();
    RpcClient client;
    ASSERT_TRUE(client.Connect("S", nullptr));
    constexpr int kCalls = 50000;
    std::atomic<int> wrong{0};
    const auto call = [&](int base) {
        for (int i = 0; i < kCalls; ++i) {
            if (Call<int>(client, "Add", base, i) != base + i) {
                ++wrong;
            }
        }
    };
    std::thread other(call, 1000000);
    call(0);
    other.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
