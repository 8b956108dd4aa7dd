#include "kpl/parser/LineParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using kpl::parser::LineParser;
using kpl::test::LogCapture;
using kpl::test::TempDir;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> LinesOf(LineParser* parser) {
    std::vector<std::string> lines;
    for (unsigned int i = 0; (*parser)[i] != nullptr; ++i) {
        lines.emplace_back((*parser)[i]);
    }
    return lines;
}

// The lines of a text that is in memory.
std::vector<std::string> Split(const std::string& text) {
    LineParser parser;
    const bool result = parser.SetContent(text.data(), static_cast<unsigned int>(text.size()));
    EXPECT_EQ(result, parser[0] != nullptr);
    return LinesOf(&parser);
}

TEST(LineParserTest, ALineFeedEndsALineAndOneCarriageReturnBeforeItGoes) {
    EXPECT_THAT(Split("a\r\n\r\nb\n"), ElementsAre("a", "b"));
    EXPECT_THAT(Split("a\nb"), ElementsAre("a", "b"));
    EXPECT_THAT(Split("a\r\r\nb"), ElementsAre("a\r", "b"));
    EXPECT_THAT(Split(" \n\t\n"), ElementsAre(" ", "\t"));
}

TEST(LineParserTest, EmptyLinesAreDropped) {
    EXPECT_THAT(Split("\n\n"), IsEmpty());
    EXPECT_THAT(Split("\n\na\n\n\nb\n\n"), ElementsAre("a", "b"));
    EXPECT_THAT(Split("\r\n\r\n"), IsEmpty());
    EXPECT_THAT(Split("\r\r\n"), ElementsAre("\r"));
}

TEST(LineParserTest, OnlyLineFeedsMakeParseFalse) {
    LineParser parser;
    char text[] = "\n\n";
    EXPECT_FALSE(parser.Parse(text, 3));
    EXPECT_EQ(nullptr, parser[0]);
}

TEST(LineParserTest, ACarriageReturnAtTheVeryEndStays) {
    EXPECT_THAT(Split("x\r"), ElementsAre("x\r"));
    EXPECT_THAT(Split("x\n\r"), ElementsAre("x", "\r"));
}

TEST(LineParserTest, CarriageReturnsInsideALineStay) {
    EXPECT_THAT(Split("a\rb\nc"), ElementsAre("a\rb", "c"));
}

TEST(LineParserTest, OnlyCarriageReturnsAreOneLine) {
    EXPECT_THAT(Split(std::string(5000, '\r')), ElementsAre(std::string(5000, '\r')));
    EXPECT_THAT(Split("\r"), ElementsAre("\r"));
}

TEST(LineParserTest, BytesAbove127AreKept) {
    EXPECT_THAT(Split("\xFF\n\x80\x8A\x8D\r\n\xC3\xA4"),
                ElementsAre("\xFF", "\x80\x8A\x8D", "\xC3\xA4"));
}

TEST(LineParserTest, AZeroByteEndsTheText) {
    EXPECT_THAT(Split(std::string("a\nb\0c\nd\n", 8)), ElementsAre("a", "b"));
    EXPECT_THAT(Split(std::string("\0a\n", 3)), IsEmpty());
    EXPECT_THAT(Split(std::string(100, '\0')), IsEmpty());
}

TEST(LineParserTest, TheLengthLimitsTheText) {
    LineParser parser;
    EXPECT_TRUE(parser.SetContent("ab\ncd", 4));
    EXPECT_THAT(LinesOf(&parser), ElementsAre("ab", "c"));
    const char unterminated[] = {'x', '\n', 'y'};
    EXPECT_TRUE(parser.SetContent(unterminated, 3));
    EXPECT_THAT(LinesOf(&parser), ElementsAre("x", "y"));
}

TEST(LineParserTest, NullAndNothingAreRefusedAndLeaveTheContent) {
    LineParser parser;
    EXPECT_TRUE(parser.SetContent("ab", 2));
    EXPECT_FALSE(parser.SetContent(nullptr, 5));
    EXPECT_FALSE(parser.SetContent("x", 0));
    EXPECT_FALSE(parser.SetContent(nullptr));
    EXPECT_FALSE(parser.SetContent(""));
    EXPECT_FALSE(parser.Parse(nullptr, 5));
    char text[] = "x";
    EXPECT_FALSE(parser.Parse(text, 0));
    EXPECT_THAT(LinesOf(&parser), ElementsAre("ab"));
}

TEST(LineParserTest, TheLargestLengthIsRefused) {
    LineParser parser;
    EXPECT_FALSE(parser.SetContent("x", UINT_MAX));
    EXPECT_EQ(nullptr, parser[0]);
    EXPECT_TRUE(parser.SetContent("x", 1));
}

TEST(LineParserTest, SetContentReplacesAndCopies) {
    LineParser parser;
    std::string text = "one\ntwo";
    EXPECT_TRUE(parser.SetContent(text.data(), 7));
    text.assign(7, '#');
    EXPECT_THAT(LinesOf(&parser), ElementsAre("one", "two"));
    EXPECT_TRUE(parser.SetContent("three", 5));
    EXPECT_THAT(LinesOf(&parser), ElementsAre("three"));
    EXPECT_FALSE(parser.SetContent("\n", 1));
    EXPECT_EQ(nullptr, parser[0]);
}

TEST(LineParserTest, ALineMayBeTheNextContent) {
    LineParser parser;
    const std::string line(1000, 'x');
    const std::string text = "a\n" + line;
    EXPECT_TRUE(parser.SetContent(text.data(), static_cast<unsigned int>(text.size())));
    EXPECT_TRUE(parser.SetContent(parser[1], static_cast<unsigned int>(line.size())));
    EXPECT_THAT(LinesOf(&parser), ElementsAre(line));
}

TEST(LineParserTest, ParseAddsToTheLinesAndSplitsInPlace) {
    LineParser parser;
    char first[] = "a\r\nb\n";
    char second[] = "c";
    char none[] = "\n";
    EXPECT_TRUE(parser.Parse(first, sizeof(first)));
    EXPECT_TRUE(parser.Parse(second, 1));  // the size means nothing but "some"
    EXPECT_TRUE(parser.Parse(none, 2));    // lines from earlier calls count
    EXPECT_THAT(LinesOf(&parser), ElementsAre("a", "b", "c"));
    EXPECT_EQ(first, parser[0]);
    EXPECT_EQ(first + 3, parser[1]);
    EXPECT_EQ(second, parser[2]);
    EXPECT_EQ(0, memcmp(first, "a\0\0b\0", 6));
}

TEST(LineParserTest, WhatStandsBeforeTheTextIsLeftAlone) {
    LineParser parser;
    char text[] = "\r\nx";
    EXPECT_TRUE(parser.Parse(text + 1, 2));
    EXPECT_EQ('\r', text[0]);
    EXPECT_STREQ("x", parser[0]);
}

TEST(LineParserTest, TheIndexBehindTheLastLineGivesNull) {
    LineParser parser;
    EXPECT_EQ(nullptr, parser[0]);
    EXPECT_TRUE(parser.SetContent("a\nb", 3));
    EXPECT_STREQ("b", parser[1]);
    EXPECT_EQ(nullptr, parser[2]);
    EXPECT_EQ(nullptr, parser[UINT_MAX]);
}

TEST(LineParserTest, ReleaseBufferForgetsTheLines) {
    LineParser parser;
    EXPECT_TRUE(parser.SetContent("a\nb", 3));
    parser.ReleaseBuffer();
    EXPECT_EQ(nullptr, parser[0]);
    parser.ReleaseBuffer();
    EXPECT_TRUE(parser.SetContent("c", 1));
    EXPECT_THAT(LinesOf(&parser), ElementsAre("c"));
}

class LineParserFileTest : public testing::Test {
protected:
    std::string Write(const std::string& text) {
        std::ofstream(m_path, std::ios::binary | std::ios::trunc) << text;
        return m_path;
    }

    TempDir m_directory;
    const std::string m_path = m_directory.Path() + "/lines";
    LineParser m_parser;
};

TEST_F(LineParserFileTest, AFileIsSplitAndLogged) {
    Write("a\r\n\nb");
    const LogCapture capture;
    EXPECT_TRUE(m_parser.SetContent(m_path.c_str()));
    EXPECT_THAT(LinesOf(&m_parser), ElementsAre("a", "b"));
    EXPECT_THAT(capture.Messages(),
                ElementsAre("LineParser::SetContent(): iFileSize=5\n",
                            "LineParser::SetContent(): " + m_path + "(a\r\n\nb)\n"));
}

TEST_F(LineParserFileTest, NothingIsLoggedWhileTheLogIsOff) {
    Write("a");
    const LogCapture capture(LogCapture::Debug::Off);
    EXPECT_TRUE(m_parser.SetContent(m_path.c_str()));
    EXPECT_FALSE(m_parser.SetContent("/no/such/file"));
    EXPECT_THAT(capture.Messages(), IsEmpty());
}

TEST_F(LineParserFileTest, AnEmptyFileIsFalse) {
    Write("");
    const LogCapture capture;
    EXPECT_FALSE(m_parser.SetContent(m_path.c_str()));
    EXPECT_EQ(nullptr, m_parser[0]);
    EXPECT_THAT(capture.Messages(), ElementsAre("LineParser::SetContent(): iFileSize=0\n",
                                                "LineParser::SetContent(): " + m_path + "()\n"));
}

TEST_F(LineParserFileTest, AFileWithoutALineIsFalse) {
    Write("\n\r\n\n");
    EXPECT_FALSE(m_parser.SetContent(m_path.c_str()));
    Write(std::string(10, '\0'));
    EXPECT_FALSE(m_parser.SetContent(m_path.c_str()));
}

TEST_F(LineParserFileTest, AFailedOpenIsFalseAndForgetsTheContent) {
    EXPECT_TRUE(m_parser.SetContent("a", 1));
    const LogCapture capture;
    EXPECT_FALSE(m_parser.SetContent((m_path + "-none").c_str()));
    EXPECT_EQ(nullptr, m_parser[0]);
    EXPECT_THAT(capture.Messages(), IsEmpty());
}

TEST_F(LineParserFileTest, ADirectoryIsFalse) {
    EXPECT_FALSE(m_parser.SetContent(m_directory.c_str()));
    EXPECT_EQ(nullptr, m_parser[0]);
}

TEST_F(LineParserFileTest, AFileWithoutASizeIsFalse) {
    const LogCapture capture;
    EXPECT_FALSE(m_parser.SetContent("/proc/self/status"));  // 0 bytes, it says
    EXPECT_TRUE(capture.Contains("LineParser::SetContent(): iFileSize=0\n"));
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    EXPECT_FALSE(m_parser.SetContent(("/proc/self/fd/" + std::to_string(ends[0])).c_str()));
    EXPECT_TRUE(capture.Contains("LineParser::SetContent(): iFileSize=-1\n"));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LineParserFileTest, ALineMayNameTheNextFile) {
    Write("x\ny\n");
    EXPECT_TRUE(m_parser.SetContent(m_path.data(), static_cast<unsigned int>(m_path.size())));
    EXPECT_TRUE(m_parser.SetContent(m_parser[0]));
    EXPECT_THAT(LinesOf(&m_parser), ElementsAre("x", "y"));
}

TEST_F(LineParserFileTest, AZeroByteEndsAFileToo) {
    Write(std::string("a\nb\0c\nd", 7));
    EXPECT_TRUE(m_parser.SetContent(m_path.c_str()));
    EXPECT_THAT(LinesOf(&m_parser), ElementsAre("a", "b"));
}

TEST_F(LineParserFileTest, AFileOf100MegabytesIsSplitWhole) {
    constexpr unsigned int kLines = 1000000;
    {
        FILE* file = fopen(m_path.c_str(), "wb");
        ASSERT_NE(nullptr, file);
        for (unsigned int i = 0; i < kLines; ++i) {
            fprintf(file, "%0103u\r\n", i);
        }
        ASSERT_EQ(0, fclose(file));
    }
    struct stat status {};
    ASSERT_EQ(0, stat(m_path.c_str(), &status));
    ASSERT_GT(status.st_size, 100 << 20);
    ASSERT_TRUE(m_parser.SetContent(m_path.c_str()));
    for (unsigned int i = 0; i < kLines; ++i) {
        ASSERT_EQ(103u, strlen(m_parser[i]));
        ASSERT_EQ(i, strtoul(m_parser[i], nullptr, 10));
    }
    EXPECT_EQ(nullptr, m_parser[kLines]);
}

TEST_F(LineParserFileTest, WithoutAJavaMachineAnAddressIsFalse) {
    const LogCapture capture;
    EXPECT_FALSE(m_parser.SetContent("http://127.0.0.1:9/x"));
    EXPECT_TRUE(capture.Contains("LineParser::SetContent(): iFileSize=0\n"));
}

}  // namespace
