#include "kpl/net/WebSocketHandshake.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "kpl/net/Md5.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using kpl::test::WireFormatsExample;

// Two requests of the draft, with the answers that it gives.
constexpr char kKey1[] = "18x 6]8vM;54 *(5:  {   U1]8  z [  8";
constexpr char kKey2[] = "1_ tx7X d  <  nf  334J702) 7]o}` 0";
constexpr char kBody[] = "Tm[K T2u";
constexpr char kAnswer[] = "fQJ,fN/4F4!~K~MH";

constexpr char kOtherKey1[] = "4 @1  46546xW%0l 1 5";
constexpr char kOtherKey2[] = "12998 5 Y3 1  .P00";

std::string Answer(const char* key1, const char* key2, const char* body) {
    char answer[16];
    EXPECT_EQ(16, md5_getWebSocketHandshakeAnswer(key1, key2, body, answer, sizeof(answer)));
    return std::string(answer, sizeof(answer));
}

unsigned int Number(const std::string& key) {
    return doStuffToObtainAnInt32(key.c_str());
}

TEST(WebSocketHandshakeTest, TheKeyOfTwelveSpaces) {
    EXPECT_EQ(155712099U, Number("18x 6]8vM;54 *(5:  {   U1]8  z [  8"));
}

TEST(WebSocketHandshakeTest, TheOtherKeysOfTheDraft) {
    EXPECT_EQ(173347027U, Number(kKey2));
    EXPECT_EQ(829309203U, Number(kOtherKey1));
    EXPECT_EQ(259970620U, Number(kOtherKey2));
}

TEST(WebSocketHandshakeTest, TheAnswersOfTheDraft) {
    EXPECT_EQ(kAnswer, Answer(kKey1, kKey2, kBody));
    EXPECT_EQ("8jKS'y:G*Co,Wxa-", Answer(kOtherKey1, kOtherKey2, "^n:ds[4U"));
}

TEST(WebSocketHandshakeTest, TheWorkedExample) {
    const std::string challenge = WireFormatsExample("challenge");
    ASSERT_EQ(16U, challenge.size());
    EXPECT_EQ(kBody, challenge.substr(8));
    unsigned char hash[16];
    md5(hash, challenge.data(), 128);
    EXPECT_EQ(WireFormatsExample("answer"), std::string(hash, hash + 16));
    EXPECT_EQ(WireFormatsExample("answer"), Answer(kKey1, kKey2, kBody));
}

TEST(WebSocketHandshakeTest, AKeyWithoutSpacesYieldsZero) {
    EXPECT_EQ(0U, Number("123"));
    EXPECT_EQ(0U, Number("\t1\n2\r3"));
}

TEST(WebSocketHandshakeTest, AKeyWithoutDigitsYieldsZero) {
    EXPECT_EQ(0U, Number("a b c"));
    EXPECT_EQ(0U, Number(" "));
}

TEST(WebSocketHandshakeTest, AnEmptyKeyYieldsZero) {
    const std::string exact;  // for the address sanitizer
    EXPECT_EQ(0U, Number(exact));
    const char alone[1] = {'\0'};
    EXPECT_EQ(0U, doStuffToObtainAnInt32(alone));
}

TEST(WebSocketHandshakeTest, TheFirstCharacterCountsToo) {
    EXPECT_EQ(5U, Number("5 "));
    EXPECT_EQ(5U, Number(" 5"));
}

TEST(WebSocketHandshakeTest, DivisionTruncates) {
    EXPECT_EQ(3U, Number("11   "));
    EXPECT_EQ(0U, Number("2   "));
}

TEST(WebSocketHandshakeTest, ANumberAbove32BitsSaturates) {
    EXPECT_EQ(4294967295U, Number("4294967295 "));
    EXPECT_EQ(4294967295U, Number("4294967296 "));
    EXPECT_EQ(4294967295U, Number("42949672960 "));
    EXPECT_EQ(4294967295U, Number("99999999999999 "));
    EXPECT_EQ(2147483647U, Number("9 9999999999999 "));
}

TEST(WebSocketHandshakeTest, FourteenDigitsAreTaken) {
    EXPECT_EQ(1U, Number("00000000000001 "));
    EXPECT_EQ(0U, Number("00000000000000"
                         "9 "));
    EXPECT_EQ(12U, Number("00000000000012"
                          "345 "));
}

TEST(WebSocketHandshakeTest, BytesThatAreNotTextAreIgnored) {
    EXPECT_EQ(12U, Number("\x80"
                          "1\xff\xb2 2\xa0"));
}

TEST(WebSocketHandshakeTest, AKeyEndsAfter256Characters) {
    EXPECT_EQ(7U, Number("7 " + std::string(254, 'x')));
    EXPECT_EQ(7U, Number("7 " + std::string(254, 'x') + "9 "));
    EXPECT_EQ(79U, Number("7 " + std::string(253, 'x') + "9 "));
    EXPECT_EQ(7U, Number("7 " + std::string(100000, 'x')));
}

TEST(WebSocketHandshakeTest, AlmostEveryCharacterMayBeASpace) {
    EXPECT_EQ(2U, Number("510" + std::string(253, ' ') + "   "));
    EXPECT_EQ(0U, Number(std::string(256, ' ') + "9 "));
}

TEST(WebSocketHandshakeTest, KeysOfZeroAreAnswered) {
    EXPECT_EQ(Answer("1", "2", kBody), Answer("", "a b", kBody));
    EXPECT_NE(Answer("1", "2", kBody), Answer("1 ", "2", kBody));
    EXPECT_NE(Answer("1", "2", kBody), Answer("1", "2 ", kBody));
}

TEST(WebSocketHandshakeTest, TheBodyIsEightBytesWhateverTheyAre) {
    const char zeros[9] = "\0\0\0\0\0\0\0";
    const char ending[9] = "\0\0\0\0\0\0\0\x01";
    EXPECT_NE(Answer(kKey1, kKey2, zeros), Answer(kKey1, kKey2, ending));
}

TEST(WebSocketHandshakeTest, AnAnswerSizeOf15IsRefused) {
    char answer[16];
    memset(answer, 'x', sizeof(answer));
    EXPECT_EQ(-1, md5_getWebSocketHandshakeAnswer(kKey1, kKey2, kBody, answer, 15));
    EXPECT_EQ(-1, md5_getWebSocketHandshakeAnswer(kKey1, kKey2, kBody, answer, 0));
    EXPECT_EQ(std::string(16, 'x'), std::string(answer, 16));
}

TEST(WebSocketHandshakeTest, ANullPointerIsRefused) {
    char answer[16];
    memset(answer, 'x', sizeof(answer));
    EXPECT_EQ(-1, md5_getWebSocketHandshakeAnswer(nullptr, kKey2, kBody, answer, 16));
    EXPECT_EQ(-1, md5_getWebSocketHandshakeAnswer(kKey1, nullptr, kBody, answer, 16));
    EXPECT_EQ(-1, md5_getWebSocketHandshakeAnswer(kKey1, kKey2, nullptr, answer, 16));
    EXPECT_EQ(-1, md5_getWebSocketHandshakeAnswer(kKey1, kKey2, kBody, nullptr, 16));
    EXPECT_EQ(std::string(16, 'x'), std::string(answer, 16));
}

TEST(WebSocketHandshakeTest, NothingIsWrittenBehindTheAnswer) {
    char answer[20];
    memset(answer, 'x', sizeof(answer));
    EXPECT_EQ(16, md5_getWebSocketHandshakeAnswer(kKey1, kKey2, kBody, answer, sizeof(answer)));
    EXPECT_EQ(std::string(kAnswer) + "xxxx", std::string(answer, sizeof(answer)));
}

}  // namespace
