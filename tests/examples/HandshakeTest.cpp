#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "handshake/Opening.h"
#include "handshake/Protocol.h"
#include "kpl/net/WebSocketHandshake.h"
#include "tests/examples/Program.h"
#include "tests/net/NetTestSupport.h"

namespace {

using kpl::test::ConnectedPair;
using kpl::test::NetTest;
using kpl::test::Peer;
using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;

// The draft's request; its body follows the empty line.
const std::string kHeader =
    "GET /demo HTTP/1.1\r\n"
    "Host: example.com\r\n"
    "Connection: Upgrade\r\n"
    "Sec-WebSocket-Key2: 12998 5 Y3 1  .P00\r\n"
    "Sec-WebSocket-Protocol: sample\r\n"
    "Upgrade: WebSocket\r\n"
    "Sec-WebSocket-Key1: 4 @1  46546xW%0l 1 5\r\n"
    "Origin: http://example.com\r\n"
    "\r\n";
const std::string kBody = "^n:ds[4U";
const std::string kAnswer =
    "HTTP/1.1 101 WebSocket Protocol Handshake\r\n"
    "Upgrade: WebSocket\r\n"
    "Connection: Upgrade\r\n"
    "Sec-WebSocket-Origin: http://example.com\r\n"
    "Sec-WebSocket-Location: ws://example.com/demo\r\n"
    "\r\n"
    "8jKS'y:G*Co,Wxa-";

std::string Text(const std::string& text) {
    return std::string(1, '\0') + text + '\xff';
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
    return text.replace(text.find(what), what.size(), with);
}

// One connection whose processor the test itself drives, piece by piece.
class HandshakeProtocolTest : public NetTest {
protected:
    void SetUp() override {
        NetTest::SetUp();
        ConnectedPair pair;
        m_served = pair.served;
        m_peer = std::make_unique<Peer>(std::move(pair.peer));
        m_processor =
            std::make_unique<handshake::Processor>(new kpl::net::CSocket(m_served), nullptr);
    }

    void TearDown() override {
        m_processor.reset();
        m_peer.reset();
        NetTest::TearDown();
    }

    // Whether the connection stays open after these bytes, which are received at once.
    bool Serve(const std::string& bytes) {
        EXPECT_TRUE(m_peer->Send(bytes));
        pollfd ready = {m_served, POLLIN, 0};
        EXPECT_EQ(1, poll(&ready, 1, 10000));
        return m_processor->Process();
    }

    bool HasAnswer() const {
        pollfd ready = {m_peer->Fd(), POLLIN, 0};
        return poll(&ready, 1, 0) == 1;
    }

    std::string Answer() const { return m_peer->Read(kAnswer.size()); }

    // Nothing was sent but what the test has read already.
    void ExpectEndWithoutAnswer() {
        m_processor.reset();
        EXPECT_EQ("", m_peer->ReadToEnd());
    }

    int m_served = -1;
    std::unique_ptr<Peer> m_peer;
    std::unique_ptr<handshake::Processor> m_processor;
};

TEST_F(HandshakeProtocolTest, TheDraftsRequestGetsTheDraftsAnswer) {
    EXPECT_TRUE(Serve(kHeader + kBody));
    EXPECT_EQ(kAnswer, Answer());
}

TEST_F(HandshakeProtocolTest, ARequestMayComeInPieces) {
    const std::string request = kHeader + kBody;
    for (const char c : request.substr(0, request.size() - 1)) {
        ASSERT_TRUE(Serve(std::string(1, c)));
        ASSERT_FALSE(HasAnswer());
    }
    EXPECT_TRUE(Serve(request.substr(request.size() - 1)));
    EXPECT_EQ(kAnswer, Answer());
}

TEST_F(HandshakeProtocolTest, WithoutItsBodyARequestGetsNoAnswer) {
    EXPECT_TRUE(Serve(kHeader));
    EXPECT_FALSE(HasAnswer());
    EXPECT_TRUE(Serve(kBody.substr(0, 7)));
    EXPECT_FALSE(HasAnswer());
    shutdown(m_peer->Fd(), SHUT_WR);
    EXPECT_FALSE(Serve(""));
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, AKeyWithoutSpacesIsRefused) {
    EXPECT_FALSE(Serve(Replaced(kHeader, "4 @1  46546xW%0l 1 5", "4@146546xW%0l15") + kBody));
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, TheOtherKeyWithoutSpacesIsRefused) {
    EXPECT_FALSE(Serve(Replaced(kHeader, "12998 5 Y3 1  .P00", "129985Y31.P00") + kBody));
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, ARequestWithoutAKeyIsRefused) {
    EXPECT_FALSE(Serve(Replaced(kHeader, "Sec-WebSocket-Key1", "Sec-WebSocket-Key3") + kBody));
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, ASecondHandshakeIsRefused) {
    EXPECT_TRUE(Serve(kHeader + kBody));
    EXPECT_EQ(kAnswer, Answer());
    EXPECT_FALSE(Serve(kHeader + kBody));
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, ASecondHandshakeInTheSamePieceIsRefused) {
    EXPECT_FALSE(Serve(kHeader + kBody + kHeader + kBody));
    EXPECT_EQ(kAnswer, Answer());
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, TextsComeBackInPiecesOrTogether) {
    const std::string texts = Text("one") + Text("") + Text("three");
    EXPECT_TRUE(Serve(kHeader + kBody + Text("with it")));
    EXPECT_EQ(kAnswer, Answer());
    EXPECT_EQ(Text("with it"), m_peer->Read(9));
    EXPECT_TRUE(Serve(texts));
    EXPECT_EQ(texts, m_peer->Read(texts.size()));
    EXPECT_TRUE(Serve(Text("four").substr(0, 3)));
    EXPECT_FALSE(HasAnswer());
    EXPECT_TRUE(Serve(Text("four").substr(3)));
    EXPECT_EQ(Text("four"), m_peer->Read(6));
}

TEST_F(HandshakeProtocolTest, ATextBeforeTheHandshakeEndsTheConnection) {
    EXPECT_FALSE(Serve(Text("too early")));
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, WhatIsNeitherEndsTheConnection) {
    EXPECT_TRUE(Serve("G"));
    EXPECT_FALSE(Serve("OPHER"));
    ExpectEndWithoutAnswer();
}

TEST_F(HandshakeProtocolTest, ARequestThatNeverEndsEndsTheConnection) {
    const std::string flood = "GET /" + std::string(9000, 'x');
    EXPECT_TRUE(Serve(flood.substr(0, 8191)));
    EXPECT_FALSE(Serve(flood.substr(8191)));
    m_processor.reset();
    EXPECT_TRUE(m_peer->HasEnded());
}

TEST_F(HandshakeProtocolTest, AFieldInAnotherCaseIsFound) {
    EXPECT_TRUE(Serve(Replaced(kHeader, "Sec-WebSocket-Key1", "sec-websocket-KEY1") + kBody));
    EXPECT_EQ(kAnswer, Answer());
}

TEST(HandshakeOpeningTest, KeysAreMadeAsTheDraftSays) {
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i) {
        const std::string key = handshake::MakeKey(&random);
        std::string digits;
        std::copy_if(key.begin(), key.end(), std::back_inserter(digits),
                     [](char c) { return c >= '0' && c <= '9'; });
        const auto spaces =
            static_cast<unsigned long long>(std::count(key.begin(), key.end(), ' '));
        ASSERT_TRUE(spaces >= 1 && spaces <= 12) << key;
        ASSERT_EQ(0U, std::stoull(digits) % spaces) << key;
        ASSERT_LE(std::stoull(digits), 4294967295ULL) << key;
        ASSERT_EQ(std::stoull(digits) / spaces, doStuffToObtainAnInt32(key.c_str())) << key;
        ASSERT_TRUE(key.front() != ' ' && key.back() != ' ') << key;
        ASSERT_TRUE(
            std::all_of(key.begin(), key.end(), [](char c) { return c >= ' ' && c <= '~'; }));
    }
}

// The two programs, as processes.
class HandshakeProgramsTest : public testing::Test {
protected:
    void SetUp() override {
        m_server = std::make_unique<Program>("handshake_server", std::vector<std::string>());
        const std::string ready = "handshake_server: ready on port ";
        ASSERT_TRUE(m_server->WaitForOutput("\n")) << m_server->Errors();
        ASSERT_EQ(ready, m_server->Output().substr(0, ready.size()));
        m_port = std::stoi(m_server->Output().substr(ready.size()));
    }

    void TearDown() override {
        m_server->Kill(SIGTERM);
        EXPECT_EQ(0, m_server->Wait());
    }

    ProgramResult RunClient(const std::string& text) const {
        return RunProgram("handshake_client", {std::to_string(m_port), text});
    }

    int m_port = 0;
    std::unique_ptr<Program> m_server;
};

TEST_F(HandshakeProgramsTest, TheClientGetsItsTextBack) {
    const ProgramResult client = RunClient("good evening");
    EXPECT_EQ("handshake_client: the handshake is answered\nhandshake_client: good evening\n",
              client.output);
    EXPECT_EQ("", client.errors);
    EXPECT_EQ(0, client.code);
}

TEST_F(HandshakeProgramsTest, RefusedClientsDoNotDisturbOthers) {
    const Peer idle = Peer::ConnectTo(m_port);
    const Peer early = Peer::ConnectTo(m_port);
    ASSERT_TRUE(early.Send(Text("too early")));
    EXPECT_TRUE(early.HasEnded());
    const Peer again = Peer::ConnectTo(m_port);
    ASSERT_TRUE(again.Send(kHeader + kBody));
    EXPECT_EQ(kAnswer, again.Read(kAnswer.size()));
    ASSERT_TRUE(again.Send(kHeader + kBody));
    EXPECT_EQ("", again.ReadToEnd());
    EXPECT_EQ(0, RunClient("still here").code);
}

TEST_F(HandshakeProgramsTest, APortInUseIsRefused) {
    const ProgramResult second = RunProgram("handshake_server", {std::to_string(m_port)});
    EXPECT_EQ(1, second.code);
    EXPECT_EQ("", second.output);
    EXPECT_NE(std::string::npos, second.errors.find("handshake_server: cannot have that port\n"));
}

TEST(HandshakeClientTest, WithoutAServerItSaysSo) {
    const ProgramResult client = RunProgram("handshake_client", {"1", "text"});
    EXPECT_EQ(1, client.code);
    EXPECT_NE(std::string::npos, client.errors.find("handshake_client: there is no server\n"));
}

TEST(HandshakeClientTest, CalledTheWrongWayItSaysHow) {
    const ProgramResult client = RunProgram("handshake_client", {"1"});
    EXPECT_EQ(2, client.code);
    EXPECT_EQ("usage: handshake_client PORT TEXT\n", client.errors);
}

}  // namespace
