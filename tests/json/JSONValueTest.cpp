#include "kpl/json/JSONValue.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include "kpl/json/JSON.h"

namespace {

// With JSONValue(bool) and JSONValue(double) alone, an int would be ambiguous.
static_assert(std::is_constructible_v<JSONValue, int>);
static_assert(!std::is_copy_constructible_v<JSONValue> && !std::is_copy_assignable_v<JSONValue>);
static_assert(!std::is_move_constructible_v<JSONValue> && !std::is_move_assignable_v<JSONValue>);
static_assert(sizeof(JSONValue) <= 16, "side by side they would need 128 bytes");
static_assert(std::is_same_v<JSONArray, std::vector<JSONValue*>>);
static_assert(std::is_same_v<JSONObject, std::map<std::string, JSONValue*>>);

std::string Quoted(const std::string& text) {
    return JSONValue::StringifyString(text);
}

TEST(JSONValueTest, TypesAreNumbered) {
    EXPECT_EQ(static_cast<int>(JSONType::Null), 0);
    EXPECT_EQ(static_cast<int>(JSONType::String), 1);
    EXPECT_EQ(static_cast<int>(JSONType::Bool), 2);
    EXPECT_EQ(static_cast<int>(JSONType::Number), 3);
    EXPECT_EQ(static_cast<int>(JSONType::Array), 4);
    EXPECT_EQ(static_cast<int>(JSONType::Object), 5);
}

// The type of a value, by getType and by each question; -1 when they disagree.
int TypeOf(const JSONValue& value) {
    const bool answers[] = {value.IsNull(),   value.IsString(), value.IsBool(),
                            value.IsNumber(), value.IsArray(),  value.IsObject()};
    const int type = static_cast<int>(value.getType());
    for (int i = 0; i < 6; ++i) {
        if (answers[i] != (i == type)) {
            return -1;
        }
    }
    return type;
}

TEST(JSONValueTest, EachConstructorGivesItsType) {
    EXPECT_EQ(TypeOf(JSONValue()), 0);
    EXPECT_EQ(TypeOf(JSONValue("text")), 1);
    EXPECT_EQ(TypeOf(JSONValue(std::string("text"))), 1);
    EXPECT_EQ(TypeOf(JSONValue(true)), 2);
    EXPECT_EQ(TypeOf(JSONValue(1.5)), 3);
    EXPECT_EQ(TypeOf(JSONValue(1)), 3);
    EXPECT_EQ(TypeOf(JSONValue(JSONArray())), 4);
    EXPECT_EQ(TypeOf(JSONValue(JSONObject())), 5);
}

TEST(JSONValueTest, EachValueHoldsWhatItWasGiven) {
    EXPECT_EQ(JSONValue("text").AsString(), "text");
    EXPECT_EQ(JSONValue(std::string("a\0b", 3)).AsString(), std::string("a\0b", 3));
    EXPECT_TRUE(JSONValue(true).AsBool());
    EXPECT_FALSE(JSONValue(false).AsBool());
    EXPECT_EQ(JSONValue(1.5).AsNumber(), 1.5);
    EXPECT_EQ(JSONValue(-7).AsNumber(), -7);
    EXPECT_EQ(JSONValue(0).AsNumber(), 0);
}

TEST(JSONValueTest, ANullTextIsTheEmptyString) {
    const char* text = nullptr;
    const JSONValue value(text);
    EXPECT_TRUE(value.IsString());
    EXPECT_EQ(value.AsString(), "");
}

TEST(JSONValueTest, ContainersTakeThePointersThemselves) {
    auto* one = new JSONValue(1);
    auto* two = new JSONValue("two");
    const JSONValue array(JSONArray{one, two});
    ASSERT_EQ(array.AsArray().size(), 2U);
    EXPECT_EQ(array.AsArray()[0], one);
    EXPECT_EQ(array.AsArray()[1], two);
    auto* three = new JSONValue(3);
    const JSONValue object(JSONObject{{"three", three}});
    ASSERT_EQ(object.AsObject().size(), 1U);
    EXPECT_EQ(object.AsObject().at("three"), three);
}

TEST(JSONValueTest, AskedForAnotherTypeItGivesTheEmptyMember) {
    const JSONArray elements{new JSONValue(1)};
    const JSONObject members{{"a", new JSONValue(1)}};
    const JSONValue values[] = {JSONValue(),    JSONValue("text"),   JSONValue(true),
                                JSONValue(1.5), JSONValue(elements), JSONValue(members)};
    for (const JSONValue& value : values) {
        EXPECT_EQ(value.AsString(), value.IsString() ? "text" : "");
        EXPECT_EQ(value.AsBool(), value.IsBool());
        EXPECT_EQ(value.AsNumber(), value.IsNumber() ? 1.5 : 0);
        EXPECT_EQ(value.AsArray().size(), value.IsArray() ? 1U : 0U);
        EXPECT_EQ(value.AsObject().size(), value.IsObject() ? 1U : 0U);
    }
}

TEST(JSONValueTest, ParsedValuesGiveTheEmptyMemberToo) {
    const std::unique_ptr<JSONValue> root(JSON::Parse("[null,\"text\",true,1.5,[1],{\"a\":1}]"));
    ASSERT_NE(root, nullptr);
    EXPECT_TRUE(root->AsObject().empty());
    for (size_t type = 0; type < 6; ++type) {
        const JSONValue& value = *root->AsArray()[type];
        EXPECT_EQ(TypeOf(value), static_cast<int>(type));
        EXPECT_EQ(value.AsString(), type == 1 ? "text" : "");
        EXPECT_EQ(value.AsBool(), type == 2);
        EXPECT_EQ(value.AsNumber(), type == 3 ? 1.5 : 0);
        EXPECT_EQ(value.AsArray().size(), type == 4 ? 1U : 0U);
        EXPECT_EQ(value.AsObject().size(), type == 5 ? 1U : 0U);
    }
}

// The leak and double-free checks of the sanitizers judge these.
TEST(JSONValueTest, ATreeOfUsersAndParsedPartsIsDeletedAsOne) {
    auto* parsed =
        JSON::Parse("{\"a\":[1,{\"b\":\"a string of more than a few bytes\"}],\"c\":\"d\"}");
    auto* scalar = JSON::Parse("\"another string of more than a few bytes\"");
    auto* inner = new JSONValue(JSONObject{{"parsed", parsed}, {"null", nullptr}, {"s", scalar}});
    auto* more = new JSONValue(JSONArray{nullptr, inner, new JSONValue(JSONArray()),
                                         new JSONValue(JSONObject()), new JSONValue("text")});
    const JSONValue root(JSONObject{{"more", more}, {"number", new JSONValue(1)}});
    EXPECT_EQ(
        root.Stringify(),
        R"({"more":[null,{"null":null,"parsed":{"a":[1,{"b":"a string of more than a few bytes"}],)"
        R"("c":"d"},"s":"another string of more than a few bytes"},[],{},"text"],"number":1})");
}

TEST(JSONValueTest, ParseEndsBehindItsValue) {
    const char* text = "[1,{\"a\":2}] rest";
    const std::unique_ptr<JSONValue> array(JSONValue::Parse(&text));
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array->Stringify(), "[1,{\"a\":2}]");
    EXPECT_STREQ(text, " rest");
}

TEST(JSONValueTest, ParseReadsOneValueAfterTheOther) {
    const char* text = "1\"two\"[3]{\"four\":4}nullfalse-7";
    std::string written;
    for (int i = 0; i < 7; ++i) {
        const std::unique_ptr<JSONValue> value(JSONValue::Parse(&text));
        ASSERT_NE(value, nullptr) << i;
        written += value->Stringify() + ' ';
    }
    EXPECT_EQ(written, "1 \"two\" [3] {\"four\":4} null false -7 ");
    EXPECT_EQ(*text, '\0');
}

TEST(JSONValueTest, ParseDoesNotSkipWhiteSpaceBeforeTheValue) {
    const char* text = " 1";
    EXPECT_EQ(JSONValue::Parse(&text), nullptr);
    EXPECT_STREQ(text, " 1");
}

TEST(JSONValueTest, AfterAFailureTheCursorStandsWhereReadingEnded) {
    const char* text = "[1,2;3]";
    EXPECT_EQ(JSONValue::Parse(&text), nullptr);
    EXPECT_STREQ(text, ";3]");
}

TEST(JSONValueTest, ScalarsAreWritten) {
    EXPECT_EQ(JSONValue().Stringify(), "null");
    EXPECT_EQ(JSONValue(true).Stringify(), "true");
    EXPECT_EQ(JSONValue(false).Stringify(), "false");
    EXPECT_EQ(JSONValue("text").Stringify(), "\"text\"");
    EXPECT_EQ(JSONValue(100).Stringify(), "100");
}

TEST(JSONValueTest, ContainersAreWrittenWithoutAnySpace) {
    const JSONValue array(
        JSONArray{new JSONValue(1), new JSONValue("b"), new JSONValue(JSONArray())});
    EXPECT_EQ(array.Stringify(), "[1,\"b\",[]]");
    const JSONValue object(JSONObject{{"b", new JSONValue(false)}, {"a/", new JSONValue()}});
    EXPECT_EQ(object.Stringify(), "{\"a\\/\":null,\"b\":false}");
}

TEST(JSONValueTest, ANullChildIsWrittenAsNull) {
    EXPECT_EQ(JSONValue(JSONArray{nullptr, new JSONValue(1)}).Stringify(), "[null,1]");
    EXPECT_EQ(JSONValue(JSONObject{{"a", nullptr}}).Stringify(), "{\"a\":null}");
}

TEST(JSONValueTest, ByteOneIsWrittenAsFourZeros) {
    EXPECT_EQ(JSONValue("\x01").Stringify(), "\"\\u0000\"");
}

TEST(JSONValueTest, ASlashIsWrittenEscaped) {
    EXPECT_EQ(JSONValue("a/b").Stringify(), "\"a\\/b\"");
}

TEST(JSONValueTest, PiIsWrittenWithSixDigits) {
    EXPECT_EQ(JSONValue(3.14159265).Stringify(), "3.14159");
}

TEST(JSONValueTest, EveryByteIsWrittenInItsWay) {
    for (int c = 0; c < 256; ++c) {
        const std::string raw(1, static_cast<char>(c));
        std::string written = raw;
        const size_t known = std::string("\b\f\n\r\t\"\\/").find(raw);
        if (known != std::string::npos) {
            written = std::string("\\") + "bfnrt\"\\/"[known];
        } else if (c < 32) {
            written = "\\u0000";
        }
        EXPECT_EQ(Quoted(raw), '"' + written + '"') << c;
        // Somewhere in a longer text, and at each place of a word of eight bytes.
        for (size_t before = 0; before < 9; ++before) {
            const std::string text(before, 'x');
            EXPECT_EQ(Quoted(text + raw + "yyyyyyyy"), '"' + text + written + "yyyyyyyy\"") << c;
        }
    }
}

TEST(JSONValueTest, LongStringsAreWrittenWhole) {
    for (const size_t size : {255U, 256U, 257U, 4095U, 4096U, 4097U, 100000U}) {
        std::string plain(size, 'p');
        EXPECT_EQ(Quoted(plain), '"' + plain + '"');
        std::string zeros;
        for (size_t i = 0; i < size; ++i) {
            zeros += "\\u0000";
        }
        EXPECT_EQ(Quoted(std::string(size, '\x02')), '"' + zeros + '"');
    }
}

TEST(JSONValueTest, WhatIsNotFiniteIsWrittenAsNull) {
    using Limits = std::numeric_limits<double>;
    EXPECT_EQ(JSONValue(Limits::infinity()).Stringify(), "null");
    EXPECT_EQ(JSONValue(-Limits::infinity()).Stringify(), "null");
    EXPECT_EQ(JSONValue(Limits::quiet_NaN()).Stringify(), "null");
}

}  // namespace
