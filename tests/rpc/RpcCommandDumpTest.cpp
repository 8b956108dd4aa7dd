// What RpcCommandDemuxer::Dump writes, compared message by message.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "kpl/rpc/RpcCommandDemuxer.h"
#include "tests/rpc/CommandBytes.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;
using Messages = std::vector<std::string>;

Messages Dumped(const std::string& bytes) {
    const ExactBytes exact(bytes);
    const LogCapture log;
    RpcCommandDemuxer(exact.Data(), exact.Size()).Dump();
    return log.Messages();
}

// What the dump prints for one parameter of a result.
std::string Piece(uint32_t code, const std::string& value) {
    const Messages messages = Dumped(Command(10002, 1, 1, Param(code, value)));
    EXPECT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages.front(), "RpcCommandDemuxer::Dump(): Result (");
    EXPECT_EQ(messages.back(), ")\n");
    return messages.size() == 3 ? messages[1] : "";
}

template <class T>
std::string Raw(T value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

TEST(RpcCommandDumpTest, WritesNothingWhileTheLogIsDisabled) {
    const ExactBytes exact(Command(10002, 1, 0, ""));
    const LogCapture log(LogCapture::Debug::Off);
    RpcCommandDemuxer(exact.Data(), exact.Size()).Dump();
    EXPECT_TRUE(log.Messages().empty());
}

TEST(RpcCommandDumpTest, AnInvokeNamesItsFunctionAndListsTheOtherParameters) {
    EXPECT_EQ(
        Dumped(Command(10001, 1, 3,
                       Param(2, Words({19})) + Param(50, Text("text")) + Param(50, Text("Name")))),
        (Messages{"RpcCommandDemuxer::Dump(): Invoke Name(", "19", ", ", "text", ")\n"}));
}

TEST(RpcCommandDumpTest, AnInvokeWithoutArgumentsListsNothing) {
    EXPECT_EQ(Dumped(Command(10001, 1, 1, Param(50, Text("Name")))),
              (Messages{"RpcCommandDemuxer::Dump(): Invoke Name(", ")\n"}));
}

TEST(RpcCommandDumpTest, AnInvokeWithoutANameSaysSo) {
    for (const uint32_t count : {0U, 0xFFFFFFFFU, 0x80000000U}) {
        EXPECT_EQ(Dumped(Command(10001, 1, count, "")),
                  (Messages{"RpcCommandDemuxer::Dump(): Invoke (null)(", ")\n"}));
    }
}

TEST(RpcCommandDumpTest, AResultListsEveryParameter) {
    EXPECT_EQ(Dumped(Command(10002, 1, 2, Param(2, Words({1})) + Param(50, Text("text")))),
              (Messages{"RpcCommandDemuxer::Dump(): Result (", "1", ", ", "text", ")\n"}));
    EXPECT_EQ(Dumped(Command(10002, 1, 0, "")),
              (Messages{"RpcCommandDemuxer::Dump(): Result (", ")\n"}));
}

TEST(RpcCommandDumpTest, ACallbackPrintsOnlyTheInvalidTypeLine) {
    EXPECT_EQ(Dumped(Command(10003, 1, 1, Param(2, Words({0})))),
              Messages{"RpcCommandDemuxer::Dump(): ????? Invalid command type\n"});
}

TEST(RpcCommandDumpTest, AnUnknownTypeOrNoHeaderPrintsOnlyTheInvalidTypeLine) {
    const Messages invalid{"RpcCommandDemuxer::Dump(): ????? Invalid command type\n"};
    EXPECT_EQ(Dumped(Command(10004, 1, 0, "")), invalid);
    EXPECT_EQ(Dumped("too short"), invalid);
}

TEST(RpcCommandDumpTest, OneByteTypesAreZeroExtended) {
    for (const uint32_t code : {1U, 4U, 5U}) {
        EXPECT_EQ(Piece(code, "\x01"), "1");
        EXPECT_EQ(Piece(code, "\xFF"), "255");
    }
}

TEST(RpcCommandDumpTest, FourByteTypesAreSignedNumbers) {
    for (const uint32_t code : {2U, 3U, 10U, 11U}) {
        EXPECT_EQ(Piece(code, Words({7})), "7");
        EXPECT_EQ(Piece(code, Words({0xFFFFFFFF})), "-1");
    }
}

TEST(RpcCommandDumpTest, EightByteTypesShowTheirLowHalf) {
    for (const uint32_t code : {6U, 7U}) {
        EXPECT_EQ(Piece(code, Words({7, 1})), "7");
        EXPECT_EQ(Piece(code, Words({0xFFFFFFFE, 0})), "-2");
    }
}

TEST(RpcCommandDumpTest, TwoByteTypesAreExtendedByTheirOwnSign) {
    EXPECT_EQ(Piece(8, "\xFE\xFF"), "-2");
    EXPECT_EQ(Piece(9, "\xFE\xFF"), "65534");
}

TEST(RpcCommandDumpTest, FloatingPointIsTruncatedTowardsZero) {
    EXPECT_EQ(Piece(12, Raw(2.9)), "2");
    EXPECT_EQ(Piece(12, Raw(-2.9)), "-2");
    EXPECT_EQ(Piece(13, Raw(2.9F)), "2");
    EXPECT_EQ(Piece(13, Raw(-2.9F)), "-2");
}

TEST(RpcCommandDumpTest, FloatingPointBeyondIntSaturatesAndNoNumberIs0) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(Piece(12, Raw(1e300)), "2147483647");
    EXPECT_EQ(Piece(12, Raw(-1e300)), "-2147483648");
    EXPECT_EQ(Piece(12, Raw(2147483648.0)), "2147483647");
    EXPECT_EQ(Piece(12, Raw(2147483647.5)), "2147483647");
    EXPECT_EQ(Piece(12, Raw(2147483646.5)), "2147483646");
    EXPECT_EQ(Piece(12, Raw(-2147483648.5)), "-2147483648");
    EXPECT_EQ(Piece(12, Raw(-2147483649.0)), "-2147483648");
    EXPECT_EQ(Piece(13, Raw(3e9F)), "2147483647");
    EXPECT_EQ(Piece(12, Raw(infinity)), "2147483647");
    EXPECT_EQ(Piece(13, Raw(-std::numeric_limits<float>::infinity())), "-2147483648");
    EXPECT_EQ(Piece(12, Raw(std::numeric_limits<double>::quiet_NaN())), "0");
    EXPECT_EQ(Piece(13, Raw(std::numeric_limits<float>::quiet_NaN())), "0");
}

TEST(RpcCommandDumpTest, StringsAreThemselves) {
    EXPECT_EQ(Piece(50, Text("100% text")), "100% text");
    EXPECT_EQ(Piece(50, Text("")), "");
}

TEST(RpcCommandDumpTest, AStringWithoutATerminatorIsNull) {
    EXPECT_EQ(Piece(50, "abc"), "(null)");
    EXPECT_EQ(Piece(50, ""), "(null)");
}

TEST(RpcCommandDumpTest, StructuresAndUnknownCodesHaveTheirLiterals) {
    EXPECT_EQ(Piece(51, "abc"), "CLASS/STRUCTURE");
    EXPECT_EQ(Piece(51, ""), "CLASS/STRUCTURE");
    for (const uint32_t code : {0U, 14U, 49U, 52U, 61U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Piece(code, "abc"), "?????");
    }
}

TEST(RpcCommandDumpTest, ACallbackContextShowsItsFirstWord) {
    EXPECT_EQ(Piece(60, Words({0xABCD1234, 0x55})), "0xabcd1234");
    EXPECT_EQ(Piece(60, Words({0, 0})), "0x0");
}

TEST(RpcCommandDumpTest, ShortValuesAreZero) {
    for (const uint32_t code : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 13U}) {
        EXPECT_EQ(Piece(code, ""), "0") << code;
    }
    EXPECT_EQ(Piece(60, Words({5})), "0x0");
}

TEST(RpcCommandDumpTest, ACountBeyondTheParametersListsThoseThatAreThere) {
    EXPECT_EQ(Dumped(Command(10002, 1, 0x7FFFFFFF, Param(2, Words({1})) + Param(2, Words({2})))),
              (Messages{"RpcCommandDemuxer::Dump(): Result (", "1", ", ", "2", ")\n"}));
}

}  // namespace
