// Lines that come from a server, with a stand-in for the HTTP client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <string>

#include "kpl/parser/LineParser.h"
#include "tests/support/HttpStandIn.h"
#include "tests/support/LogCapture.h"

namespace {

using kpl::parser::LineParser;
using kpl::test::HttpStandIn;
using kpl::test::LogCapture;
using testing::ElementsAre;

class RemoteLinesTest : public testing::Test {
protected:
    RemoteLinesTest() { HttpStandIn::Get() = HttpStandIn(); }
    ~RemoteLinesTest() override { EXPECT_EQ(0, HttpStandIn::Get().alive); }

    void Serve(const std::string& content, int length) {
        m_server.content = content;
        m_server.length = length;
    }

    HttpStandIn& m_server = HttpStandIn::Get();
    LineParser m_parser;
};

TEST_F(RemoteLinesTest, AResourceIsReadPieceByPieceAndSplit) {
    Serve("one\r\ntwo\nthree", 14);
    m_server.pieceSize = 4;
    EXPECT_TRUE(m_parser.SetContent("http://h/x"));
    EXPECT_STREQ("one", m_parser[0]);
    EXPECT_STREQ("two", m_parser[1]);
    EXPECT_STREQ("three", m_parser[2]);
    EXPECT_EQ(nullptr, m_parser[3]);
    EXPECT_THAT(m_server.calls, ElementsAre("Open http://h/x", "GetTotalLength", "Read 14",
                                            "Read 10", "Read 6", "Read 2", "Close", "destroy"));
}

TEST_F(RemoteLinesTest, ARemoteFileWithoutALengthIsFalse) {
    for (const int length : {-1, 0, -2, INT_MIN}) {
        const LogCapture capture;
        m_server.calls.clear();
        Serve("one\ntwo\n", length);
        EXPECT_FALSE(m_parser.SetContent("http://h/x"));
        EXPECT_EQ(nullptr, m_parser[0]);
        EXPECT_THAT(m_server.calls,
                    ElementsAre("Open http://h/x", "GetTotalLength", "Close", "destroy"));
        EXPECT_THAT(
            capture.Messages(),
            ElementsAre("LineParser::SetContent(): iFileSize=" + std::to_string(length) + "\n",
                        "LineParser::SetContent(): http://h/x()\n"));
    }
}

TEST_F(RemoteLinesTest, AServerThatEndsEarlyIsFalseAndOnlyWhatCameIsLogged) {
    // The memory that comes next is not all zero.
    EXPECT_TRUE(m_parser.SetContent(std::string(1000, '#').c_str(), 1000));
    Serve("one\ntwo\n", 1000);
    const LogCapture capture;
    EXPECT_FALSE(m_parser.SetContent("https://h/x"));
    EXPECT_EQ(nullptr, m_parser[0]);
    EXPECT_THAT(capture.Messages(),
                ElementsAre("LineParser::SetContent(): iFileSize=1000\n",
                            "LineParser::SetContent(): https://h/x(one\ntwo\n)\n"));
}

TEST_F(RemoteLinesTest, ALengthBelowTheContentLimitsIt) {
    Serve("one\ntwo\n", 5);
    EXPECT_TRUE(m_parser.SetContent("http://h/x"));
    EXPECT_STREQ("one", m_parser[0]);
    EXPECT_STREQ("t", m_parser[1]);
    EXPECT_EQ(nullptr, m_parser[2]);
}

TEST_F(RemoteLinesTest, TheLargestLengthThatAServerCanClaimIsAFailureLikeAnyOther) {
    Serve("one\ntwo\n", INT_MAX);
    EXPECT_FALSE(m_parser.SetContent("http://h/x"));
    EXPECT_EQ(nullptr, m_parser[0]);
    Serve("three", 5);
    EXPECT_TRUE(m_parser.SetContent("http://h/x"));
    EXPECT_STREQ("three", m_parser[0]);
}

}  // namespace
