#include "cli/Text.h"

#include <gtest/gtest.h>
#include <limits.h>

namespace {

using namespace kpl::cli;

TEST(TextTest, HexIsTwoDigitsAByte) {
    EXPECT_EQ("", Hex(""));
    EXPECT_EQ("00ff7f", Hex(std::string("\0\xff\x7f", 3)));
}

TEST(TextTest, CharactersStayAndTheRestIsEscaped) {
    EXPECT_EQ("Cinéma 川 😀", Printable("Cinéma 川 😀"));
    EXPECT_EQ("a\\nb\\tc\\rd\\x1b[31m\\x7f", Printable("a\nb\tc\rd\033[31m\x7f"));
    EXPECT_EQ("\\\\ \"", Printable("\\ \""));
    EXPECT_EQ("\"\\\\ \\\"\"", Quoted("\\ \""));
}

TEST(TextTest, TheSecondBlockOfControlCharactersIsEscapedToo) {
    EXPECT_EQ("\\xc2\\x9b", Printable("\xc2\x9b"));
    EXPECT_EQ("\xc2\xa0", Printable("\xc2\xa0"));
}

TEST(TextTest, WhatIsNoUtf8IsEscapedByteByByte) {
    for (const std::string bytes : {"\x80", "\xc0\xaf", "\xc3", "\xe2\x82", "\xed\xa0\x80",
                                    "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xf0\x80\x80\x80"}) {
        EXPECT_FALSE(IsUtf8(bytes)) << Hex(bytes);
        EXPECT_FALSE(IsUtf8("a" + bytes + "b")) << Hex(bytes);
        const std::string text = Printable(bytes);
        EXPECT_EQ("\\x" + Hex(bytes.substr(0, 1)), text.substr(0, 4));
    }
    EXPECT_TRUE(IsUtf8("\xed\x9f\xbf \xf4\x8f\xbf\xbf"));
}

TEST(TextTest, JsonEscapesWhatItMust) {
    EXPECT_EQ("\"\\\"\\\\\\u000a\\u0000é\"", Json(std::string("\"\\\n\0é", 6)));
    EXPECT_EQ("{\"hex\":\"61ff\"}", Json("a\xff"));
}

TEST(TextTest, IntegersAreReadWithTheirLimits) {
    EXPECT_EQ(LLONG_MIN, ParseInteger("-9223372036854775808", LLONG_MIN, LLONG_MAX));
    EXPECT_EQ(LLONG_MAX, ParseInteger("0x7fffffffffffffff", LLONG_MIN, LLONG_MAX));
    EXPECT_EQ(-16, ParseInteger("-0x10", -16, 0));
    EXPECT_EQ(ULLONG_MAX, ParseUnsigned("18446744073709551615", ULLONG_MAX));
    EXPECT_FALSE(ParseInteger("-17", -16, 0));
    EXPECT_FALSE(ParseInteger("9223372036854775808", LLONG_MIN, LLONG_MAX));
    EXPECT_FALSE(ParseInteger("-9223372036854775809", LLONG_MIN, LLONG_MAX));
    EXPECT_FALSE(ParseUnsigned("18446744073709551616", ULLONG_MAX));
}

TEST(TextTest, WhatIsNoIntegerIsRefused) {
    for (const std::string text : {"", "-", "0x", "1 ", " 1", "+1", "--1", "1.0", "x", "0x-1"}) {
        EXPECT_FALSE(ParseInteger(text, LLONG_MIN, LLONG_MAX)) << text;
        EXPECT_FALSE(ParseUnsigned(text, ULLONG_MAX)) << text;
    }
    EXPECT_FALSE(ParseUnsigned("-1", ULLONG_MAX));
}

}  // namespace
