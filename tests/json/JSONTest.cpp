#include "kpl/json/JSON.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using Value = std::unique_ptr<JSONValue>;

Value Parse(const std::string& text) {
    return Value(JSON::Parse(text.c_str()));
}

// What a text is after it was read and written; "refused" for one that cannot be read.
std::string Rewritten(const std::string& text) {
    const Value value = Parse(text);
    return value != nullptr ? value->Stringify() : "refused";
}

// What a string literal holds, without its quotation marks in the text.
std::string TextOf(const std::string& inner) {
    const Value value = Parse('"' + inner + '"');
    return value != nullptr ? value->AsString() : "refused";
}

TEST(JSONTest, LiteralsInLargeLettersWithSpaceAroundAreRead) {
    const Value value = Parse("  TRUE ");
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE(value->IsBool());
    EXPECT_TRUE(value->AsBool());
}

TEST(JSONTest, SomethingBehindTheValueIsAFailure) {
    EXPECT_EQ(Parse("true x"), nullptr);
}

TEST(JSONTest, ZeroStandsAloneSoThatADigitIsLeftOver) {
    EXPECT_EQ(Parse("01"), nullptr);
}

TEST(JSONTest, ALoneMinusIsAFailure) {
    EXPECT_EQ(Parse("-"), nullptr);
}

TEST(JSONTest, APositiveExponentMultiplies) {
    const Value value = Parse("1e3");
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE(value->IsNumber());
    EXPECT_EQ(value->AsNumber(), 1000);
}

TEST(JSONTest, ANegativeExponentDivides) {
    const Value value = Parse("2.5E-1");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->AsNumber(), 0.25);
}

TEST(JSONTest, OfTwoMembersWithOneKeyTheLastWins) {
    const Value value = Parse("{\"a\":1,\"a\":2}");
    ASSERT_NE(value, nullptr);
    ASSERT_EQ(value->AsObject().size(), 1U);
    EXPECT_EQ(value->AsObject().at("a")->AsNumber(), 2);
}

TEST(JSONTest, AnEarlierMemberOfAnyTypeIsReplaced) {
    EXPECT_EQ(Rewritten(R"({"a":{"b":["long enough for the heap"]},"c":1,"a":[2]})"),
              R"({"a":[2],"c":1})");
}

TEST(JSONTest, AnyByteOpensAKey) {
    const Value value = Parse("{xa\":1}");
    ASSERT_NE(value, nullptr);
    ASSERT_EQ(value->AsObject().size(), 1U);
    EXPECT_EQ(value->AsObject().begin()->first, "a");
}

TEST(JSONTest, ABackslashOpensAKeyToo) {
    EXPECT_EQ(Rewritten("{\\\":1}"), "{\"\":1}");
}

TEST(JSONTest, EmptyContainersAreRead) {
    const Value array = Parse("[]");
    ASSERT_NE(array, nullptr);
    EXPECT_TRUE(array->IsArray());
    EXPECT_TRUE(array->AsArray().empty());
    const Value object = Parse("{}");
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(object->IsObject());
    EXPECT_TRUE(object->AsObject().empty());
    EXPECT_EQ(Rewritten(" [ ] "), "[]");
    EXPECT_EQ(Rewritten(" {\t} "), "{}");
}

TEST(JSONTest, ATrailingCommaInAnArrayIsAFailure) {
    EXPECT_EQ(Parse("[1,]"), nullptr);
}

TEST(JSONTest, ATrailingCommaInAnObjectFailsOnlyIfNoKeyFollows) {
    EXPECT_EQ(Parse("{\"a\":1,}"), nullptr);
    EXPECT_EQ(Rewritten("{\"a\":1,}b\":2}"), "{\"a\":1,\"b\":2}");
}

TEST(JSONTest, LiteralsAreReadInAnyMixOfLetters) {
    EXPECT_EQ(Rewritten("True"), "true");
    EXPECT_EQ(Rewritten("fALSE"), "false");
    EXPECT_EQ(Rewritten("NULL"), "null");
    EXPECT_EQ(Rewritten("[tRuE,False,nULL]"), "[true,false,null]");
}

TEST(JSONTest, ALiteralMayBeFollowedByAnythingThatTheNextCheckAccepts) {
    const char* text = "truefalse";
    const Value first(JSONValue::Parse(&text));
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->AsBool());
    EXPECT_STREQ(text, "false");
    EXPECT_EQ(Parse("truefalse"), nullptr);
    EXPECT_EQ(Parse("[truefalse]"), nullptr);
}

TEST(JSONTest, LettersThatOnlyLookAlikeAreNoLiteral) {
    EXPECT_EQ(Parse("tru"), nullptr);
    EXPECT_EQ(Parse("nul"), nullptr);
    EXPECT_EQ(Parse("fals"), nullptr);
    EXPECT_EQ(Parse("t\x12ue"), nullptr);
    EXPECT_EQ(Parse("none"), nullptr);
}

TEST(JSONTest, ATextWithoutAValueIsAFailure) {
    EXPECT_EQ(JSON::Parse(nullptr), nullptr);
    EXPECT_EQ(Parse(""), nullptr);
    EXPECT_EQ(Parse(" \t\r\n"), nullptr);
    EXPECT_EQ(Parse("\v1"), nullptr);
    EXPECT_EQ(Parse("+1"), nullptr);
    EXPECT_EQ(Parse("'a'"), nullptr);
}

TEST(JSONTest, AValueOfAnyTypeIsAWholeText) {
    EXPECT_EQ(Rewritten("7"), "7");
    EXPECT_EQ(Rewritten("\"a\""), "\"a\"");
    EXPECT_EQ(Rewritten("null"), "null");
    EXPECT_EQ(Rewritten("\"with\\nescape\""), "\"with\\nescape\"");
}

TEST(JSONTest, EveryPrefixOfATextIsRefused) {
    const std::string text =
        "{\"a\" : [ 1 , -2.5e3 , { \"k\\u0041\" : \"v\\n\" } , [ ] , { } ] , \"b\" : tRue }";
    ASSERT_EQ(Rewritten(text), R"({"a":[1,-2500,{"kA":"v\n"},[],{}],"b":true})");
    for (size_t size = 0; size < text.size(); ++size) {
        EXPECT_EQ(Parse(text.substr(0, size)), nullptr) << text.substr(0, size);
    }
}

TEST(JSONTest, WhatIsMissingOrTooMuchIsAFailure) {
    for (const char* text : {"[1 2]", "[1,,2]", "[,1]", "[1}", "{\"a\"}", "{\"a\":}", "{\"a\" 1}",
                             "{\"a\":1]", "{\"a\":1 \"b\":2}", "{\"a\":1,,\"b\":2}", "]", "}",
                             "[]]", "{}}", "[1", "[[]", "1 2", ","}) {
        EXPECT_EQ(Parse(text), nullptr) << text;
    }
}

TEST(JSONTest, ObjectsAreWrittenInTheOrderOfTheirKeys) {
    EXPECT_EQ(Rewritten(R"({"b":1,"a":2,"B":3,"":4,"aa":5})"),
              R"({"":4,"B":3,"a":2,"aa":5,"b":1})");
}

TEST(JSONTest, ContainersCloseOntoTheRightOnes) {
    EXPECT_EQ(Rewritten(R"([[1,[2,[]],3],{"a":[{"b":{}}],"c":[[],{}]},4])"),
              R"([[1,[2,[]],3],{"a":[{"b":{}}],"c":[[],{}]},4])");
}

TEST(JSONTest, ManyValuesOfEveryKindSurvive) {
    std::string text = "[";
    for (int i = 0; i < 5000; ++i) {
        text += (i == 0 ? "" : ",") + std::to_string(i) +
                R"(,"short","a string of more than a few bytes",)" +
                R"({"key":[true,null],"a key of more than a few bytes":")" + std::to_string(i) +
                "\"}";
    }
    text += ']';
    const std::string written = Rewritten(text);
    ASSERT_EQ(written.size(), Rewritten(written).size());
    EXPECT_EQ(written, Rewritten(written));
    const Value value = Parse(text);
    ASSERT_EQ(value->AsArray().size(), 20000U);
    EXPECT_EQ(value->AsArray()[19999]->AsObject().at("a key of more than a few bytes")->AsString(),
              "4999");
}

TEST(JSONTest, EscapesStandForTheirBytes) {
    EXPECT_EQ(TextOf(R"(\n\b\f\r\t\/\\\")"), "\n\b\f\r\t/\\\"");
    EXPECT_EQ(TextOf(R"(a\nb\tc)"), "a\nb\tc");
}

TEST(JSONTest, OtherEscapesAreRefused) {
    for (int c = 1; c < 256; ++c) {
        const std::string escape = {'\\', static_cast<char>(c)};
        const bool known = std::string("nbfrt/\\\"").find(escape[1]) != std::string::npos;
        EXPECT_EQ(Parse('"' + escape + '"') != nullptr, known) << c;
    }
}

TEST(JSONTest, OfACodePointOnlyTheLowByteIsKept) {
    EXPECT_EQ(TextOf("\\u0041"), "A");
    EXPECT_EQ(TextOf("\\u00e9"), "\xe9");
    EXPECT_EQ(TextOf("\\u00E9"), "\xe9");
    EXPECT_EQ(TextOf("\\u4e2d"), "-");
    EXPECT_EQ(TextOf("\\u0000"), std::string(1, '\0'));
    EXPECT_EQ(TextOf("\\uFfFf"), "\xff");
}

TEST(JSONTest, ACodePointNeedsFourHexadecimalDigits) {
    for (const char* text :
         {"\"\\u\"", "\"\\u1\"", "\"\\u12\"", "\"\\u123\"", "\"\\u12g4\"", "\"\\u123", "\"\\u1234",
          "\"\\u 123\"", "\"\\U0041\"", "\"\\u/041\""}) {
        EXPECT_EQ(Parse(text), nullptr) << text;
    }
}

TEST(JSONTest, OfTheRawBytesBelow32OnlyATabIsAccepted) {
    for (int c = 1; c < 256; ++c) {
        const std::string raw(1, static_cast<char>(c));
        const bool accepted = (c >= 32 && c != '"' && c != '\\') || c == '\t';
        EXPECT_EQ(TextOf("a" + raw + "z"), accepted ? "a" + raw + "z" : "refused") << c;
    }
}

TEST(JSONTest, SkipWhitespaceStopsAtTheFirstOtherByte) {
    const char* text = " \t\r\n x";
    EXPECT_TRUE(JSON::SkipWhitespace(&text));
    EXPECT_STREQ(text, "x");
    EXPECT_TRUE(JSON::SkipWhitespace(&text));
    EXPECT_STREQ(text, "x");
}

TEST(JSONTest, SkipWhitespaceSaysWhenTheTextHasEnded) {
    const char* text = " \n";
    const char* const end = text + 2;
    EXPECT_FALSE(JSON::SkipWhitespace(&text));
    EXPECT_EQ(text, end);
    EXPECT_FALSE(JSON::SkipWhitespace(&text));
    EXPECT_EQ(text, end);
}

TEST(JSONTest, ExtractStringEmptiesItsOutputAndEndsBehindTheQuotationMark) {
    const char* text = "a\\tb\" rest";
    std::string out = "old";
    EXPECT_TRUE(JSON::ExtractString(&text, out));
    EXPECT_EQ(out, "a\tb");
    EXPECT_STREQ(text, " rest");
}

TEST(JSONTest, ExtractStringFailsAtTheEndOfTheText) {
    const char* text = "abc";
    std::string out = "old";
    EXPECT_FALSE(JSON::ExtractString(&text, out));
    EXPECT_EQ(*text, '\0');
    EXPECT_EQ(out, "abc");
}

TEST(JSONTest, ParseIntReadsDigitsAndStops) {
    const char* text = "0012x";
    EXPECT_EQ(JSON::ParseInt(&text), 12);
    EXPECT_STREQ(text, "x");
    EXPECT_EQ(JSON::ParseInt(&text), 0);
    EXPECT_STREQ(text, "x");
}

TEST(JSONTest, ParseDecimalReadsDigitsBehindThePointAndStops) {
    const char* text = "25e1";
    EXPECT_EQ(JSON::ParseDecimal(&text), 0.25);
    EXPECT_STREQ(text, "e1");
    EXPECT_EQ(JSON::ParseDecimal(&text), 0);
}

TEST(JSONTest, StringifyOfANullPointerIsTheEmptyString) {
    EXPECT_EQ(JSON::Stringify(nullptr), "");
    const JSONValue value;
    EXPECT_EQ(JSON::Stringify(&value), "null");
}

}  // namespace
