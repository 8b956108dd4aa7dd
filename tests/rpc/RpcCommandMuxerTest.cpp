#include "kpl/rpc/RpcCommandMuxer.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdint.h>

#include <vector>

#include "tests/rpc/CommandBytes.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

const char* const kTooSmall = "RpcCommandMuxer::Finish(): ?????????? Buffer is too small\n";

std::string HexBytes(std::initializer_list<int> bytes) {
    std::string result;
    for (const int byte : bytes) {
        result.push_back(static_cast<char>(byte));
    }
    return result;
}

// The whole command that holds one value.
template <class T>
std::string Pushed(T value) {
    char buf[256];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_TRUE(muxer.Push(value));
    EXPECT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 0x01020304), 0);
    return Finished(muxer);
}

// That command, as it has to be.
std::string Golden(uint32_t code, const std::string& value) {
    return Command(10002, 0x01020304, 1, Param(code, value));
}

TEST(RpcCommandMuxerTest, ACommandIsPinnedByteForByte) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(-2));
    ASSERT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "Add", 0xA1B2C3D4), 40);
    EXPECT_EQ(Finished(muxer),
              HexBytes({0x11, 0x27, 0, 0, 0xD4, 0xC3, 0xB2, 0xA1, 40,  0,   0,    0,    2,    0,
                        0,    0,    2, 0, 0,    0,    4,    0,    0,   0,   0xFE, 0xFF, 0xFF, 0xFF,
                        50,   0,    0, 0, 4,    0,    0,    0,    'A', 'd', 'd',  0}));
}

TEST(RpcCommandMuxerTest, OneByteTypesAreOneByte) {
    EXPECT_EQ(Pushed(true), Golden(1, HexBytes({1})));
    EXPECT_EQ(Pushed(false), Golden(1, HexBytes({0})));
    EXPECT_EQ(Pushed('a'), Golden(4, "a"));
    EXPECT_EQ(Pushed(static_cast<unsigned char>(0xFE)), Golden(5, HexBytes({0xFE})));
}

TEST(RpcCommandMuxerTest, TwoByteTypesAreTwoBytes) {
    EXPECT_EQ(Pushed(static_cast<short>(-2)), Golden(8, HexBytes({0xFE, 0xFF})));
    EXPECT_EQ(Pushed(static_cast<unsigned short>(0x1234)), Golden(9, HexBytes({0x34, 0x12})));
}

TEST(RpcCommandMuxerTest, FourByteTypesAreFourBytesAlsoLongOn64Bit) {
    EXPECT_EQ(Pushed(0x12345678), Golden(2, HexBytes({0x78, 0x56, 0x34, 0x12})));
    EXPECT_EQ(Pushed(-2L), Golden(3, HexBytes({0xFE, 0xFF, 0xFF, 0xFF})));
    EXPECT_EQ(Pushed(0x12345678U), Golden(10, HexBytes({0x78, 0x56, 0x34, 0x12})));
    EXPECT_EQ(Pushed(0xFFFFFFFEUL), Golden(11, HexBytes({0xFE, 0xFF, 0xFF, 0xFF})));
}

TEST(RpcCommandMuxerTest, EightByteTypesAreEightBytes) {
    EXPECT_EQ(Pushed(0x0102030405060708LL), Golden(6, HexBytes({8, 7, 6, 5, 4, 3, 2, 1})));
    EXPECT_EQ(Pushed(0xFEDCBA9876543210ULL),
              Golden(7, HexBytes({0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE})));
}

TEST(RpcCommandMuxerTest, FloatingPointTypesAreTheirIeee754Bytes) {
    EXPECT_EQ(Pushed(-1.5), Golden(12, HexBytes({0, 0, 0, 0, 0, 0, 0xF8, 0xBF})));
    EXPECT_EQ(Pushed(1.5F), Golden(13, HexBytes({0, 0, 0xC0, 0x3F})));
}

TEST(RpcCommandMuxerTest, AStringIsItsCharactersAndATerminator) {
    EXPECT_EQ(Pushed("News"), Golden(50, Text("News")));
    EXPECT_EQ(Pushed(""), Golden(50, HexBytes({0})));
}

TEST(RpcCommandMuxerTest, ANullStringIsSentAsTheEmptyOne) {
    EXPECT_EQ(Pushed(static_cast<const char*>(nullptr)), Golden(50, HexBytes({0})));
}

TEST(RpcCommandMuxerTest, AWritableStringIsAStringToo) {
    char text[] = "News";
    EXPECT_EQ(Pushed(static_cast<char*>(text)), Golden(50, Text("News")));
}

TEST(RpcCommandMuxerTest, ACallbackContextIsItsTwoWords) {
    int proxy = 0;
    const auto function = [](void*, RpcCommandDemuxer*) {};
    const RpcCallbackContext context(&proxy, function);
    const auto* address = reinterpret_cast<const void*>(+function);
    EXPECT_EQ(Pushed(context),
              Golden(60, Words({WordPointer::Pack(&proxy), WordPointer::Pack(address)})));
    EXPECT_EQ(Pushed(RpcCallbackContext()), Golden(60, Words({0, 0})));
}

TEST(RpcCommandMuxerTest, PushBytesSendsAStructureAsItIs) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.PushBytes(RPC_PARAM_STRUCT, "abc", 3));
    ASSERT_TRUE(muxer.PushBytes(RPC_PARAM_STRUCT, nullptr, 0));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    EXPECT_EQ(Finished(muxer), Command(10002, 1, 2, Param(51, "abc") + Param(51, "")));
}

TEST(RpcCommandMuxerTest, PushBytesOfNothingOrOfANegativeLengthDiscardsTheCommand) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_TRUE(muxer.Push(1));
    EXPECT_FALSE(muxer.PushBytes(RPC_PARAM_STRUCT, "abc", -1));
    EXPECT_FALSE(muxer.IsValidCommand());
    EXPECT_TRUE(muxer.Push(1));
    EXPECT_FALSE(muxer.PushBytes(RPC_PARAM_STRUCT, nullptr, 1));
    EXPECT_FALSE(muxer.IsValidCommand());
}

TEST(RpcCommandMuxerTest, ParametersFollowOneAnotherWithoutPadding) {
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(true) && muxer.Push("ab") && muxer.Push(7LL) && muxer.Push(1));
    ASSERT_EQ(muxer.Finish(RPC_COMMAND_CALLBACK, nullptr, 9), 16 + 9 + 11 + 16 + 12);
    EXPECT_EQ(Finished(muxer), Command(10003, 9, 4,
                                       Param(1, HexBytes({1})) + Param(50, Text("ab")) +
                                           Param(6, Words({7, 0})) + Param(2, Words({1}))));
}

TEST(RpcCommandMuxerTest, AnInvokeWithoutArgumentsAndAFourCharacterNameHas29Bytes) {
    char buf[29];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "Name", 3), 29);
    EXPECT_EQ(Finished(muxer), Command(10001, 3, 1, Param(50, Text("Name"))));
}

TEST(RpcCommandMuxerTest, AResultWithNothingPushedIsA16ByteCommandWithCount0) {
    char buf[16];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 0xFFFFFFFF), 16);
    EXPECT_EQ(Finished(muxer), Command(10002, 0xFFFFFFFF, 0, ""));
}

TEST(RpcCommandMuxerTest, ResultsAndCallbacksCarryNoName) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_RESULT, "Name", 3), 16);
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_CALLBACK, "Name", 3), 16);
}

TEST(RpcCommandMuxerTest, FinishOfAnInvokeWithAnEmptyOrNullNameReturns0AndLogsNothing) {
    const LogCapture log;
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "", 1), 0);
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, nullptr, 1), 0);
    EXPECT_TRUE(log.Messages().empty());
}

TEST(RpcCommandMuxerTest, FinishWithABadNameKeepsThePushedParameters) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(1));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "", 1), 0);
    EXPECT_TRUE(muxer.IsValidCommand());
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "F", 1), 16 + 12 + 10);
}

TEST(RpcCommandMuxerTest, FinishWithANameThatFindsNoRoomDiscardsAndLogsNothing) {
    const LogCapture log;
    char buf[16 + 12 + 8];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(1));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "F", 1), 0);
    EXPECT_FALSE(muxer.IsValidCommand());
    EXPECT_TRUE(log.Messages().empty());
}

TEST(RpcCommandMuxerTest, AStringThatDoesNotFitEmptiesTheWholeCommandAndAResultThenHas16Bytes) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(1));
    EXPECT_FALSE(muxer.Push(std::string(100, 'x').c_str()));
    EXPECT_FALSE(muxer.IsValidCommand());
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 4), 16);
    EXPECT_EQ(Finished(muxer), Command(10002, 4, 0, ""));
}

TEST(RpcCommandMuxerTest, AnInvokeAfterAFailedPushHasTheFunctionNameAlone) {
    char buf[48];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(1));
    ASSERT_FALSE(muxer.Push(std::string(100, 'x').c_str()));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "F", 4), 26);
    EXPECT_EQ(Finished(muxer), Command(10001, 4, 1, Param(50, Text("F"))));
}

TEST(RpcCommandMuxerTest, AParameterMayFillTheBufferToItsLastByte) {
    const ExactBytes exact(std::string(16 + 8 + 5, 'x'));
    RpcCommandMuxer fits(exact.Data(), exact.Size());
    EXPECT_TRUE(fits.Push("four"));
    RpcCommandMuxer lacksOne(exact.Data(), exact.Size() - 1);
    EXPECT_FALSE(lacksOne.Push("four"));
}

TEST(RpcCommandMuxerTest, EveryFixedSizeFailsOneByteBelowItsNeedAndWritesNothing) {
    const std::string before(16 + 8 + 7, 'x');
    const ExactBytes exact(before);
    EXPECT_FALSE(RpcCommandMuxer(exact.Data(), 16 + 8 + 0).Push(true));
    EXPECT_FALSE(RpcCommandMuxer(exact.Data(), 16 + 8 + 1).Push(static_cast<short>(1)));
    EXPECT_FALSE(RpcCommandMuxer(exact.Data(), 16 + 8 + 3).Push(1));
    EXPECT_FALSE(RpcCommandMuxer(exact.Data(), 16 + 8 + 7).Push(1.0));
    EXPECT_FALSE(RpcCommandMuxer(exact.Data(), 16 + 8 + 7).Push(RpcCallbackContext()));
    EXPECT_EQ(exact.Str(), before);
}

TEST(RpcCommandMuxerTest, ALongThatDoesNotFitInFourBytesDiscardsTheCommand) {
    if (sizeof(long) == 4) {
        GTEST_SKIP() << "every long fits here";
    }
    char buf[64];
    for (const int64_t value : {int64_t{0x80000000}, -int64_t{0x80000001}, INT64_MAX, INT64_MIN}) {
        RpcCommandMuxer muxer(buf, sizeof(buf));
        ASSERT_TRUE(muxer.Push(1));
        EXPECT_FALSE(muxer.Push(static_cast<long>(value))) << value;
        EXPECT_FALSE(muxer.IsValidCommand());
    }
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_FALSE(muxer.Push(0x100000000UL));
    EXPECT_TRUE(muxer.Push(0x7FFFFFFFL) && muxer.Push(-0x7FFFFFFFL - 1));
    EXPECT_TRUE(muxer.Push(0xFFFFFFFFUL));
}

TEST(RpcCommandMuxerTest, ABufferBelow16BytesIsReportedByFinish) {
    const LogCapture log(LogCapture::Debug::Off);
    for (const int capacity : {15, 1, 0, -1, INT_MIN}) {
        const ExactBytes exact(std::string(15, 'x'));
        RpcCommandMuxer muxer(exact.Data(), capacity);
        EXPECT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
        EXPECT_EQ(exact.Str(), std::string(15, 'x'));
    }
    EXPECT_EQ(log.Messages(), std::vector<std::string>(5, kTooSmall));
}

TEST(RpcCommandMuxerTest, AnInvokeIntoABufferBelow16BytesFailsWithoutTheMessage) {
    const LogCapture log;
    char buf[15];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "F", 1), 0);
    EXPECT_TRUE(log.Messages().empty());
}

TEST(RpcCommandMuxerTest, WithANullBufferEveryPushFailsAndFinishReportsIt) {
    const LogCapture log;
    RpcCommandMuxer muxer(nullptr, 1000);
    EXPECT_FALSE(muxer.Push(1));
    EXPECT_FALSE(muxer.Push("text"));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_INVOKE, "F", 1), 0);
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{kTooSmall});
}

TEST(RpcCommandMuxerTest, WithANegativeCapacityEveryPushFails) {
    const ExactBytes exact("x");
    for (const int capacity : {-1, INT_MIN}) {
        RpcCommandMuxer muxer(exact.Data(), capacity);
        EXPECT_FALSE(muxer.Push(true));
        EXPECT_FALSE(muxer.Push(""));
    }
    EXPECT_EQ(exact.Str(), "x");
}

TEST(RpcCommandMuxerTest, IsValidFromTheFirstPushUntilFinish) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_FALSE(muxer.IsValidCommand());
    ASSERT_TRUE(muxer.Push(1));
    EXPECT_TRUE(muxer.IsValidCommand());
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    EXPECT_FALSE(muxer.IsValidCommand());
}

TEST(RpcCommandMuxerTest, TheFinishedSizeLastsUntilTheNextFirstPush) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_EQ(muxer.GetFinishedSize(), 0);
    ASSERT_TRUE(muxer.Push(1));
    EXPECT_EQ(muxer.GetFinishedSize(), 0);
    ASSERT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 28);
    EXPECT_EQ(muxer.GetFinishedSize(), 28);
    muxer.Reset();
    EXPECT_EQ(muxer.GetFinishedSize(), 28);
    ASSERT_TRUE(muxer.Push(1));
    EXPECT_EQ(muxer.GetFinishedSize(), 0);
    muxer.Reset();
    EXPECT_EQ(muxer.GetFinishedSize(), 0);
}

TEST(RpcCommandMuxerTest, AFailedFirstPushClearsTheFinishedSizeToo) {
    char buf[32];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 16);
    EXPECT_FALSE(muxer.Push("a string without room"));
    EXPECT_EQ(muxer.GetFinishedSize(), 0);
}

TEST(RpcCommandMuxerTest, ResetDiscardsTheParameters) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(1));
    muxer.Reset();
    EXPECT_FALSE(muxer.IsValidCommand());
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 16);
}

TEST(RpcCommandMuxerTest, CommandsFollowOneAnotherInTheSameBuffer) {
    char buf[64];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push("first"));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_INVOKE, "F", 1), 0);
    ASSERT_TRUE(muxer.Push(2));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 2), 0);
    EXPECT_EQ(muxer.GetBuffer(), buf);
    EXPECT_EQ(Finished(muxer), Command(10002, 2, 1, Param(2, Words({2}))));
}

TEST(RpcCommandMuxerTest, AStringOfTheSameBufferCanBePushed) {
    char buf[64];
    strcpy(buf + 18, "0123456789");  // the parameter starts at 16, its value at 24
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(static_cast<const char*>(buf + 18)));
    EXPECT_STREQ(buf + 24, "0123456789");
}

}  // namespace
