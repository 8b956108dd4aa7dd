#include "cli/CommandLine.h"

#include <gtest/gtest.h>

namespace {

using kpl::cli::CommandLine;
using kpl::cli::OptionInfo;
using Words = std::vector<std::string>;

const std::vector<OptionInfo> kKnown = {
    {"--json", nullptr, ""}, {"--timeout", "MS", ""}, {"-c", "N", ""}};

TEST(CliCommandLineTest, OptionsMayStandAnywhere) {
    CommandLine line;
    EXPECT_EQ("", line.Parse({"Foo", "--json", "-c", "5", "Bar", "--timeout=7"}, kKnown));
    EXPECT_EQ((Words{"Foo", "Bar"}), line.Words());
    EXPECT_TRUE(line.Has("--json"));
    EXPECT_EQ("5", line.Value("-c", ""));
    EXPECT_EQ("7", line.Value("--timeout", ""));
}

TEST(CliCommandLineTest, BehindTwoDashesThereAreOnlyWords) {
    CommandLine line;
    EXPECT_EQ("", line.Parse({"--", "--json", "--"}, kKnown));
    EXPECT_EQ((Words{"--json", "--"}), line.Words());
    EXPECT_FALSE(line.Has("--json"));
}

TEST(CliCommandLineTest, ASingleDashIsAWord) {
    CommandLine line;
    EXPECT_EQ("", line.Parse({"-"}, kKnown));
    EXPECT_EQ(Words{"-"}, line.Words());
}

TEST(CliCommandLineTest, WhatIsWrongIsSaid) {
    EXPECT_EQ("unknown option '--jsn'", CommandLine().Parse({"--jsn"}, kKnown));
    EXPECT_EQ("option '--json' takes no value", CommandLine().Parse({"--json=1"}, kKnown));
    EXPECT_EQ("option '-c' needs a value: -c N", CommandLine().Parse({"-c"}, kKnown));
}

TEST(CliCommandLineTest, NumbersHaveARange) {
    CommandLine line;
    std::string fault;
    ASSERT_EQ("", line.Parse({"-c", "11", "--timeout", "x"}, kKnown));
    EXPECT_EQ(11, line.Number("-c", 1, 1, 11, &fault));
    EXPECT_EQ(3, line.Number("-i", 3, 1, 11, &fault));
    EXPECT_EQ("", fault);
    EXPECT_EQ(std::nullopt, line.Number("-c", 1, 1, 10, &fault));
    EXPECT_EQ("'11' is no value for -c (1 to 10)", fault);
    EXPECT_EQ(std::nullopt, line.Number("--timeout", 1, 1, 10, &fault));
}

}  // namespace
