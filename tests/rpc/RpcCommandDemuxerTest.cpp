#include "kpl/rpc/RpcCommandDemuxer.h"

#include <gtest/gtest.h>
#include <limits.h>

#include "kpl/rpc/RpcArray.h"
#include "tests/rpc/CommandBytes.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

const RpcParamType kUnknownCode = static_cast<RpcParamType>(99);

template <class T>
std::string Raw(T value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

bool IsValid(const std::string& bytes) {
    const ExactBytes exact(bytes);
    return RpcCommandDemuxer(exact.Data(), exact.Size()).IsValidCommand();
}

// Parameter 0 of a result command that holds `value`, read as a T.
template <class T>
typename ParamTypeTrait<T>::RealType Read(const std::string& value) {
    const ExactBytes exact(Command(10002, 1, 1, Param(ParamTypeTrait<T>::Type, value)));
    return RpcCommandDemuxer(exact.Data(), exact.Size()).Get<T>(0);
}

TEST(RpcCommandDemuxerTest, ReadsTheHeader) {
    const ExactBytes exact(Command(10001, 0xA1B2C3D4, 1, Param(50, Text("Name"))));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_TRUE(demuxer.IsValidCommand());
    EXPECT_EQ(demuxer.GetCommandType(), 10001);
    EXPECT_EQ(demuxer.GetId(), 0xA1B2C3D4U);
    EXPECT_EQ(demuxer.GetSize(), 29);
    EXPECT_EQ(demuxer.GetCommandCounts(), 1);
    EXPECT_STREQ(demuxer.GetFunctionName(), "Name");
}

TEST(RpcCommandDemuxerTest, OneAndAHalfCommands) {
    const std::string command = Command(10002, 1, 1, Param(50, Text("text")));
    const ExactBytes exact(command + command);
    const int size = static_cast<int>(command.size());
    EXPECT_TRUE(RpcCommandDemuxer(exact.Data(), size + size / 2).IsValidCommand());
    EXPECT_EQ(RpcCommandDemuxer(exact.Data(), size + size / 2).GetSize(), size);
    for (int arrived = 0; arrived < size; ++arrived) {
        EXPECT_FALSE(RpcCommandDemuxer(exact.Data() + size, arrived).IsValidCommand()) << arrived;
    }
    EXPECT_TRUE(RpcCommandDemuxer(exact.Data() + size, size).IsValidCommand());
}

TEST(RpcCommandDemuxerTest, OnlyTheThreeTypesAreValid) {
    for (const uint32_t type : {10001U, 10002U, 10003U}) {
        EXPECT_TRUE(IsValid(Command(type, 1, 0, ""))) << type;
    }
    for (const uint32_t type : {0U, 10000U, 10004U, 0xFFFFFFFFU}) {
        EXPECT_FALSE(IsValid(Command(type, 1, 0, ""))) << type;
    }
}

TEST(RpcCommandDemuxerTest, Count2WithSizesThatAddUpToADifferentTotalIsInvalid) {
    const std::string params = Param(2, Words({1})) + Param(2, Words({2}));
    EXPECT_TRUE(IsValid(Command(10002, 1, 2, params)));
    EXPECT_FALSE(IsValid(Command(10002, 1, 2, params + "x")));
    EXPECT_FALSE(IsValid(Command(10002, 1, 2, params.substr(0, params.size() - 1))));
    EXPECT_FALSE(IsValid(Command(10002, 1, 1, params)));
    EXPECT_FALSE(IsValid(Command(10002, 1, 3, params)));
}

TEST(RpcCommandDemuxerTest, LengthsWhoseSumWrapsTo32BitsAreInvalid) {
    // 8 + 0xFFFFFFF8 is 0 in 32 bits; any number of such parameters would add up to 16.
    const std::string command = Words({10002, 1, 16, 1, 2, 0xFFFFFFF8});
    EXPECT_FALSE(IsValid(command));
    EXPECT_FALSE(IsValid(Words({10002, 1, 16, 0x7FFFFFFF, 2, 0xFFFFFFF8})));
}

TEST(RpcCommandDemuxerTest, NegativeLengthsAndCountsAreInvalid) {
    const ExactBytes exact(Command(10002, 1, 0, ""));
    EXPECT_FALSE(RpcCommandDemuxer(exact.Data(), -1).IsValidCommand());
    EXPECT_FALSE(RpcCommandDemuxer(exact.Data(), INT_MIN).IsValidCommand());
    EXPECT_FALSE(IsValid(Command(10002, 1, 0xFFFFFFFF, "")));
    EXPECT_FALSE(IsValid(Words({10002, 1, 0xFFFFFFFF, 0})));
}

TEST(RpcCommandDemuxerTest, IdAndSizeOfAnInvalidCommandAre0ButTypeAndCountAreRead) {
    const ExactBytes exact(Words({10009, 77, 16, 0xFFFFFFFE}));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_EQ(demuxer.GetId(), 0U);
    EXPECT_EQ(demuxer.GetSize(), 0);
    EXPECT_EQ(demuxer.GetCommandType(), 10009);
    EXPECT_EQ(demuxer.GetCommandCounts(), -2);
}

TEST(RpcCommandDemuxerTest, WithoutABufferOrAWholeHeaderEverythingIsZero) {
    const ExactBytes exact(std::string(15, '\x11'));
    for (const RpcCommandDemuxer& demuxer :
         {RpcCommandDemuxer(nullptr, 100), RpcCommandDemuxer(exact.Data(), 15),
          RpcCommandDemuxer(exact.Data(), -100)}) {
        int length = 7;
        EXPECT_FALSE(demuxer.IsValidCommand());
        EXPECT_EQ(demuxer.GetCommandType(), 0);
        EXPECT_EQ(demuxer.GetCommandCounts(), 0);
        EXPECT_EQ(demuxer.GetCommandCounts(RPC_PARAM_INT), 0);
        EXPECT_EQ(demuxer.GetId(), 0U);
        EXPECT_EQ(demuxer.GetSize(), 0);
        EXPECT_EQ(demuxer.GetParamType(0), 0);
        EXPECT_FALSE(demuxer.HasParamType(RPC_PARAM_INT));
        EXPECT_EQ(demuxer.Get<int>(0), 0);
        EXPECT_EQ(demuxer.Get<const char*>(0), nullptr);
        EXPECT_EQ(demuxer.GetBytes(0, &length), nullptr);
        EXPECT_EQ(length, 0);
        EXPECT_EQ(demuxer.GetFunctionName(), nullptr);
    }
}

TEST(RpcCommandDemuxerTest, ReadsEveryType) {
    EXPECT_EQ(Read<bool>("\x01"), true);
    EXPECT_EQ(Read<char>("a"), 'a');
    EXPECT_EQ(Read<unsigned char>("\xFE"), 0xFE);
    EXPECT_EQ(Read<short>(Raw<int16_t>(-2)), -2);
    EXPECT_EQ(Read<unsigned short>(Raw<uint16_t>(0xFFFE)), 0xFFFE);
    EXPECT_EQ(Read<int>(Words({0xFFFFFFFE})), -2);
    EXPECT_EQ(Read<unsigned int>(Words({0xFFFFFFFE})), 0xFFFFFFFEU);
    EXPECT_EQ(Read<long long>(Words({1, 0x80000000})), INT64_MIN + 1);
    EXPECT_EQ(Read<unsigned long long>(Words({1, 0x80000000})), (1ULL << 63) + 1);
    EXPECT_EQ(Read<double>(Raw(-1.5)), -1.5);
    EXPECT_EQ(Read<float>(Raw(1.5F)), 1.5F);
    EXPECT_STREQ(Read<RpcArray>(Words({1, 2}) + "ab").GetData() != nullptr ? "there" : "", "there");
}

TEST(RpcCommandDemuxerTest, LongsAreExtendedFromFourBytes) {
    EXPECT_EQ(Read<long>(Words({0xFFFFFFFE})), -2L);
    EXPECT_EQ(Read<unsigned long>(Words({0xFFFFFFFE})), 0xFFFFFFFEUL);
}

TEST(RpcCommandDemuxerTest, ABoolOfAnyOtherByteIsTrue) {
    EXPECT_TRUE(Read<bool>("\x02"));
    EXPECT_TRUE(Read<bool>("\x80"));
    EXPECT_FALSE(Read<bool>(std::string(1, '\0')));
}

TEST(RpcCommandDemuxerTest, ACallbackContextComesBackToItsProcess) {
    int proxy = 0;
    const RpcCallbackContext::Function function = [](void*, RpcCommandDemuxer*) {};
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(RpcCallbackContext(&proxy, function)));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    const auto context = RpcCommandDemuxer(buf, sizeof(buf)).Get<RpcCallbackContext>(0);
    EXPECT_EQ(context.GetProxy(), &proxy);
    EXPECT_EQ(context.GetFunction(), function);
}

TEST(RpcCommandDemuxerTest, ReadsAreSafeAtEveryAlignment) {
    for (int shift = 0; shift < 8; ++shift) {
        const std::string pad = Param(50, std::string(static_cast<size_t>(shift), 'x'));
        const ExactBytes exact(Command(
            10002, 1, 4,
            pad + Param(12, Raw(2.5)) + Param(6, Raw<int64_t>(-5)) + Param(60, Words({0, 0}))));
        const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
        EXPECT_EQ(demuxer.Get<double>(1), 2.5);
        EXPECT_EQ(demuxer.Get<long long>(2), -5);
        EXPECT_EQ(demuxer.Get<RpcCallbackContext>(3).GetProxy(), nullptr);
    }
}

TEST(RpcCommandDemuxerTest, MissingParametersAreZero) {
    const ExactBytes exact(Command(10002, 1, 1, Param(2, Words({5}))));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    for (const int index : {-1, 1, 2, INT_MAX, INT_MIN}) {
        EXPECT_EQ(demuxer.GetParamType(index), 0);
        EXPECT_EQ(demuxer.Get<int>(index), 0);
        EXPECT_EQ(demuxer.Get<double>(index), 0.0);
        EXPECT_EQ(demuxer.Get<const char*>(index), nullptr);
        EXPECT_EQ(demuxer.Get<RpcCallbackContext>(index).GetProxy(), nullptr);
    }
}

TEST(RpcCommandDemuxerTest, DoubleOfAFourByteParameterIsZeroAtTheEnd) {
    const ExactBytes exact(Command(10002, 1, 1, Param(2, Words({5}))));
    EXPECT_EQ(RpcCommandDemuxer(exact.Data(), exact.Size()).Get<double>(0), 0.0);
}

TEST(RpcCommandDemuxerTest, DoubleOfAFourByteParameterReadsAcrossIntoTheNext) {
    // Its own 4 bytes and the next parameter's code, 2.
    const ExactBytes exact(
        Command(10002, 1, 2, Param(2, Words({0x3FF80000})) + Param(2, Words({5}))));
    double expected = 0;
    memcpy(&expected, Words({0x3FF80000, 2}).data(), sizeof(expected));
    ASSERT_NE(expected, 0.0);
    EXPECT_EQ(RpcCommandDemuxer(exact.Data(), exact.Size()).Get<double>(0), expected);
}

TEST(RpcCommandDemuxerTest, TheStoredCodeIsNotCompared) {
    const ExactBytes exact(Command(10002, 1, 1, Param(99, Words({5}))));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_EQ(demuxer.Get<int>(0), 5);
    EXPECT_EQ(demuxer.Get<unsigned char>(0), 5);
}

TEST(RpcCommandDemuxerTest, AStringPointsIntoTheBuffer) {
    const ExactBytes exact(Command(10002, 1, 2, Param(50, Text("ab")) + Param(50, Text("cd"))));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_EQ(demuxer.Get<const char*>(0), exact.Data() + 24);
    EXPECT_EQ(demuxer.Get<const char*>(1), exact.Data() + 35);
    EXPECT_STREQ(demuxer.Get<const char*>(1), "cd");
    exact.Data()[24] = 'x';  // whoever reuses the buffer changes the string
    EXPECT_STREQ(demuxer.Get<const char*>(0), "xb");
}

TEST(RpcCommandDemuxerTest, AStringWithoutATerminatorUpToTheEndIsNull) {
    const ExactBytes exact(Command(10002, 1, 1, Param(50, "ab")) + Text("beyond"));
    EXPECT_EQ(RpcCommandDemuxer(exact.Data(), exact.Size()).Get<const char*>(0), nullptr);
}

TEST(RpcCommandDemuxerTest, AStringMayEndInTheNextParameter) {
    const ExactBytes exact(Command(10002, 1, 2, Param(50, "ab") + Param(2, Words({5}))));
    EXPECT_STREQ(RpcCommandDemuxer(exact.Data(), exact.Size()).Get<const char*>(0), "ab\x02");
}

TEST(RpcCommandDemuxerTest, AStringWithoutAValueIsNull) {
    const ExactBytes exact(Command(10002, 1, 1, Param(50, "")));
    EXPECT_EQ(RpcCommandDemuxer(exact.Data(), exact.Size()).Get<const char*>(0), nullptr);
}

TEST(RpcCommandDemuxerTest, AnEmptyStringValueIsNoTerminator) {
    // No byte behind the value is 0, but the last one of its length is.
    const ExactBytes exact(Command(10002, 1, 2, Param(50, "") + Words({0x41414141, 0x41414141})));
    EXPECT_EQ(RpcCommandDemuxer(exact.Data(), exact.Size()).Get<const char*>(0), nullptr);
}

TEST(RpcCommandDemuxerTest, AStringThatSaysToReachBeyondTheCommandEndsInside) {
    for (const uint32_t length : {4U, 5U, 1000U, 0x40000000U, 0x80000000U, 0xFFFFFFFFU}) {
        const std::string params = Words({50, length});
        const ExactBytes ends(Command(10002, 1, 1, params + Text("ab")));
        EXPECT_STREQ(RpcCommandDemuxer(ends.Data(), ends.Size()).Get<const char*>(0), "ab");
        const ExactBytes goesOn(Command(10002, 1, 1, params + "abc"));
        EXPECT_EQ(RpcCommandDemuxer(goesOn.Data(), goesOn.Size()).Get<const char*>(0), nullptr);
    }
}

TEST(RpcCommandDemuxerTest, OfAParameterCutInItsHeaderOnlyTheCodeIsRead) {
    for (size_t left = 4; left < 8; ++left) {
        const ExactBytes exact(Command(10002, 1, 2, Words({50, 0}).substr(0, left)));
        const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
        EXPECT_EQ(demuxer.GetParamType(0), 50);
        EXPECT_EQ(demuxer.Get<const char*>(0), nullptr);
        EXPECT_EQ(demuxer.Get<int>(0), 0);
        EXPECT_EQ(demuxer.GetParamType(1), 0);
        EXPECT_EQ(demuxer.Get<int>(1), 0);
        EXPECT_EQ(demuxer.GetFunctionName(), nullptr);
    }
}

TEST(RpcCommandDemuxerTest, NothingBeyondTheTotalSizeIsRead) {
    std::string bytes = Command(10002, 1, 1, Param(2, Words({5})));
    SetWord(&bytes, 8, 16 + 8 + 3);
    const ExactBytes exact(bytes);
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_EQ(demuxer.GetParamType(0), 2);
    EXPECT_EQ(demuxer.Get<int>(0), 0);
    EXPECT_EQ(demuxer.Get<short>(0), 5);
}

TEST(RpcCommandDemuxerTest, CountsParametersByCode) {
    const ExactBytes exact(
        Command(10002, 1, 3, Param(2, Words({1})) + Param(50, Text("a")) + Param(2, Words({2}))));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_EQ(demuxer.GetCommandCounts(RPC_PARAM_INT), 2);
    EXPECT_EQ(demuxer.GetCommandCounts(RPC_PARAM_STRING), 1);
    EXPECT_EQ(demuxer.GetCommandCounts(kUnknownCode), 0);
    EXPECT_TRUE(demuxer.HasParamType(RPC_PARAM_STRING));
    EXPECT_FALSE(demuxer.HasParamType(RPC_PARAM_CALLBACK));
    EXPECT_EQ(demuxer.GetParamType(1), 50);
}

TEST(RpcCommandDemuxerTest, CountingStopsWhereTheHeadersCountStops) {
    std::string bytes = Command(10002, 1, 1, Param(2, Words({1})) + Param(2, Words({2})));
    const ExactBytes exact(bytes);
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_EQ(demuxer.GetCommandCounts(RPC_PARAM_INT), 1);
    EXPECT_EQ(demuxer.GetParamType(1), 0);
    EXPECT_EQ(demuxer.Get<int>(1), 0);
}

TEST(RpcCommandDemuxerTest, FunctionNameIsTheLastParameterAndNullBelowOne) {
    const std::string params = Param(50, Text("argument")) + Param(50, Text("Name"));
    const ExactBytes two(Command(10001, 1, 2, params));
    EXPECT_STREQ(RpcCommandDemuxer(two.Data(), two.Size()).GetFunctionName(), "Name");
    for (const uint32_t count : {0U, 0xFFFFFFFFU, 0x80000000U}) {
        const ExactBytes none(Command(10001, 1, count, params));
        EXPECT_EQ(RpcCommandDemuxer(none.Data(), none.Size()).GetFunctionName(), nullptr);
    }
}

TEST(RpcCommandDemuxerTest, BytesOfAParameterStayInsideTheCommand) {
    std::string bytes = Command(10002, 1, 2, Param(51, "abc") + Param(51, "defg"));
    ExactBytes exact(bytes);
    int length = 0;
    EXPECT_EQ(RpcCommandDemuxer(exact.Data(), exact.Size()).GetBytes(0, &length),
              exact.Data() + 24);
    EXPECT_EQ(length, 3);
    SetWord(&bytes, 16 + 11 + 4, 1000);
    const ExactBytes tooLong(bytes);
    EXPECT_EQ(RpcCommandDemuxer(tooLong.Data(), tooLong.Size()).GetBytes(1, &length),
              tooLong.Data() + 35);
    EXPECT_EQ(length, 4);
}

}  // namespace
