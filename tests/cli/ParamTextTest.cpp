#include "cli/ParamText.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include "cli/EpgBlock.h"
#include "kpl/rpc/RpcParam.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using namespace kpl::cli;
using namespace kpl::rpc;

Param Text(const std::string& bytes) {
    return {RPC_PARAM_STRING, bytes};
}

Param Struct(const std::string& bytes) {
    return {RPC_PARAM_STRUCT, bytes};
}

// The value of a worked example, which begins with its code and length.
std::string ExampleValue(const char* name) {
    return kpl::test::WireFormatsExample(name).substr(8);
}

// A list of one record.
std::string EpgBytes() {
    return ExampleValue("epg");
}

TEST(ParamTextTest, AScalarOfAnotherLengthIsShownAsItsBytes) {
    for (const int code : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}) {
        const Param param = {code, std::string("\1\2\3", 3)};
        EXPECT_EQ(TypeName(code) + " 3 bytes: 010203", ParamLine(param));
        EXPECT_EQ("{\"type\":\"" + TypeName(code) + "\",\"hex\":\"010203\"}", ParamJson(param));
        EXPECT_EQ(TypeName(code) + " 0 bytes: ", ParamLine({code, ""}));
    }
}

TEST(ParamTextTest, ACodeWithoutATypeIsShownAsItsBytes) {
    EXPECT_EQ("code 77 1 bytes: 2a", ParamLine({77, "*"}));
    EXPECT_EQ("{\"type\":\"code -1\",\"hex\":\"2a\"}", ParamJson({-1, "*"}));
}

TEST(ParamTextTest, AnyByteButZeroIsTrue) {
    EXPECT_EQ("bool true", ParamLine({RPC_PARAM_BOOL, "\2"}));
    EXPECT_EQ("{\"type\":\"bool\",\"value\":false}",
              ParamJson({RPC_PARAM_BOOL, std::string(1, '\0')}));
}

TEST(ParamTextTest, ATextIsQuoted) {
    const Param param = Text(std::string("a\"\n\0", 4));
    EXPECT_EQ("str \"a\\\"\\n\"", ParamLine(param));
    EXPECT_EQ("{\"type\":\"str\",\"value\":\"a\\\"\\u000a\"}", ParamJson(param));
}

TEST(ParamTextTest, ATextThatIsNoUtf8LosesNothing) {
    const Param param = Text(std::string("\xff\0", 2));
    EXPECT_EQ("str \"\\xff\"", ParamLine(param));
    EXPECT_EQ("{\"type\":\"str\",\"hex\":\"ff00\"}", ParamJson(param));
}

TEST(ParamTextTest, ATextWithoutItsEndIsShownAsItsBytes) {
    EXPECT_EQ("str 2 bytes: 6162", ParamLine(Text("ab")));
    EXPECT_EQ("str 0 bytes: ", ParamLine(Text("")));
    EXPECT_EQ("str 3 bytes: 610062", ParamLine(Text(std::string("a\0b", 3))));
    EXPECT_EQ("{\"type\":\"str\",\"hex\":\"610000\"}", ParamJson(Text(std::string("a\0\0", 3))));
}

TEST(ParamTextTest, AnArrayIsItsElements) {
    const std::string array = ExampleValue("array");
    EXPECT_EQ("struct array of 3, 6 bytes: 01000200ffff", ParamLine(Struct(array)));
    EXPECT_EQ("{\"type\":\"struct\",\"hex\":\"030000000600000001000200ffff\",\"elements\":3}",
              ParamJson(Struct(array)));
}

TEST(ParamTextTest, AListIsItsRecords) {
    EXPECT_EQ("struct list of 1: {1 2 \"News\" null \"\" null 3 4 5 6 7 8}",
              ParamLine(Struct(EpgBytes())));
    const std::string json = ParamJson(Struct(EpgBytes()));
    EXPECT_NE(std::string::npos,
              json.find(",\"records\":[{\"head\":[1,2],\"text\":[\"News\",null,\"\",null],"
                        "\"tail\":[3,4,5,6,7,8]}]}"))
        << json;
}

TEST(ParamTextTest, AStructureOfAnotherFormIsShownAsItsBytes) {
    EXPECT_EQ("struct 3 bytes: 010203", ParamLine(Struct("\1\2\3")));
    EXPECT_EQ("struct 63 bytes: ", ParamLine(Struct(EpgBytes() + "x")).substr(0, 17));
    EXPECT_EQ("{\"type\":\"struct\",\"hex\":\"010203\"}", ParamJson(Struct("\1\2\3")));
}

TEST(ParamTextTest, ACallbackIsItsTwoWords) {
    EXPECT_EQ("callback 01020304 05060708", ParamLine({RPC_PARAM_CALLBACK, "\1\2\3\4\5\6\7\10"}));
    EXPECT_EQ("callback 1 bytes: 01", ParamLine({RPC_PARAM_CALLBACK, "\1"}));
}

TEST(EpgBlockTest, ACutListIsNone) {
    const std::string bytes = EpgBytes();
    ASSERT_TRUE(ReadEpgBlock(bytes));
    for (size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(ReadEpgBlock(bytes.substr(0, size))) << size;
    }
}

TEST(EpgBlockTest, AHostileCountIsNoList) {
    for (const uint32_t count : {0u, 2u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 89478486u}) {
        std::string bytes = EpgBytes();
        memcpy(bytes.data(), &count, sizeof(count));
        EXPECT_FALSE(ReadEpgBlock(bytes)) << count;
    }
}

TEST(EpgBlockTest, OnlyPointersAreMasked) {
    std::string other = EpgBytes();
    const uint32_t pointer = 0x12345678;
    memcpy(other.data() + 4, &pointer, sizeof(pointer));
    memcpy(other.data() + 16, &pointer, sizeof(pointer));
    EXPECT_NE(EpgBytes(), other);
    EXPECT_EQ(EpgBytes(), MaskPointers(other));
    for (const size_t at : {8u, 12u, 32u, 56u, 60u}) {  // head, tail and text
        std::string changed = other;
        changed[at] = 'x';
        EXPECT_NE(EpgBytes(), MaskPointers(changed)) << at;
    }
}

TEST(EpgBlockTest, ANullTextIsNoText) {
    std::string other = EpgBytes();
    memset(other.data() + 24, 0, 4);  // text 3
    other.pop_back();
    EXPECT_NE(MaskPointers(EpgBytes()), MaskPointers(other));
}

// 48-byte elements whose middle is zero read as records without texts as well.
TEST(EpgBlockTest, AnArraysSizeIsNoPointer) {
    std::string bytes(8 + 48, '\0');
    bytes[0] = 1;
    bytes[4] = 48;
    ASSERT_TRUE(ReadEpgBlock(bytes));
    EXPECT_EQ(bytes, MaskPointers(bytes));
}

}  // namespace
