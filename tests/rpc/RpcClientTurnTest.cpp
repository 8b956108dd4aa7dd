// Who receives: a caller that waits for its result, another one, or the client's reader thread.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "kpl/tools/DebugLog.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TempDir.h"
#include "tests/support/ThreadState.h"

namespace {

using kpl::rpc::Call;
using kpl::rpc::RpcClient;
using kpl::test::LogCapture;
using kpl::test::ResultBytes;
using kpl::test::ScriptedServer;
using kpl::test::TempDir;
using kpl::test::WaitUntil;

int ThisThread() {
    return static_cast<int>(syscall(SYS_gettid));
}

// A client that is connected to a scripted server, both in this process.
class RpcClientTurnTest : public testing::Test {
protected:
    RpcClientTurnTest() {
        kpl::ipc::SetPipeRootPath(m_directory.c_str());
        server = std::make_unique<ScriptedServer>("Script");
        client = std::make_unique<RpcClient>();
        EXPECT_TRUE(client->Connect("Script", nullptr));
        EXPECT_TRUE(server->AwaitClient());
        reader = log.ThreadOf("RpcClient::ThreadProc(): .....\n");
    }
    ~RpcClientTurnTest() override {
        client.reset();
        server.reset();
        EXPECT_TRUE(m_directory.Entries().empty());
    }

    // -1 for a call that fails.
    int CallServer(int argument, long timeoutMs = -1) {
        EXPECT_TRUE(client->GetCommandMuxer()->Push(argument));
        const bool answered = client->Invoke("f", timeoutMs);
        return answered ? client->GetCommandDemuxer()->Get<int>(0) : -1;
    }

    // The thread that received the result `value` of call `id`; 0 if none has.
    int ReceiverOf(unsigned int id, int value) const {
        return log.ThreadOf("RpcClient::ThreadProc(): Demuxed ID(" + std::to_string(id) +
                            "), Return(" + std::to_string(value) + ").\n");
    }
    bool AwaitReceiverOf(unsigned int id, int value) const {
        return WaitUntil([&] { return ReceiverOf(id, value) != 0; });
    }

    // Who waits for a result when the reader's read ends without one, after a second, receives from
    // then on: that shows when its own read has ended like that. Returns the id of its call. The
    // server is this thread's meanwhile.
    unsigned int AwaitReceiver(const std::atomic<int>& caller) {
        const unsigned int id = server->ReadId();
        log.Clear();
        EXPECT_TRUE(WaitUntil([&] {
            const int thread = log.ThreadOf("RpcClient::ThreadProc(): Read command done(-2).\n");
            return thread != 0 && thread == caller;
        }));
        return id;
    }

    // A call on a thread of its own.
    std::future<int> CallElsewhere(std::atomic<int>* tid, long timeoutMs = -1) {
        return std::async(std::launch::async, [this, tid, timeoutMs] {
            *tid = ThisThread();
            return CallServer(6, timeoutMs);
        });
    }

    // A call of this thread, and who received its result.
    int ReceiverOfACallHere() {
        const std::atomic<int> here{ThisThread()};
        unsigned int id = 0;
        std::thread answer([&] {
            id = AwaitReceiver(here);
            EXPECT_TRUE(server->Write(ResultBytes(id, 5)));
        });
        EXPECT_EQ(CallServer(5), 5);
        answer.join();
        return ReceiverOf(id, 5);
    }

    static bool AwaitAsleep(const std::atomic<int>& tid) {
        return kpl::test::WaitUntilAsleep(tid, [] { return false; });
    }

    TempDir m_directory;
    LogCapture log;
    std::unique_ptr<ScriptedServer> server;
    std::unique_ptr<RpcClient> client;
    int reader = 0;
};

TEST_F(RpcClientTurnTest, ACallerReceivesItsResultItself) {
    EXPECT_EQ(ReceiverOfACallHere(), ThisThread());
}

TEST_F(RpcClientTurnTest, WhatComesBetweenCallsIsReceivedByTheReader) {
    ASSERT_EQ(ReceiverOfACallHere(), ThisThread());
    ASSERT_TRUE(server->Write(ResultBytes(4711, 1)));  // Nobody's, but it is received.
    ASSERT_TRUE(AwaitReceiverOf(4711, 1));
    EXPECT_EQ(ReceiverOf(4711, 1), reader);
}

TEST_F(RpcClientTurnTest, DuringALongCallTheReaderSleepsAndAfterItReceivesAgain) {
    std::atomic<int> caller{0};
    std::future<int> result = CallElsewhere(&caller);
    const unsigned int id = AwaitReceiver(caller);
    const std::atomic<int> readerTid{reader};
    EXPECT_TRUE(AwaitAsleep(readerTid));
    ASSERT_TRUE(server->Write(ResultBytes(id, 6)));
    EXPECT_EQ(result.get(), 6);
    EXPECT_EQ(ReceiverOf(id, 6), caller);
    ASSERT_TRUE(server->Write(ResultBytes(4711, 1)));
    ASSERT_TRUE(AwaitReceiverOf(4711, 1));
    EXPECT_EQ(ReceiverOf(4711, 1), reader);
}

TEST_F(RpcClientTurnTest, OneCallerReceivesForAllThatWait) {
    std::atomic<int> caller{0};
    std::future<int> result = CallElsewhere(&caller);
    const unsigned int id = AwaitReceiver(caller);
    unsigned int other = 0;
    std::thread answer([&] {
        other = server->ReadId();
        EXPECT_TRUE(server->Write(ResultBytes(other, 7)));
    });
    EXPECT_EQ(CallServer(1), 7);
    answer.join();
    EXPECT_EQ(ReceiverOf(other, 7), caller);
    ASSERT_TRUE(server->Write(ResultBytes(id, 6)));
    EXPECT_EQ(result.get(), 6);
}

TEST_F(RpcClientTurnTest, ACallerWhoseTimeIsOverPassesItsTurnOn) {
    // On a busy machine the time may be over before the other call has come: then once more.
    EXPECT_TRUE(WaitUntil(
        [&] {
            std::atomic<int> caller{0};
            std::future<int> result = CallElsewhere(&caller, 5000);
            (void)AwaitReceiver(caller);
            std::atomic<int> other{0};
            std::future<int> otherResult = CallElsewhere(&other);
            const unsigned int id = server->ReadId();
            EXPECT_EQ(result.get(), -1);
            EXPECT_TRUE(server->Write(ResultBytes(id, 6)));
            EXPECT_EQ(otherResult.get(), 6);
            return ReceiverOf(id, 6) == other;
        },
        60000));
}

TEST_F(RpcClientTurnTest, ATimedCallIsNeverEarlyToGiveUp) {
    for (const long limitMs : {1L, 30L, 1100L, 2200L}) {
        const kpl::test::Stopwatch watch;
        EXPECT_EQ(CallServer(1, limitMs), -1);
        EXPECT_GE(watch.ElapsedMs(), limitMs);
        ASSERT_NE(server->ReadCommand(), "");
    }
}

TEST_F(RpcClientTurnTest, AnUntimedCallerSleepsWhenTheServerHasGoneUntilDisconnect) {
    std::atomic<int> caller{0};
    std::future<int> result = CallElsewhere(&caller);
    (void)AwaitReceiver(caller);
    server->CloseConnection();
    EXPECT_TRUE(WaitUntil([&] { return !client->IsAlive(); }));
    EXPECT_TRUE(AwaitAsleep(caller));
    client->Disconnect();
    EXPECT_EQ(result.get(), -1);
}

TEST_F(RpcClientTurnTest, DisconnectEndsACallerThatReceives) {
    std::atomic<int> caller{0};
    std::future<int> result = CallElsewhere(&caller);
    (void)AwaitReceiver(caller);
    client->Disconnect();
    EXPECT_EQ(result.get(), -1);
}

TEST_F(RpcClientTurnTest, ACallerWhoseContextIsRemovedPassesItsTurnOn) {
    std::atomic<int> caller{0};
    std::future<int> result = CallElsewhere(&caller);
    (void)AwaitReceiver(caller);
    client->RemoveAllCachedCallContext();
    EXPECT_EQ(result.get(), -1);
    EXPECT_EQ(ReceiverOfACallHere(), ThisThread());
}

// Calls of every length, with and without limits, on threads that share one client: each gets its
// own result or its time is over, and none waits for ever.
TEST(RpcClientTurnStressTest, CallsThatOvertakeAndGiveUpLeaveTheOthersServed) {
    const TempDir directory;
    const LogCapture quiet(LogCapture::Debug::Off);
    kpl::ipc::SetPipeRootPath(directory.c_str());
    kpl::rpc::RpcFunctionTable table;
    kpl::os::CEvent never(false);
    table.Bind("Later", [&never](int value, int ms) {
        (void)never.Wait(ms);
        return value;
    });
    kpl::rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    kpl::rpc::RpcServer server;
    ASSERT_TRUE(server.Start("Later", nullptr));
    RpcClient client;
    ASSERT_TRUE(client.Connect("Later", nullptr));
    std::atomic<int> wrong{0};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 150; ++i) {
                const int value = t * 1000 + i;
                const int ms = (t + i) % 7 == 0 ? 2 : 0;
                // Every third thread gives up early, at every moment of its calls.
                const bool isTimed = t % 3 == 0;
                const std::optional<int> result =
                    Call<int>(client, isTimed ? i % 4 : -1, "Later", value, ms);
                wrong += result.has_value() ? (*result != value) : !isTimed;
                answered += result.has_value();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(answered, 4 * 150);
    client.Disconnect();
    server.Stop();
    kpl::rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
}

}  // namespace
