#include "kpl/rpc/RpcFunctionTable.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "tests/rpc/CommandBytes.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace kpl::rpc;
using kpl::test::Param;
using kpl::test::Text;
using kpl::test::Words;

constexpr unsigned int kId = 77;

// Counts its references and keeps what is sent, until the client is said to have gone.
class FakeCallback : public RpcCallback {
public:
    bool Send(RpcCommandMuxer* muxer, unsigned int id) override {
        if (gone) {
            return false;
        }
        const int size = muxer->Finish(RPC_COMMAND_CALLBACK, nullptr, id);
        sent.emplace_back(muxer->GetBuffer(), static_cast<size_t>(size));
        return true;
    }
    void AddRef() override { ++references; }
    void Release() override { --references; }

    int references = 0;
    bool gone = false;
    std::vector<std::string> sent;
};

// A callback command whose first parameter is the callback's number.
template <class... Args>
std::string CallbackCommand(int number, Args... args) {
    char buffer[16384];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    const bool pushed = muxer.Push(number) && (muxer.Push(args) && ...);
    EXPECT_TRUE(pushed);
    return std::string(buffer,
                       static_cast<size_t>(muxer.Finish(RPC_COMMAND_CALLBACK, nullptr, kId)));
}

class RpcFunctionTableTest : public testing::Test {
protected:
    RpcFunctionTableTest() : log(kpl::test::LogCapture::Debug::Off) {}

    // Executes the command that was pushed into `command` as a call of that function.
    RpcCommandMuxer* Execute(const char* name, RpcCallback* callback = nullptr) {
        RpcCommandDemuxer demuxer(m_buffer, command.Finish(RPC_COMMAND_INVOKE, name, kId));
        EXPECT_TRUE(demuxer.IsValidCommand());
        return table.Execute(&demuxer, callback);
    }

    // The same with these arguments. What it returns is good until the next call.
    template <class... Args>
    RpcCommandDemuxer Call(const char* name, Args... args) {
        return CallWith(nullptr, name, args...);
    }
    template <class... Args>
    RpcCommandDemuxer CallWith(RpcCallback* callback, const char* name, Args... args) {
        const bool pushed = (command.Push(args) && ...);
        EXPECT_TRUE(pushed);
        RpcCommandMuxer* const result = Execute(name, callback);
        if (result == nullptr) {
            ADD_FAILURE() << "no result of " << name;
            return RpcCommandDemuxer(nullptr, 0);
        }
        return RpcCommandDemuxer(result->GetBuffer(), result->GetFinishedSize());
    }

    // Executes and expects the result without parameters, and one message.
    void ExpectRefused(const char* name, const std::string& why) {
        log.Clear();
        RpcCommandMuxer* const result = Execute(name);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(kpl::test::Finished(*result), Words({RPC_COMMAND_RESULT, kId, 16, 0}));
        EXPECT_EQ(log.Messages(),
                  std::vector<std::string>{"RpcFunctionTable::Execute(): ????? " +
                                           std::string(name) + "(): " + why + "\n"});
    }

    kpl::test::LogCapture log;
    RpcFunctionTable table;

private:
    char m_buffer[65536];

protected:
    RpcCommandMuxer command{m_buffer, sizeof(m_buffer)};
};

// --- Binding ---

TEST_F(RpcFunctionTableTest, BindRefusesANullOrEmptyName) {
    EXPECT_FALSE(table.Bind(nullptr, [] {}));
    EXPECT_FALSE(table.Bind("", [] {}));
}

TEST_F(RpcFunctionTableTest, BindRefusesANameThatIsTakenAndKeepsTheFirst) {
    EXPECT_TRUE(table.Bind("f", [] { return 1; }));
    EXPECT_FALSE(table.Bind("f", [] { return 2; }));
    EXPECT_TRUE(table.Bind("F", [] { return 3; }));
    EXPECT_EQ(Call("f").Get<int>(0), 1);
    EXPECT_EQ(Call("F").Get<int>(0), 3);
}

TEST_F(RpcFunctionTableTest, BindCopiesTheName) {
    std::string name = "first";
    EXPECT_TRUE(table.Bind(name.c_str(), [] { return 1; }));
    name = "other";
    EXPECT_EQ(Call("first").Get<int>(0), 1);
}

int Twice(int value) {
    return 2 * value;
}

int TwiceNoexcept(int value) noexcept {
    return 2 * value;
}

TEST_F(RpcFunctionTableTest, ServesFunctions) {
    EXPECT_TRUE(table.Bind("f", Twice));
    EXPECT_TRUE(table.Bind("g", &TwiceNoexcept));
    EXPECT_EQ(Call("f", 21).Get<int>(0), 42);
    EXPECT_EQ(Call("g", 22).Get<int>(0), 44);
}

TEST_F(RpcFunctionTableTest, ServesLambdasWithAndWithoutAState) {
    int seen = 0;
    EXPECT_TRUE(table.Bind("const", [&seen](int value) { return seen = value; }));
    EXPECT_TRUE(table.Bind("noexcept", [](int value) noexcept { return value + 1; }));
    EXPECT_TRUE(table.Bind("mutable", [sum = 0](int value) mutable { return sum += value; }));
    EXPECT_TRUE(table.Bind("both", [n = 0](int value) mutable noexcept { return n += value; }));
    EXPECT_EQ(Call("const", 5).Get<int>(0), 5);
    EXPECT_EQ(seen, 5);
    EXPECT_EQ(Call("noexcept", 5).Get<int>(0), 6);
    EXPECT_EQ(Call("mutable", 5).Get<int>(0), 5);
    EXPECT_EQ(Call("mutable", 6).Get<int>(0), 11);
    EXPECT_EQ(Call("both", 2).Get<int>(0), 2);
    EXPECT_EQ(Call("both", 2).Get<int>(0), 4);
}

TEST_F(RpcFunctionTableTest, ServesStdFunctions) {
    const std::function<int(int)> function = Twice;
    EXPECT_TRUE(table.Bind("f", function));
    EXPECT_TRUE(table.Bind("g", std::function<void(const std::string&)>([](const auto&) {})));
    EXPECT_EQ(Call("f", 3).Get<int>(0), 6);
    EXPECT_EQ(Call("g", "text").Get<int>(0), 0);
}

TEST_F(RpcFunctionTableTest, DestroysItsFunctions) {
    auto owned = std::make_shared<int>(1);
    {
        RpcFunctionTable other;
        EXPECT_TRUE(other.Bind("f", [owned] { return *owned; }));
        EXPECT_GT(owned.use_count(), 1);
    }
    EXPECT_EQ(owned.use_count(), 1);
}

TEST_F(RpcFunctionTableTest, AnUnknownNameGivesNullAndNoMessage) {
    EXPECT_TRUE(table.Bind("known", [] {}));
    EXPECT_EQ(Execute("unknown"), nullptr);
    EXPECT_EQ(Execute("know"), nullptr);
    EXPECT_EQ(Execute("known "), nullptr);
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(RpcFunctionTableTest, ACommandWithoutANameGivesNull) {
    EXPECT_TRUE(table.Bind("known", [] {}));
    for (const auto& bytes :
         {kpl::test::Command(RPC_COMMAND_INVOKE, kId, 0, ""),
          kpl::test::Command(RPC_COMMAND_INVOKE, kId, 1, Param(50, "known")), std::string()}) {
        const kpl::test::ExactBytes exact(bytes);
        RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
        EXPECT_EQ(table.Execute(&demuxer, nullptr), nullptr);
    }
}

// --- Parameters and results ---

template <class T>
class ScalarFunctionTest : public RpcFunctionTableTest {};

using Scalars = testing::Types<bool, int, long, char, unsigned char, long long, unsigned long long,
                               short, unsigned short, unsigned int, unsigned long, double, float>;
TYPED_TEST_SUITE(ScalarFunctionTest, Scalars);

TYPED_TEST(ScalarFunctionTest, TravelsInAndOut) {
    using Wire = typename ParamTypeTrait<TypeParam>::WireType;
    std::vector<TypeParam> seen;
    this->table.Bind("Echo", [&seen](TypeParam value) {
        seen.push_back(value);
        return value;
    });
    this->table.Bind("EchoConst", [](const TypeParam& value) { return value; });
    const auto lowest = static_cast<TypeParam>(std::numeric_limits<Wire>::lowest());
    const auto highest = static_cast<TypeParam>(std::numeric_limits<Wire>::max());
    for (const TypeParam value : {lowest, highest}) {
        const RpcCommandDemuxer result = this->Call("Echo", value);
        EXPECT_EQ(result.GetCommandCounts(), 1);
        EXPECT_EQ(result.GetParamType(0), ParamTypeTrait<TypeParam>::Type);
        EXPECT_EQ(result.Get<TypeParam>(0), value);
        EXPECT_EQ(this->Call("EchoConst", value).template Get<TypeParam>(0), value);
    }
    EXPECT_EQ(seen, (std::vector<TypeParam>{lowest, highest}));
}

TEST_F(RpcFunctionTableTest, StringsTravelInEveryForm) {
    table.Bind("pointer", [](const char* text) { return text; });
    table.Bind("value", [](std::string text) { return text + "!"; });
    table.Bind("reference", [](const std::string& text) { return text.size(); });
    table.Bind("null", []() -> const char* { return nullptr; });
    EXPECT_STREQ(Call("pointer", "in").Get<const char*>(0), "in");
    EXPECT_STREQ(Call("value", "in").Get<const char*>(0), "in!");
    EXPECT_EQ(Call("reference", "four").Get<unsigned long>(0), 4U);
    EXPECT_STREQ(Call("null").Get<const char*>(0), "");
    EXPECT_EQ(Call("null").GetParamType(0), RPC_PARAM_STRING);
}

TEST_F(RpcFunctionTableTest, AResultMayPointIntoTheArguments) {
    const std::string longText(200, 't');  // Longer than a string keeps in itself.
    table.Bind("tail", [](const std::string& text) { return text.c_str() + 1; });
    table.Bind("same", [](const std::string& text) -> const std::string& { return text; });
    table.Bind("bytes", [](const std::string& text) {
        return RpcArray(const_cast<char*>(text.data()), 1, static_cast<int>(text.size()));
    });
    EXPECT_EQ(Call("tail", longText.c_str()).Get<const char*>(0), longText.substr(1));
    EXPECT_EQ(Call("same", longText.c_str()).Get<const char*>(0), longText);
    const RpcArray bytes = Call("bytes", longText.c_str()).Get<RpcArray>(0);
    EXPECT_EQ(std::string(static_cast<char*>(bytes.GetData()),
                          static_cast<size_t>(bytes.GetTotalSizeInBytes())),
              longText);
}

TEST_F(RpcFunctionTableTest, ArraysTravelInAndOut) {
    table.Bind("Reverse", [](RpcArray array) {
        auto* const bytes = static_cast<char*>(array.GetData());
        std::reverse(bytes, bytes + array.GetTotalSizeInBytes());
        return array;
    });
    char block[] = {'a', 'b', 'c'};
    const RpcArray got = Call("Reverse", RpcArray(block, 3, 3)).Get<RpcArray>(0);
    EXPECT_EQ(got.GetElementCounts(), 3);
    ASSERT_EQ(got.GetTotalSizeInBytes(), 3);
    EXPECT_EQ(memcmp(got.GetData(), "cba", 3), 0);
}

TEST_F(RpcFunctionTableTest, ListsTravelInAndOut) {
    table.Bind("Last", [](const EpgDataList& list) {
        return EpgDataList{1, list.items + list.count - 1};
    });
    EpgData records[2] = {};
    records[0].text[0] = "first";
    records[1].text[0] = "last";
    const EpgDataList got = Call("Last", EpgDataList{2, records}).Get<EpgDataList>(0);
    ASSERT_EQ(got.count, 1);
    EXPECT_STREQ(got.items[0].text[0], "last");
}

TEST_F(RpcFunctionTableTest, AVoidFunctionsResultIsAnIntZero) {
    bool called = false;
    table.Bind("f", [&called] { called = true; });
    const RpcCommandDemuxer result = Call("f");
    EXPECT_TRUE(called);
    EXPECT_EQ(result.GetCommandCounts(), 1);
    EXPECT_EQ(result.GetParamType(0), RPC_PARAM_INT);
    EXPECT_EQ(result.Get<int>(0), 0);
}

TEST_F(RpcFunctionTableTest, ATuplesFirstValueIsTheResultAndTheOthersAreOutValues) {
    table.Bind("f", [](int a) { return std::make_tuple(a > 0, std::string("out"), 2.5); });
    table.Bind("one", [] { return std::tuple<int>(4); });
    const RpcCommandDemuxer result = Call("f", 3);
    EXPECT_EQ(result.GetCommandCounts(), 3);
    EXPECT_TRUE(result.Get<bool>(0));
    EXPECT_STREQ(result.Get<const char*>(1), "out");
    EXPECT_EQ(result.Get<double>(2), 2.5);
    EXPECT_EQ(Call("one").Get<int>(0), 4);
}

TEST_F(RpcFunctionTableTest, AResultHasTheWireFormatOfAResultWithTheCallsId) {
    table.Bind("Add", [](int a, int b) { return a + b; });
    ASSERT_TRUE(command.Push(19) && command.Push(23));
    const RpcCommandMuxer* const result = Execute("Add");
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(kpl::test::Finished(*result),
              Words({RPC_COMMAND_RESULT, kId, 28, 1, RPC_PARAM_INT, 4, 42}));
}

// --- Arguments that do not fit ---

class RefusedArgumentsTest : public RpcFunctionTableTest {
protected:
    RefusedArgumentsTest() {
        table.Bind("f", [this](int, const std::string&) { ++called; });
        table.Bind("bool", [this](bool) { ++called; });
        table.Bind("long", [this](long) { ++called; });
        table.Bind("longlong", [this](long long) { ++called; });
        table.Bind("short", [this](short) { ++called; });
        table.Bind("text", [this](const char*) { ++called; });
        table.Bind("array", [this](RpcArray) { ++called; });
        table.Bind("list", [this](EpgDataList) { ++called; });
        table.Bind("callback", [this](RpcRemoteCallback) { ++called; });
        table.Bind("two", [this](int, int) { ++called; });
    }
    ~RefusedArgumentsTest() override { EXPECT_EQ(called, 0); }

    bool Push(RpcParamType type, const std::string& value) {
        return command.PushBytes(type, value.data(), static_cast<int>(value.size()));
    }
    void ExpectRefused(const char* name) {
        RpcFunctionTableTest::ExpectRefused(name, "the arguments do not fit");
    }
    // One parameter of those bytes.
    void ExpectRefused(const char* name, RpcParamType type, const std::string& value) {
        SCOPED_TRACE(testing::Message() << name << ", code " << type << ", " << value.size());
        ASSERT_TRUE(Push(type, value));
        ExpectRefused(name);
    }

    int called = 0;
};

TEST_F(RefusedArgumentsTest, TooFewOrTooMany) {
    ExpectRefused("two");
    ASSERT_TRUE(command.Push(1));
    ExpectRefused("two");
    ASSERT_TRUE(command.Push(1) && command.Push(2) && command.Push(3));
    ExpectRefused("two");
}

TEST_F(RefusedArgumentsTest, AnotherCode) {
    ASSERT_TRUE(command.Push("text") && command.Push(1));  // The other way round.
    ExpectRefused("f");
    ASSERT_TRUE(command.Push(1U) && command.Push("text"));
    ExpectRefused("f");
    ExpectRefused("short", RPC_PARAM_USHORT, std::string(2, '\0'));
    ExpectRefused("text", RPC_PARAM_STRUCT, Text("text"));
    ExpectRefused("array", RPC_PARAM_STRING, Words({0, 0}));
    ExpectRefused("list", RPC_PARAM_STRING, Words({0, 0}));
    ExpectRefused("callback", RPC_PARAM_LONGLONG, Words({0, 0}));
}

TEST_F(RefusedArgumentsTest, AnotherLength) {
    ExpectRefused("bool", RPC_PARAM_BOOL, "");
    ExpectRefused("bool", RPC_PARAM_BOOL, std::string(4, '\1'));
    ExpectRefused("long", RPC_PARAM_LONG, std::string(8, '\1'));
    ExpectRefused("longlong", RPC_PARAM_LONGLONG, std::string(4, '\1'));
    ExpectRefused("callback", RPC_PARAM_CALLBACK, std::string(4, '\1'));
    ExpectRefused("callback", RPC_PARAM_CALLBACK, std::string(16, '\1'));
}

TEST_F(RefusedArgumentsTest, AStringThatDoesNotEndInItself) {
    ExpectRefused("text", RPC_PARAM_STRING, "text");
    ExpectRefused("text", RPC_PARAM_STRING, "");
}

TEST_F(RefusedArgumentsTest, HostileArraysAndLists) {
    ExpectRefused("array", RPC_PARAM_STRUCT, Words({1, 0x7FFFFFFF}));
    ExpectRefused("array", RPC_PARAM_STRUCT, Words({1, 0xFFFFFFFF}));
    ExpectRefused("array", RPC_PARAM_STRUCT, Words({1}));
    ExpectRefused("list", RPC_PARAM_STRUCT, Words({1, 1}));
    ExpectRefused("list", RPC_PARAM_STRUCT, Words({0x7FFFFFFF, 1}) + std::string(48, '\0'));
    ExpectRefused("list", RPC_PARAM_STRUCT, Words({1, 1}) + std::string(48, '\1'));
}

TEST_F(RpcFunctionTableTest, CodesOfOneGroupAreTreatedAlike) {
    table.Bind("bool", [](bool value) { return value; });
    table.Bind("uchar", [](unsigned char value) { return value; });
    table.Bind("long", [](long value) { return value; });
    table.Bind("ulonglong", [](unsigned long long value) { return value; });
    EXPECT_TRUE(Call("bool", 'c').Get<bool>(0));
    EXPECT_EQ(Call("uchar", true).Get<unsigned char>(0), 1);
    EXPECT_EQ(Call("long", 0xFFFFFFFFU).Get<long>(0), -1);
    EXPECT_EQ(Call("long", 5UL).Get<long>(0), 5);
    EXPECT_EQ(Call("ulonglong", -1LL).Get<unsigned long long>(0), ~0ULL);
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(RpcFunctionTableTest, ARefusedCallDoesNotDisturbTheNext) {
    table.Bind("f", [](int value) { return value; });
    ASSERT_TRUE(command.Push("text"));
    ExpectRefused("f", "the arguments do not fit");
    EXPECT_EQ(Call("f", 8).Get<int>(0), 8);
}

// --- Results that do not fit ---

TEST_F(RpcFunctionTableTest, AResultMayFill16384BytesAndNotOneMore) {
    table.Bind("f", [](int size) { return std::string(static_cast<size_t>(size), 'x'); });
    constexpr int kLongest = 16384 - 16 - 8 - 1;
    EXPECT_EQ(Call("f", kLongest).GetSize(), 16384);
    ASSERT_TRUE(command.Push(kLongest + 1));
    ExpectRefused("f", "the result does not fit");
}

TEST_F(RpcFunctionTableTest, AnOutValueWithoutRoomRefusesTheWholeResult) {
    table.Bind("f", [] { return std::make_tuple(1, std::string(17000, 'x'), 2); });
    ExpectRefused("f", "the result does not fit");
}

TEST_F(RpcFunctionTableTest, AResultThatCannotBeSerialisedIsRefused) {
    table.Bind("array", [] { return RpcArray(nullptr, 1, 4); });
    table.Bind("list", [] { return EpgDataList{-1, nullptr}; });
    ExpectRefused("array", "the result does not fit");
    ExpectRefused("list", "the result does not fit");
    if (sizeof(long) > 4) {
        table.Bind("long", [] { return std::numeric_limits<long>::max(); });
        ExpectRefused("long", "the result does not fit");
    }
}

// --- Callbacks ---

class RpcRemoteCallbackTest : public RpcFunctionTableTest {
protected:
    ~RpcRemoteCallbackTest() override { EXPECT_EQ(client.references, 0); }

    FakeCallback client;
};

TEST_F(RpcRemoteCallbackTest, ItsNumberCountsTheCallbackParametersAlone) {
    table.Bind("f", [](int, RpcRemoteCallback first, const char*, RpcRemoteCallback second) {
        EXPECT_TRUE(second("b"));
        EXPECT_TRUE(first(1, true));
    });
    CallWith(&client, "f", 1, RpcCallbackContext(), "text", RpcCallbackContext());
    EXPECT_EQ(client.sent,
              (std::vector<std::string>{CallbackCommand(1, "b"), CallbackCommand(0, 1, true)}));
}

TEST_F(RpcRemoteCallbackTest, TakesEveryKindOfArgument) {
    const RpcRemoteCallback callback(&client, kId, 3);
    char block[] = {1, 2};
    char text[] = "array";
    EpgData record = {};
    EXPECT_TRUE(callback());
    EXPECT_TRUE(callback('c', 2LL, 1.5F, "literal", std::string("string"), text,
                         RpcArray(block, 1, 2), EpgDataList{1, &record}));
    EXPECT_EQ(client.sent, (std::vector<std::string>{
                               CallbackCommand(3),
                               CallbackCommand(3, 'c', 2LL, 1.5F, "literal", "string", "array",
                                               RpcArray(block, 1, 2), EpgDataList{1, &record})}));
}

TEST_F(RpcRemoteCallbackTest, ArgumentsAbove16384BytesAreNotSent) {
    const RpcRemoteCallback callback(&client, kId, 0);
    constexpr size_t kLongest = 16384 - 16 - 12 - 8 - 1;
    EXPECT_FALSE(callback(std::string(kLongest + 1, 'x')));
    EXPECT_FALSE(callback(std::string(kLongest + 1, 'x'), 1));
    EXPECT_TRUE(client.sent.empty());
    EXPECT_TRUE(callback(std::string(kLongest, 'x')));
    ASSERT_EQ(client.sent.size(), 1U);
    EXPECT_EQ(client.sent[0].size(), 16384U);
}

TEST_F(RpcRemoteCallbackTest, IsFalseOnceTheClientHasGone) {
    const RpcRemoteCallback callback(&client, kId, 0);
    EXPECT_TRUE(callback(1));
    client.gone = true;
    EXPECT_FALSE(callback(2));
    EXPECT_TRUE(static_cast<bool>(callback));  // It can still be called.
}

TEST_F(RpcRemoteCallbackTest, EveryCopyHoldsAReference) {
    {
        const RpcRemoteCallback first(&client, kId, 0);
        EXPECT_EQ(client.references, 1);
        {
            const RpcRemoteCallback copy(first);
            EXPECT_EQ(client.references, 2);
            EXPECT_TRUE(copy(1));
        }
        EXPECT_EQ(client.references, 1);
        EXPECT_TRUE(first(2));
    }
    EXPECT_EQ(client.references, 0);
    EXPECT_EQ(client.sent,
              (std::vector<std::string>{CallbackCommand(0, 1), CallbackCommand(0, 2)}));
}

TEST_F(RpcRemoteCallbackTest, AnAssignmentGivesUpTheOldReferenceAndTakesANewOne) {
    FakeCallback other;
    {
        RpcRemoteCallback target(&other, kId + 1, 5);
        const RpcRemoteCallback source(&client, kId, 2);
        target = source;
        EXPECT_EQ(other.references, 0);
        EXPECT_EQ(client.references, 2);
        EXPECT_TRUE(target(9));
    }
    EXPECT_EQ(client.sent, std::vector<std::string>{CallbackCommand(2, 9)});
    EXPECT_TRUE(other.sent.empty());
}

TEST_F(RpcRemoteCallbackTest, AnAssignmentToItselfChangesNothing) {
    RpcRemoteCallback callback(&client, kId, 1);
    const RpcRemoteCallback& self = callback;
    callback = self;
    EXPECT_EQ(client.references, 1);
    EXPECT_TRUE(callback(4));
    EXPECT_EQ(client.sent, std::vector<std::string>{CallbackCommand(1, 4)});
}

TEST_F(RpcRemoteCallbackTest, ACopyKeptByAFunctionOutlivesTheCall) {
    std::vector<RpcRemoteCallback> kept;
    table.Bind("Watch", [&kept](const RpcRemoteCallback& callback) { kept.push_back(callback); });
    CallWith(&client, "Watch", RpcCallbackContext());
    EXPECT_EQ(client.references, 1);
    EXPECT_TRUE(kept[0](1));
    kept.clear();
    EXPECT_EQ(client.references, 0);
}

TEST_F(RpcRemoteCallbackTest, AFunctionThatKeepsNothingLeavesNoReference) {
    table.Bind("f", [](RpcRemoteCallback callback) { return static_cast<bool>(callback); });
    EXPECT_TRUE(CallWith(&client, "f", RpcCallbackContext()).Get<bool>(0));
    EXPECT_EQ(client.references, 0);
}

TEST_F(RpcRemoteCallbackTest, WithoutAWayBackItCannotBeCalled) {
    RpcRemoteCallback none(nullptr, kId, 0);
    EXPECT_FALSE(static_cast<bool>(none));
    EXPECT_FALSE(none(1));
    const RpcRemoteCallback copy(none);
    EXPECT_FALSE(copy(1));
    none = RpcRemoteCallback(&client, kId, 0);
    EXPECT_TRUE(none(1));
    none = copy;
    EXPECT_FALSE(none(1));
}

TEST_F(RpcRemoteCallbackTest, ExecuteWithoutACallbackGivesOneThatCannotBeCalled) {
    table.Bind("f", [](int, RpcRemoteCallback callback) {
        return std::make_tuple(static_cast<bool>(callback), callback(1));
    });
    const RpcCommandDemuxer result = Call("f", 1, RpcCallbackContext());
    EXPECT_EQ(result.GetCommandCounts(), 2);
    EXPECT_FALSE(result.Get<bool>(0));
    EXPECT_FALSE(result.Get<bool>(1));
}

}  // namespace
