// What calls allocate once a connection is warm, client and server together: both run here.
#include <gtest/gtest.h>

#include <string>

#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcClient.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/rpc/AllocationCounter.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::rpc;
using kpl::test::allocations;

constexpr int kCalls = 1000;

class CallAllocationTest : public testing::Test {
protected:
    CallAllocationTest() {
        kpl::ipc::SetPipeRootPath(m_directory.c_str());
        table.Bind("Add", [](int a, int b) { return a + b; });
        table.Bind("Echo", [](const char* text) { return text; });
        table.Bind("EchoString", [](const std::string& text) { return text; });
        table.Bind("Watch", [](RpcRemoteCallback callback, int value) { callback(value); });
        RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
        EXPECT_TRUE(m_server.Start("Calculator", nullptr));
        EXPECT_TRUE(client.Connect("Calculator", nullptr));
    }
    ~CallAllocationTest() override {
        client.Disconnect();
        m_server.Stop();
        RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    }

    // How much `kCalls` of those calls allocate after a warm-up; each says whether it worked.
    template <class OneCall>
    static int Count(OneCall call) {
        bool worked = true;
        for (int i = 0; i < 100; ++i) {
            worked = call(i) && worked;
        }
        const int before = allocations;
        for (int i = 0; i < kCalls; ++i) {
            worked = call(i) && worked;
        }
        const int count = allocations - before;
        EXPECT_TRUE(worked);
        return count;
    }

    RpcFunctionTable table;
    RpcClient client;

private:
    kpl::test::TempDir m_directory;
    RpcServer m_server;
};

TEST_F(CallAllocationTest, ACallWithNumbersAllocatesNothing) {
    EXPECT_EQ(Count([this](int i) { return Call<int>(client, "Add", i, 1) == i + 1; }), 0);
}

TEST_F(CallAllocationTest, ACallWithoutATimeLimitAllocatesNothing) {
    EXPECT_EQ(Count([this](int i) { return Call<int>(client, -1, "Add", i, 1) == i + 1; }), 0);
}

TEST_F(CallAllocationTest, ACallByHandAllocatesNothing) {
    EXPECT_EQ(Count([this](int i) {
                  RpcCommandMuxer* const muxer = client.GetCommandMuxer();
                  return muxer->Push(i) && muxer->Push(1) && client.Invoke("Add") &&
                         client.GetCommandDemuxer()->Get<int>(0) == i + 1;
              }),
              0);
}

TEST_F(CallAllocationTest, AStringThatStaysInPlaceAllocatesNothing) {
    const std::string text(200, 't');
    EXPECT_EQ(Count([&](int) {
                  const auto got = Call<const char*>(client, "Echo", text);
                  return got && text == *got;
              }),
              0);
}

// The function's argument and its result, and the caller's result.
TEST_F(CallAllocationTest, AStringOfItsOwnAllocatesItselfAlone) {
    const std::string text(200, 't');
    const int count =
        Count([&](int) { return Call<std::string>(client, "EchoString", text) == text; });
    EXPECT_LE(count, 3 * kCalls);
    EXPECT_GT(count, 0);
}

// For the call: the callable's copy and the list of those, here and with the client; the list of
// the call's callbacks, its entries, and its place among all calls. For the callback: its copy, and
// its place in the queue.
TEST_F(CallAllocationTest, ACallWithACallbackAllocatesABoundedNumberOfTimes) {
    kpl::os::CEvent heard(false);
    const int count = Count([&](int i) {
        heard.Reset();
        return Call<void>(
                   client, "Watch", [&heard](int) { heard.Set(); }, i) &&
               heard.Wait(10000);
    });
    EXPECT_LE(count, 8 * kCalls);
    EXPECT_GT(count, 0);
}

}  // namespace
