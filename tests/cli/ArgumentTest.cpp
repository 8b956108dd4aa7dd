#include "cli/Argument.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "cli/ParamText.h"
#include "cli/Text.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::cli;

// What the argument is shown as again; why not, if it is none.
std::string Shown(const std::string& argument) {
    std::string fault;
    const auto param = ParseArgument(argument, &fault);
    return param ? ParamLine(*param) : fault;
}

void ExpectRefused(const std::string& type, const std::string& value) {
    EXPECT_EQ("'" + value + "' is no " + type + ", or does not fit into one",
              Shown(type + ":" + value));
}

TEST(ArgumentTest, EveryTypeKeepsItsLimits) {
    for (const std::string argument : {"short:-32768",
                                       "short:32767",
                                       "ushort:65535",
                                       "int:-2147483648",
                                       "int:2147483647",
                                       "uint:4294967295",
                                       "long:-2147483648",
                                       "long:2147483647",
                                       "ulong:4294967295",
                                       "longlong:-9223372036854775808",
                                       "longlong:9223372036854775807",
                                       "ulonglong:18446744073709551615",
                                       "char:-128",
                                       "char:127",
                                       "uchar:255",
                                       "double:0.1",
                                       "double:-inf",
                                       "double:nan",
                                       "double:5e-324",
                                       "float:3.4028235e+38",
                                       "bool:true",
                                       "bool:false"}) {
        std::string shown = argument;
        shown[shown.find(':')] = ' ';
        EXPECT_EQ(shown, Shown(argument));
    }
}

TEST(ArgumentTest, BeyondItsLimitsATypeIsRefused) {
    ExpectRefused("short", "32768");
    ExpectRefused("ushort", "65536");
    ExpectRefused("ushort", "-1");
    ExpectRefused("int", "2147483648");
    ExpectRefused("uint", "4294967296");
    ExpectRefused("long", "2147483648");  // also where a long has 64 bits: 32 travel
    ExpectRefused("ulong", "4294967296");
    ExpectRefused("longlong", "9223372036854775808");
    ExpectRefused("ulonglong", "18446744073709551616");
    ExpectRefused("char", "128");
    ExpectRefused("uchar", "256");
    ExpectRefused("double", "1e999");
    ExpectRefused("float", "1e39");
    ExpectRefused("bool", "yes");
    ExpectRefused("int", "");
    ExpectRefused("double", "");
    ExpectRefused("double", " 1");
    ExpectRefused("double", "1x");
    ExpectRefused("char", "''");
}

TEST(ArgumentTest, ThereAreOtherWaysToWriteSome) {
    EXPECT_EQ("bool true", Shown("bool:1"));
    EXPECT_EQ("bool false", Shown("bool:0"));
    EXPECT_EQ("int -31", Shown("int:-0x1f"));
    EXPECT_EQ("char 65", Shown("char:'A'"));
    EXPECT_EQ("uchar 39", Shown("uchar:'''"));
    EXPECT_EQ("double 8", Shown("double:0x1p3"));
}

TEST(ArgumentTest, AStringIsEverythingBehindTheColon) {
    EXPECT_EQ("str \"a:b=c\"", Shown("str:a:b=c"));
    EXPECT_EQ("str \"\"", Shown("str:"));
}

TEST(ArgumentTest, WhatHasNoKnownTypeIsRefused) {
    EXPECT_EQ("'hello' is no argument: it has no type, as in str:hello", Shown("hello"));
    EXPECT_EQ("'int32' is no type of an argument; `kpl-rpc help call` lists them",
              Shown("int32:5"));
    EXPECT_EQ("'' is no type of an argument; `kpl-rpc help call` lists them", Shown(":5"));
    EXPECT_EQ("'file/0' is no type of an argument; `kpl-rpc help call` lists them",
              Shown("file/0:x"));
}

class FileArgumentTest : public testing::Test {
protected:
    std::string Write(const std::string& bytes) const {
        std::ofstream(m_path, std::ios::binary) << bytes;
        return m_path;
    }

    kpl::test::TempDir m_directory;
    const std::string m_path = m_directory.Path() + "/elements";
};

TEST_F(FileArgumentTest, AFileIsAnArray) {
    Write(std::string("\1\0\2\0\xff\xff", 6));
    EXPECT_EQ("struct array of 6, 6 bytes: 01000200ffff", Shown("file:" + m_path));
    EXPECT_EQ("struct array of 3, 6 bytes: 01000200ffff", Shown("file/2:" + m_path));
    Write("");
    EXPECT_EQ("struct array of 0, 0 bytes: ", Shown("file:" + m_path));
}

TEST_F(FileArgumentTest, TheElementsMustFillTheFile) {
    Write("12345");
    EXPECT_EQ("'" + m_path + "' has 5 bytes, which is no whole number of elements of 2",
              Shown("file/2:" + m_path));
}

TEST_F(FileArgumentTest, WhatCannotBeReadAtOnceIsRefused) {
    EXPECT_EQ("cannot read '" + m_path + "': No such file or directory", Shown("file:" + m_path));
    EXPECT_EQ("'/' is no regular file", Shown("file:/"));
    ASSERT_EQ(0, mkfifo(m_path.c_str(), 0600));
    EXPECT_EQ("'" + m_path + "' is no regular file", Shown("file:" + m_path));
}

TEST_F(FileArgumentTest, AFileLargerThanACommandIsRefused) {
    Write(std::string(16385, 'x'));
    EXPECT_EQ("'" + m_path + "' has more than 16384 bytes", Shown("file:" + m_path));
}

}  // namespace
