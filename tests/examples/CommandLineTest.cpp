#include "CommandLine.h"

#include <gtest/gtest.h>

namespace {

using guide::CommandLine;

class GuideCommandLineTest : public testing::Test {
protected:
    std::string Parse(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), "program");
        m_line.AddOption("--name", &m_name);
        m_line.AddFlag("--loud", &m_isLoud);
        return m_line.Parse(static_cast<int>(arguments.size()), arguments.data());
    }

    CommandLine m_line;
    std::string m_name = "default";
    bool m_isLoud = false;
};

TEST_F(GuideCommandLineTest, WithoutArgumentsEverythingStays) {
    EXPECT_EQ("", Parse({}));
    EXPECT_EQ("default", m_name);
    EXPECT_FALSE(m_isLoud);
    EXPECT_TRUE(m_line.Words().empty());
}

TEST_F(GuideCommandLineTest, OptionsMayStandBetweenWords) {
    EXPECT_EQ("", Parse({"find", "--name", "Ann", "--loud", "text"}));
    EXPECT_EQ("Ann", m_name);
    EXPECT_TRUE(m_isLoud);
    EXPECT_EQ((std::vector<std::string>{"find", "text"}), m_line.Words());
}

TEST_F(GuideCommandLineTest, AValueMayBeEmptyOrLookLikeAnOption) {
    EXPECT_EQ("", Parse({"--name", "--loud"}));
    EXPECT_EQ("--loud", m_name);
    EXPECT_FALSE(m_isLoud);
}

TEST_F(GuideCommandLineTest, BehindTwoDashesEverythingIsAWord) {
    EXPECT_EQ("", Parse({"--", "--name"}));
    EXPECT_EQ(std::vector<std::string>{"--name"}, m_line.Words());
}

TEST_F(GuideCommandLineTest, AnUnknownOptionIsAnError) {
    EXPECT_EQ("unknown option '--nome' (--help lists them)", Parse({"--nome", "x"}));
}

TEST_F(GuideCommandLineTest, AMissingValueIsAnError) {
    EXPECT_EQ("option '--name' needs a value", Parse({"--name"}));
}

}  // namespace
