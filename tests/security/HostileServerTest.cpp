// What a server that means harm can do to a client: let its calls fail, and no more.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcClient.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::rpc;
using kpl::test::CallbackBytes;
using kpl::test::LogCapture;
using kpl::test::ResultBytes;
using kpl::test::ScriptedServer;
using kpl::test::WaitUntil;

// Before the server that is made in it.
struct PipeRoot : kpl::test::TempDir {
    PipeRoot() { kpl::ipc::SetPipeRootPath(c_str()); }
};

class HostileServerTest : public testing::Test {
protected:
    // Whether the client comes to know that it can get no results any more.
    bool IsGivenUp() {
        return WaitUntil([&] { return !client.IsAlive(); }, 20000);
    }

    PipeRoot root;
    LogCapture log{LogCapture::Debug::Off};
    ScriptedServer server{"S"};
    // What callbacks use lives longer than the client, whose destructor waits for them.
    kpl::os::CEvent release{false};
    std::atomic<int> ran{0};
    RpcClient client;
};

TEST_F(HostileServerTest, CallbacksWithoutEndDoNotFillTheClientsMemory) {
    ASSERT_TRUE(client.Connect("S", nullptr, 10000) && server.AwaitClient());
    std::thread caller([&] {
        (void)Call<int>(client, 20000, "Listen", [&](int, const char*) {
            ++ran;
            release.Wait(-1);
        });
    });
    const unsigned int id = server.ReadId();
    ASSERT_TRUE(server.Write(ResultBytes(id, 1)));
    caller.join();
    // 16 MiB may wait; the server offers twice that and more, until nobody takes it.
    const std::string callback = CallbackBytes(id, 0, 7, std::string(16000, 'x').c_str());
    std::atomic<bool> isOver{false};
    std::thread flood([&] {
        for (int i = 0; i < 2500 && client.IsAlive(); ++i) {
            (void)server.Write(callback);
        }
        isOver = true;
    });
    EXPECT_TRUE(IsGivenUp());
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(log.Contains("RpcClient: ????? Too many callbacks wait. Give the server up\n"));
    EXPECT_EQ(Call<int>(client, 20000, "Any"), std::nullopt);
    client.Disconnect();
    flood.join();
    release.Set();
}

TEST_F(HostileServerTest, FewerCallbacksThanThatAllRun) {
    ASSERT_TRUE(client.Connect("S", nullptr, 10000) && server.AwaitClient());
    std::thread caller(
        [&] { (void)Call<int>(client, 20000, "Listen", [&](int, const char*) { ++ran; }); });
    const unsigned int id = server.ReadId();
    ASSERT_TRUE(server.Write(ResultBytes(id, 1)));
    caller.join();
    const std::string callback = CallbackBytes(id, 0, 7, std::string(16000, 'x').c_str());
    for (int i = 0; i < 2500; ++i) {
        ASSERT_TRUE(server.Write(callback));
        // 40 MB in all, of which never more than 10 wait.
        ASSERT_TRUE(WaitUntil([&] { return i - ran < 600; }));
    }
    EXPECT_TRUE(WaitUntil([&] { return ran == 2500; }));
    EXPECT_TRUE(client.IsAlive());
}

TEST_F(HostileServerTest, AResultLargerThanACommandEndsTheReaderAndTheCall) {
    ASSERT_TRUE(client.Connect("S", nullptr, 10000) && server.AwaitClient());
    std::optional<int> answer = 1;
    std::thread caller([&] { answer = Call<int>(client, 60000, "Any"); });
    const unsigned int id = server.ReadId();
    std::string result = ResultBytes(id, 1);
    const int total = 0x7fffffff;
    result.replace(8, 4, reinterpret_cast<const char*>(&total), 4);
    ASSERT_TRUE(server.Write(result + std::string(20000, 'x')));
    caller.join();
    EXPECT_EQ(answer, std::nullopt);
    EXPECT_TRUE(IsGivenUp());
}

TEST_F(HostileServerTest, ASilentServerCostsACallItsTimeLimit) {
    ASSERT_TRUE(client.Connect("S", nullptr, 10000) && server.AwaitClient());
    EXPECT_EQ(Call<int>(client, 50, "Any"), std::nullopt);
    EXPECT_TRUE(client.IsAlive());
}

TEST_F(HostileServerTest, ResultsAndCallbacksOfOtherCallsReachNobody) {
    ASSERT_TRUE(client.Connect("S", nullptr, 10000) && server.AwaitClient());
    std::optional<int> answer;
    std::thread caller([&] { answer = Call<int>(client, 60000, "Listen", [&](int) { ++ran; }); });
    const unsigned int id = server.ReadId();
    ASSERT_TRUE(server.Write(ResultBytes(id + 1, 9) + CallbackBytes(id + 1, 0, 9) +
                             CallbackBytes(id, 1, 9) + CallbackBytes(id, -1, 9) +
                             ResultBytes(id, 4) + CallbackBytes(id, 0, 9)));
    caller.join();
    EXPECT_EQ(answer, 4);
    EXPECT_TRUE(WaitUntil([&] { return ran == 1; }));
}

}  // namespace
