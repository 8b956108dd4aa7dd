#include "kpl/rpc/RpcCall.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <atomic>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::rpc;
using kpl::os::CEvent;
using kpl::test::CallbackBytes;
using kpl::test::LogCapture;
using kpl::test::ResultBytes;
using kpl::test::ScriptedServer;
using kpl::test::Stopwatch;
using kpl::test::WaitUntil;

// A directory of FIFOs that must be empty at the end, and a quiet log.
class CallTest : public testing::Test {
protected:
    CallTest() : log(LogCapture::Debug::Off) { kpl::ipc::SetPipeRootPath(m_directory.c_str()); }
    ~CallTest() override { EXPECT_TRUE(m_directory.Entries().empty()); }

    LogCapture log;

private:
    kpl::test::TempDir m_directory;
};

// A client of a server with a function table. A test binds its functions, then connects.
class RpcCallTest : public CallTest {
protected:
    RpcCallTest() {
        table.Bind("Add", [](int a, int b) { return a + b; });
        table.Bind("Refuse", [](int, int, int) {});
    }
    ~RpcCallTest() override {
        client.Disconnect();
        server.Stop();
        RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    }

    void Connect() {
        ASSERT_TRUE(RpcExecutorManager::GetInstance()->RegisterExecutor(&table));
        ASSERT_TRUE(server.Start("Calculator", nullptr));
        ASSERT_TRUE(client.Connect("Calculator", nullptr));
    }

    RpcFunctionTable table;
    RpcServer server;
    RpcClient client;
};

// A client of a server whose every byte is the test's.
class ScriptedCallTest : public CallTest {
protected:
    ScriptedCallTest() {
        EXPECT_TRUE(client.Connect("Script", nullptr));
        EXPECT_TRUE(server->AwaitClient());
    }
    ~ScriptedCallTest() override {
        client.Disconnect();
        server.reset();
    }

    std::unique_ptr<ScriptedServer> server = std::make_unique<ScriptedServer>("Script");
    RpcClient client;
};

// --- Results ---

TEST_F(RpcCallTest, AddsTwoNumbers) {
    Connect();
    EXPECT_EQ(Call<int>(client, "Add", 19, 23), 42);
}

template <class T>
class ScalarCallTest : public RpcCallTest {};

using Scalars = testing::Types<bool, int, long, char, unsigned char, long long, unsigned long long,
                               short, unsigned short, unsigned int, unsigned long, double, float>;
TYPED_TEST_SUITE(ScalarCallTest, Scalars);

TYPED_TEST(ScalarCallTest, GoesAndComesBack) {
    using Wire = typename ParamTypeTrait<TypeParam>::WireType;
    this->table.Bind("Echo", [](TypeParam value) { return value; });
    this->Connect();
    for (const Wire wire :
         {std::numeric_limits<Wire>::lowest(), std::numeric_limits<Wire>::max()}) {
        const auto value = static_cast<TypeParam>(wire);
        EXPECT_EQ(Call<TypeParam>(this->client, "Echo", value), value);
    }
}

TEST_F(RpcCallTest, A64BitValueGoesAsALongLong) {
    table.Bind("Half", [](long long value) { return value / 2; });
    Connect();
    const int64_t value = int64_t{1} << 60;
    EXPECT_EQ(Call<long long>(client, "Half", static_cast<long long>(value)), value / 2);
}

TEST_F(RpcCallTest, ALongThatDoesNotFitIn4BytesIsNotSent) {
    if (sizeof(long) == 4) {
        GTEST_SKIP() << "every long has 4 bytes here";
    }
    std::atomic<int> called{0};
    table.Bind("f", [&called](long) { ++called; });
    Connect();
    EXPECT_FALSE(Call<void>(client, "f", std::numeric_limits<long>::max()));
    EXPECT_EQ(called, 0);
    EXPECT_TRUE(Call<void>(client, "f", 1L));
    EXPECT_EQ(called, 1);
}

TEST_F(RpcCallTest, StringsOfEveryKindGo) {
    table.Bind("Echo", [](const std::string& text) { return "<" + text + ">"; });
    Connect();
    const char array[] = "array";
    char writable[] = "writable";
    char* const pointer = writable;
    const char* const constPointer = "pointer";
    const std::string string(3000, 's');
    EXPECT_EQ(Call<std::string>(client, "Echo", "literal"), "<literal>");
    EXPECT_EQ(Call<std::string>(client, "Echo", array), "<array>");
    EXPECT_EQ(Call<std::string>(client, "Echo", writable), "<writable>");
    EXPECT_EQ(Call<std::string>(client, "Echo", pointer), "<writable>");
    EXPECT_EQ(Call<std::string>(client, "Echo", constPointer), "<pointer>");
    EXPECT_EQ(Call<std::string>(client, "Echo", string), "<" + string + ">");
    EXPECT_EQ(Call<std::string>(client, "Echo", std::string()), "<>");
    EXPECT_EQ(Call<std::string>(client, "Echo", std::string("cut\0off", 7)), "<cut>");
}

TEST_F(RpcCallTest, AStringResultComesAsAPointerThatIsGoodUntilTheNextCall) {
    table.Bind("Echo", [](const char* text) { return text; });
    Connect();
    const std::optional<const char*> text = Call<const char*>(client, "Echo", "text");
    ASSERT_TRUE(text);
    EXPECT_STREQ(*text, "text");
    std::thread([this] { EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3); }).join();
    EXPECT_STREQ(*text, "text");  // Another thread's call does not touch it,
    std::thread([this] { client.Disconnect(); }).join();
    EXPECT_STREQ(*text, "text");  // nor does its end of the connection.
}

TEST_F(RpcCallTest, ArraysGoAndComeBack) {
    table.Bind("Echo", [](RpcArray array) { return array; });
    Connect();
    int numbers[] = {3, 1, 2};
    const auto got = Call<RpcArray>(client, "Echo", RpcArray(numbers, 3, sizeof(numbers)));
    ASSERT_TRUE(got);
    EXPECT_EQ(got->GetElementCounts(), 3);
    ASSERT_EQ(got->GetTotalSizeInBytes(), static_cast<int>(sizeof(numbers)));
    EXPECT_EQ(memcmp(got->GetData(), numbers, sizeof(numbers)), 0);
}

TEST_F(RpcCallTest, ListsGoAndComeBack) {
    table.Bind("Echo", [](EpgDataList list) { return list; });
    Connect();
    EpgData records[2] = {};
    records[1].text[2] = "News";
    records[1].tail[5] = 9;
    const auto got = Call<EpgDataList>(client, "Echo", EpgDataList{2, records});
    ASSERT_TRUE(got);
    ASSERT_EQ(got->count, 2);
    EXPECT_STREQ(got->items[1].text[2], "News");
    EXPECT_EQ(+got->items[1].tail[5], 9U);
    EXPECT_EQ(Call<EpgDataList>(client, "Echo", EpgDataList())->count, 0);
}

TEST_F(RpcCallTest, ATupleIsTheValueAndTheOutValues) {
    table.Bind("Split", [](const std::string& text) {
        return std::make_tuple(true, text.substr(0, 1), text.substr(1));
    });
    Connect();
    using Parts = std::tuple<bool, std::string, std::string>;
    EXPECT_EQ((Call<Parts>(client, "Split", "abc")), Parts(true, "a", "bc"));
    EXPECT_EQ(Call<bool>(client, "Split", "abc"), true);  // Out-values may be left out.
    EXPECT_EQ((Call<std::tuple<bool, std::string>>(client, "Split", "x")),
              (std::tuple<bool, std::string>(true, "x")));
}

TEST_F(RpcCallTest, ACallWithoutAResultSaysWhetherItWasAnswered) {
    table.Bind("f", [] {});
    Connect();
    EXPECT_TRUE(Call<void>(client, "f"));
    EXPECT_TRUE(Call<void>(client, "Add", 1, 2));
    EXPECT_FALSE(Call<void>(client, "Refuse"));
    EXPECT_FALSE(Call<void>(client, "unknown"));
}

// --- Nothing ---

TEST_F(RpcCallTest, NothingWithoutAConnection) {
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), std::nullopt);
    EXPECT_EQ(Call<int>(client, -1, "Add", 1, 2), std::nullopt);
    EXPECT_FALSE(Call<void>(client, "Add", 1, 2));
    EXPECT_EQ((Call<std::tuple<int, int>>(client, "Add", 1, 2)), std::nullopt);
    Connect();
    client.Disconnect();
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), std::nullopt);
}

TEST_F(RpcCallTest, NothingWhenTheServerRefuses) {
    Connect();
    EXPECT_EQ(Call<int>(client, "Add", 1), std::nullopt);
    EXPECT_EQ(Call<int>(client, "Add", 1, "2"), std::nullopt);
    EXPECT_EQ(Call<int>(client, "unknown", 1, 2), std::nullopt);
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
}

TEST_F(RpcCallTest, NothingWhenTheResultHasAnotherType) {
    Connect();
    EXPECT_EQ(Call<std::string>(client, "Add", 1, 2), std::nullopt);
    EXPECT_EQ(Call<bool>(client, "Add", 1, 2), std::nullopt);
    EXPECT_EQ(Call<long>(client, "Add", 1, 2), std::nullopt);  // Another code.
    EXPECT_FALSE(Call<RpcArray>(client, "Add", 1, 2));
    EXPECT_EQ((Call<std::tuple<int, int>>(client, "Add", 1, 2)), std::nullopt);  // One too few.
}

TEST_F(RpcCallTest, NothingForANullOrEmptyName) {
    Connect();
    const char* const none = nullptr;
    EXPECT_EQ(Call<int>(client, none, 1, 2), std::nullopt);
    EXPECT_EQ(Call<int>(client, "", 1, 2), std::nullopt);
    EXPECT_EQ(Call<int>(client, 1000, none, 1, 2), std::nullopt);
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
}

TEST_F(RpcCallTest, ArgumentsMayFill16384BytesAndNotOneMore) {
    std::atomic<int> called{0};
    table.Bind("Size", [&called](const std::string& text) {
        ++called;
        return static_cast<int>(text.size());
    });
    Connect();
    constexpr size_t kLongest = 16384 - 16 - 8 - 1 - 8 - 5;  // Behind it stands the name.
    EXPECT_EQ(Call<int>(client, "Size", std::string(kLongest + 1, 'x')), std::nullopt);
    EXPECT_EQ(Call<int>(client, "Size", std::string(20000, 'x')), std::nullopt);
    EXPECT_EQ(called, 0);
    EXPECT_EQ(Call<int>(client, "Size", std::string(kLongest, 'x')), static_cast<int>(kLongest));
}

TEST_F(RpcCallTest, ACallWhoseConnectionIsRenewedWhileItsArgumentsAreBuiltIsSentWhole) {
    // Copied while the arguments are pushed, with arguments before and behind it.
    struct Disconnecting {
        explicit Disconnecting(RpcClient* itsClient) : client(itsClient) {}
        Disconnecting(const Disconnecting& other) : client(other.client) {
            std::thread([this] {
                client->Disconnect();
                EXPECT_TRUE(client->Connect("Calculator", nullptr));
            }).join();
        }
        void operator()(int) const {}
        RpcClient* client;
    };
    std::atomic<int> called{0};
    table.Bind("Watch", [&called](int, RpcRemoteCallback, int) { ++called; });
    table.Bind("None", [&called] { ++called; });
    Connect();
    EXPECT_TRUE(Call<void>(client, "Watch", 1, Disconnecting(&client), 2));
    EXPECT_EQ(called, 1);
    EXPECT_FALSE(Call<void>(client, "None", Disconnecting(&client)));  // Its argument arrives.
    EXPECT_EQ(called, 1);
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
}

TEST_F(ScriptedCallTest, NothingWhenNoAnswerComesInTime) {
    const Stopwatch watch;
    EXPECT_EQ(Call<int>(client, 50, "slow"), std::nullopt);
    EXPECT_GE(watch.ElapsedMs(), 50);
    EXPECT_LT(watch.ElapsedMs(), kpl::test::kCeilingMs);
    // The late answer is not taken for that of the next call.
    const unsigned int late = server->ReadId();
    std::thread answer([&] {
        const unsigned int id = server->ReadId();
        EXPECT_TRUE(server->Write(ResultBytes(late, 1) + ResultBytes(id, 2)));
    });
    EXPECT_EQ(Call<int>(client, "next"), 2);
    answer.join();
}

TEST_F(ScriptedCallTest, NothingAtOnceWhenTheServerGoes) {
    const Stopwatch watch;
    std::thread leave([this] {
        EXPECT_NE(server->ReadCommand(), "");
        server->CloseConnection();
    });
    EXPECT_EQ(Call<int>(client, "f"), std::nullopt);
    leave.join();
    EXPECT_EQ(Call<int>(client, "f"), std::nullopt);
    EXPECT_LT(watch.ElapsedMs(), kpl::test::kCeilingMs);  // Each may wait 25 seconds.
}

TEST_F(RpcCallTest, NothingAtOnceWhenTheServerStops) {
    Connect();
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
    const Stopwatch watch;
    server.Stop();
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), std::nullopt);
    EXPECT_LT(watch.ElapsedMs(), kpl::test::kCeilingMs);
}

TEST_F(ScriptedCallTest, WithoutATimeLimitItWaitsUntilDisconnect) {
    auto result = std::async(std::launch::async, [this] { return Call<int>(client, -1, "f"); });
    EXPECT_NE(server->ReadCommand(), "");
    server->CloseConnection();
    EXPECT_TRUE(WaitUntil([this] { return !client.IsAlive(); }));
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    client.Disconnect();
    EXPECT_EQ(result.get(), std::nullopt);
}

TEST_F(RpcCallTest, TheTimeLimitIsAnyIntegerInFrontOfTheName) {
    Connect();
    EXPECT_EQ(Call<int>(client, 10000, "Add", 1, 2), 3);
    EXPECT_EQ(Call<int>(client, 10000L, "Add", 1, 2), 3);
    EXPECT_EQ(Call<int>(client, 10000U, "Add", 1, 2), 3);
    EXPECT_EQ(Call<int>(client, int64_t{10000}, "Add", 1, 2), 3);
    EXPECT_EQ(Call<int>(client, short{10000}, "Add", 1, 2), 3);
    EXPECT_EQ(Call<int>(client, -1, "Add", 1, 2), 3);
    EXPECT_TRUE(Call<void>(client, -1L, "Add", 1, 2));
    EXPECT_EQ(Call<int>(client, std::numeric_limits<long>::max(), "Add", 1, 2), 3);
    EXPECT_EQ(Call<int>(client, kDefaultCallTimeoutMs, "Add", 1, 2), 3);
}

TEST_F(ScriptedCallTest, ATimeLimitOf0IsNotTakenForTheName) {
    EXPECT_EQ(Call<int>(client, 0, "f", 1), std::nullopt);
    std::thread answer([this] {
        EXPECT_NE(server->ReadCommand(), "");  // It was sent, and not waited for.
        EXPECT_TRUE(server->Write(ResultBytes(server->ReadId(), 5)));
    });
    EXPECT_EQ(Call<int>(client, "f"), 5);
    answer.join();
}

// --- What a failed call leaves behind ---

TEST_F(RpcCallTest, AFailedCallLeavesNoCommandBegun) {
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), std::nullopt);  // Not connected.
    EXPECT_FALSE(client.GetCommandMuxer()->IsValidCommand());
    Connect();
    EXPECT_EQ(Call<int>(client, "Add", 1, 2, std::string(20000, 'x')), std::nullopt);
    EXPECT_FALSE(client.GetCommandMuxer()->IsValidCommand());
    EXPECT_EQ(Call<int>(client, "", 1, 2), std::nullopt);
    EXPECT_FALSE(client.GetCommandMuxer()->IsValidCommand());
    ASSERT_TRUE(client.GetCommandMuxer()->Push(20) && client.GetCommandMuxer()->Push(3));
    ASSERT_TRUE(client.Invoke("Add"));
    EXPECT_EQ(client.GetCommandDemuxer()->Get<int>(0), 23);
}

TEST_F(RpcCallTest, ACommandThatWasBegunByHandIsDiscarded) {
    Connect();
    ASSERT_TRUE(client.GetCommandMuxer()->Push("half built"));
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
}

// --- Callbacks ---

TEST_F(RpcCallTest, ACallbackGetsItsArgumentsByTheirTypes) {
    table.Bind("Watch", [](RpcRemoteCallback callback) {
        char block[] = {7, 8};
        EpgData record = {};
        record.text[0] = "News";
        EXPECT_TRUE(callback(true, 'c', 3, 4LL, 2.5, std::string("string"), "pointer",
                             RpcArray(block, 1, 2), EpgDataList{1, &record}));
    });
    Connect();
    std::promise<std::string> heard;
    ASSERT_TRUE(Call<void>(
        client, "Watch",
        [&heard](bool a, char b, int c, long long d, double e, const std::string& f, const char* g,
                 RpcArray h, const EpgDataList& i) {
            EXPECT_EQ(std::make_tuple(a, b, c, d, e), std::make_tuple(true, 'c', 3, 4LL, 2.5));
            EXPECT_EQ(f, "string");
            EXPECT_STREQ(g, "pointer");
            EXPECT_EQ(h.GetTotalSizeInBytes(), 2);
            heard.set_value(i.items[0].text[0].operator const char*());
        }));
    EXPECT_EQ(heard.get_future().get(), "News");
}

TEST_F(RpcCallTest, CallbacksOfOneCallAreToldApart) {
    table.Bind("Watch", [](int, RpcRemoteCallback first, const char*, RpcRemoteCallback second) {
        EXPECT_TRUE(second(2));
        EXPECT_TRUE(first("one"));
    });
    Connect();
    std::promise<std::string> one;
    std::promise<int> two;
    ASSERT_TRUE(Call<void>(
        client, "Watch", 5, [&one](const std::string& text) { one.set_value(text); }, "between",
        [&two](int value) { two.set_value(value); }));
    EXPECT_EQ(one.get_future().get(), "one");
    EXPECT_EQ(two.get_future().get(), 2);
}

std::atomic<int> lastPlainValue{0};

void PlainCallback(int value) {
    lastPlainValue = value;
}

TEST_F(RpcCallTest, FunctionsAndStdFunctionsAreCallbacksToo) {
    table.Bind("Watch", [](RpcRemoteCallback callback, int value) { callback(value); });
    Connect();
    ASSERT_TRUE(Call<void>(client, "Watch", PlainCallback, 3));
    EXPECT_TRUE(WaitUntil([] { return lastPlainValue == 3; }));
    ASSERT_TRUE(Call<void>(client, "Watch", &PlainCallback, 4));
    EXPECT_TRUE(WaitUntil([] { return lastPlainValue == 4; }));
    std::promise<int> heard;
    const std::function<void(int)> function = [&heard](int value) { heard.set_value(value); };
    ASSERT_TRUE(Call<void>(client, "Watch", function, 5));
    EXPECT_EQ(heard.get_future().get(), 5);
}

TEST_F(RpcCallTest, ACallbacksStateLastsFromOneToTheNext) {
    table.Bind("Watch", [](RpcRemoteCallback callback) {
        for (int i = 1; i <= 4; ++i) {
            callback(i);
        }
    });
    Connect();
    std::promise<int> sum;
    ASSERT_TRUE(Call<void>(client, "Watch", [&result = sum, n = 0](int value) mutable {
        n += value;
        if (value == 4) {
            result.set_value(n);
        }
    }));
    EXPECT_EQ(sum.get_future().get(), 10);
}

TEST_F(ScriptedCallTest, ArgumentsThatDoNotFitTheCallbackAreReportedAndItDoesNotRun) {
    unsigned int id = 0;
    std::thread answer([&] {
        id = server->ReadId();
        EXPECT_TRUE(server->Write(ResultBytes(id, 0)));
    });
    std::vector<int> heard;
    CEvent called(false);
    ASSERT_TRUE(Call<void>(client, "Watch", [&](int value) {
        heard.push_back(value);
        called.Set();
    }));
    answer.join();
    log.Clear();
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0) + CallbackBytes(id, 0, "text") +
                              CallbackBytes(id, 0, 1, 2) + CallbackBytes(id, 0, 9)));
    ASSERT_TRUE(called.Wait(10000));
    EXPECT_EQ(heard, std::vector<int>{9});
    EXPECT_EQ(log.Messages(), std::vector<std::string>(
                                  3, "RpcCall: ????? The arguments of a callback do not fit. ID(" +
                                         std::to_string(id) + ")\n"));
}

TEST_F(RpcCallTest, ACallbackLivesAsLongAsTheConnection) {
    table.Bind("Watch", [](RpcRemoteCallback) {});
    Connect();
    auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> life = owned;
    ASSERT_TRUE(Call<void>(client, "Watch", [owned](int) {}));
    owned.reset();
    EXPECT_FALSE(life.expired());
    EXPECT_EQ(Call<int>(client, "Add", 1, 2), 3);
    EXPECT_FALSE(life.expired());
    client.Disconnect();
    EXPECT_TRUE(life.expired());
}

TEST_F(RpcCallTest, ACallbackThatRunsWhileTheConnectionEndsLivesUntilItReturns) {
    table.Bind("Watch", [](RpcRemoteCallback callback) { callback(1); });
    Connect();
    CEvent entered(false);
    CEvent go(false);
    std::promise<int> seen;
    auto owned = std::make_shared<int>(5);
    const std::weak_ptr<int> life = owned;
    ASSERT_TRUE(Call<void>(client, "Watch", [&, owned](int) {
        entered.Set();
        go.Wait(-1);
        seen.set_value(*owned);
    }));
    owned.reset();
    ASSERT_TRUE(entered.Wait(10000));
    client.Disconnect();
    EXPECT_FALSE(life.expired());
    go.Set();
    EXPECT_EQ(seen.get_future().get(), 5);
    EXPECT_TRUE(WaitUntil([&life] { return life.expired(); }));
}

TEST_F(ScriptedCallTest, ACallbackOfACallThatFailsIsDroppedAtOnce) {
    auto owned = std::make_shared<int>(1);
    const auto watch = [owned](int) {};
    EXPECT_EQ(owned.use_count(), 2);
    EXPECT_FALSE(Call<void>(client, 20, "Watch", watch));  // No answer.
    EXPECT_EQ(owned.use_count(), 2);
    EXPECT_FALSE(Call<void>(client, "Watch", watch, std::string(20000, 'x')));  // Too large.
    EXPECT_EQ(owned.use_count(), 2);
    EXPECT_FALSE(Call<void>(client, "", watch));
    EXPECT_EQ(owned.use_count(), 2);
    // The server has seen the first one: what it sends finds nobody.
    const unsigned int id = server->ReadId();
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 1)));
    EXPECT_TRUE(
        log.WaitFor("RpcClient::CallbackHandler::Execute(): ????? Cannot find callback list! ID(" +
                    std::to_string(id) + "). Skip this callback\n"));
    client.Disconnect();
    EXPECT_FALSE(Call<void>(client, "Watch", watch));  // Not connected.
    EXPECT_EQ(owned.use_count(), 2);
}

TEST_F(RpcCallTest, ACallbackMayCallOnTheSameClient) {
    table.Bind("Watch", [](RpcRemoteCallback callback) { callback(4); });
    Connect();
    std::promise<std::optional<int>> sum;
    ASSERT_TRUE(Call<void>(client, "Watch", [&](int value) {
        // With a callback of its own, which comes after this one.
        EXPECT_TRUE(Call<void>(client, "Watch",
                               [&sum, value](int inner) { sum.set_value(value * 10 + inner); }));
        EXPECT_EQ(Call<int>(client, "Add", value, 1), 5);
    }));
    EXPECT_EQ(sum.get_future().get(), 44);
}

TEST_F(ScriptedCallTest, ACallbackMayEndTheConnection) {
    unsigned int id = 0;
    std::thread answer([&] {
        id = server->ReadId();
        EXPECT_TRUE(server->Write(ResultBytes(id, 0)));
    });
    CEvent done(false);
    EXPECT_TRUE(Call<void>(client, "Watch", [&] {
        client.Disconnect();
        done.Set();
    }));
    answer.join();
    // Only now: a connection that ends while its call returns may cost the call its result.
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0)));
    EXPECT_TRUE(done.Wait(10000));
    EXPECT_EQ(client.GetServerName(), nullptr);
}

TEST_F(RpcCallTest, AContextPushedByHandIsACallbackToo) {
    table.Bind("Watch", [](RpcRemoteCallback callback) { callback(6); });
    Connect();
    std::promise<int> heard;
    const RpcCallbackContext context(&heard, [](void* proxy, RpcCommandDemuxer* command) {
        static_cast<std::promise<int>*>(proxy)->set_value(command->Get<int>(1));
    });
    ASSERT_TRUE(Call<void>(client, "Watch", context));
    EXPECT_EQ(heard.get_future().get(), 6);
}

// --- Many threads ---

TEST_F(RpcCallTest, ManyThreadsEachGetTheirOwnResults) {
    table.Bind("Echo", [](const std::string& text) { return text; });
    Connect();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 0; i < 100; ++i) {
                EXPECT_EQ(Call<int>(client, "Add", 1000 * thread, i), 1000 * thread + i);
                const std::string text(static_cast<size_t>(40 * i),
                                       static_cast<char>('a' + thread));
                EXPECT_EQ(Call<std::string>(client, "Echo", text), text);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(RpcCallTest, ThreadsThatCallWhileTheConnectionComesAndGoesGetTheirResultsOrNothing) {
    table.Bind("Watch", [](RpcRemoteCallback callback, int value) {
        callback(value);
        return value;
    });
    Connect();
    std::atomic<bool> stop{false};
    std::atomic<int> answered{0};
    // Shared: a callback may still run when the test has ended.
    const auto wrong = std::make_shared<std::atomic<int>>(0);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; !stop; ++i) {
                const auto sum = Call<int>(client, "Add", i, 1);
                const auto same = Call<int>(
                    client, "Watch", [wrong, i](int value) { *wrong += value == i ? 0 : 1; }, i);
                *wrong += sum.value_or(i + 1) == i + 1 ? 0 : 1;
                *wrong += same.value_or(i) == i ? 0 : 1;
                answered += sum.has_value() ? 1 : 0;
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        const int before = answered;
        EXPECT_TRUE(WaitUntil([&] { return answered > before; }));
        client.Disconnect();
        EXPECT_TRUE(client.Connect("Calculator", nullptr));
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(*wrong, 0);
}

}  // namespace
