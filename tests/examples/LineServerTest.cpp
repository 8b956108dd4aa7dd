#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <string>

#include "tests/examples/HttpClient.h"
#include "tests/examples/Program.h"

namespace {

using kpl::test::HttpClient;
using kpl::test::PortIn;
using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;

class LineServerTest : public testing::Test {
protected:
    LineServerTest() : m_server("line_server", {"0"}) {
        EXPECT_TRUE(m_server.WaitForOutput("\n"));
        m_port = PortIn(m_server.Output());
    }
    ~LineServerTest() override {
        m_server.Kill(SIGTERM);
        EXPECT_EQ(0, m_server.Wait());
        EXPECT_EQ("line_server: ready on port " + std::to_string(m_port) + "\n", m_server.Output());
    }

    Program m_server;
    int m_port = 0;
};

TEST_F(LineServerTest, EveryLineIsAnsweredInCapitals) {
    HttpClient client(m_port);
    ASSERT_TRUE(client.Send("hello\n"));
    EXPECT_EQ("HELLO\n", client.ReadBytes(6));
    ASSERT_TRUE(client.Send("one\r\nTwo\n\nthr"));
    EXPECT_EQ("ONE\r\nTWO\n\n", client.ReadBytes(10));
    ASSERT_TRUE(client.Send("ee\n"));
    EXPECT_EQ("THREE\n", client.ReadBytes(6));
}

TEST_F(LineServerTest, ConnectionsAreServedSideBySide) {
    HttpClient first(m_port);
    HttpClient second(m_port);
    ASSERT_TRUE(first.Send("a"));
    ASSERT_TRUE(second.Send("b\n"));
    EXPECT_EQ("B\n", second.ReadBytes(2));
    ASSERT_TRUE(first.Send("c\n"));
    EXPECT_EQ("AC\n", first.ReadBytes(3));
}

TEST_F(LineServerTest, ALineLongerThanTheBufferEndsItsConnectionAlone) {
    HttpClient other(m_port);
    HttpClient client(m_port);
    const std::string longest(8190, 'x');
    ASSERT_TRUE(client.Send(longest + "\n"));
    EXPECT_EQ(std::string(8190, 'X') + "\n", client.ReadBytes(8191));
    ASSERT_TRUE(client.Send(longest + "xx"));
    EXPECT_EQ("", client.ReadBytes(1));
    ASSERT_TRUE(other.Send("a\n"));
    EXPECT_EQ("A\n", other.ReadBytes(2));
}

TEST_F(LineServerTest, ItStopsWithConnectionsOpen) {
    HttpClient idle(m_port);
    HttpClient half(m_port);
    ASSERT_TRUE(idle.Send("a\n"));
    EXPECT_EQ("A\n", idle.ReadBytes(2));
    ASSERT_TRUE(half.Send("half"));
}

TEST(LineServerStartTest, APortInUseIsSaidSo) {
    const int other = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(0, bind(other, reinterpret_cast<sockaddr*>(&address), size));
    ASSERT_EQ(0, listen(other, 1));
    ASSERT_EQ(0, getsockname(other, reinterpret_cast<sockaddr*>(&address), &size));
    const ProgramResult result =
        RunProgram("line_server", {std::to_string(ntohs(address.sin_port))});
    EXPECT_EQ(1, result.code);
    EXPECT_NE(std::string::npos, result.errors.find("line_server: cannot have the port\n"));
    shutdown(other, SHUT_RDWR);
}

}  // namespace
