#include "kpl/net/UDPSender.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "tests/net/UdpTestSupport.h"
#include "tests/support/Process.h"
#include "tests/support/TestNetwork.h"

namespace {

using kpl::net::UDPSender;
using kpl::test::Bytes;
using kpl::test::NetHost;
using kpl::test::NextDescriptor;
using kpl::test::OnTwoHosts;
using kpl::test::OpenDescriptorCount;
using kpl::test::RawSocket;

TEST(UDPSenderTest, SendBeforeOpenIsZero) {
    UDPSender sender;
    EXPECT_EQ(sender.Send("x", 1), 0);
}

TEST(UDPSenderTest, OpenWithoutAHostOrAPortIsRefused) {
    UDPSender sender;
    EXPECT_FALSE(sender.Open(nullptr, 9));
    EXPECT_FALSE(sender.Open("", 9));
    EXPECT_FALSE(sender.Open("127.0.0.1", 0));
    EXPECT_FALSE(sender.Open("127.0.0.1", -1));
    EXPECT_EQ(sender.Send("x", 1), 0);
}

TEST(UDPSenderTest, ARefusedOpenLeavesTheOneBefore) {
    const RawSocket peer;
    UDPSender sender;
    ASSERT_TRUE(sender.Open("127.0.0.1", peer.Port()));
    EXPECT_FALSE(sender.Open("", 9));
    EXPECT_FALSE(sender.Open("127.0.0.1", 0));
    EXPECT_EQ(sender.Send("x", 1), 1);
    EXPECT_EQ(peer.Receive(), "x");
    sender.Close();
}

TEST(UDPSenderTest, SendRefusesNullAndLengthsBelowOne) {
    const RawSocket peer;
    UDPSender sender;
    ASSERT_TRUE(sender.Open("127.0.0.1", peer.Port()));
    EXPECT_EQ(sender.Send(nullptr, 1), 0);
    EXPECT_EQ(sender.Send("x", 0), 0);
    EXPECT_EQ(sender.Send("x", -1), 0);
    EXPECT_EQ(sender.Send("end", 3), 3);
    EXPECT_EQ(peer.Receive(), "end");
    sender.Close();
}

TEST(UDPSenderTest, EverySizeOfADatagramArrivesWhole) {
    const RawSocket peer;
    UDPSender sender;
    ASSERT_TRUE(sender.Open("127.0.0.1", peer.Port()));
    for (const int size : {1, 2, 4095, 4096, 65507}) {
        const std::string bytes = Bytes(size);
        EXPECT_EQ(sender.Send(bytes.data(), size), size);
        EXPECT_EQ(peer.Receive(), bytes);
    }
    sender.Close();
}

TEST(UDPSenderTest, MoreThanADatagramHoldsIsMinusOne) {
    const RawSocket peer;
    UDPSender sender;
    ASSERT_TRUE(sender.Open("127.0.0.1", peer.Port()));
    EXPECT_EQ(sender.Send(Bytes(65508).data(), 65508), -1);
    sender.Close();
}

TEST(UDPSenderTest, CloseForgetsTheTargetAndCanBeRepeated) {
    const int before = OpenDescriptorCount();
    UDPSender sender;
    ASSERT_TRUE(sender.Open("127.0.0.1", 9));
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
    sender.Close();
    sender.Close();
    EXPECT_EQ(OpenDescriptorCount(), before);
    EXPECT_EQ(sender.Send("x", 1), 0);
}

TEST(UDPSenderTest, OpenClosesTheSocketBefore) {
    const RawSocket first;
    const RawSocket second;
    const int before = OpenDescriptorCount();
    UDPSender sender;
    ASSERT_TRUE(sender.Open("127.0.0.1", first.Port()));
    ASSERT_TRUE(sender.Open("127.0.0.1", second.Port()));
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
    EXPECT_EQ(sender.Send("x", 1), 1);
    EXPECT_EQ(second.Receive(), "x");
    sender.Close();
}

TEST(UDPSenderTest, TheDestructorLeavesTheSocketOpen) {
    const int fd = NextDescriptor();
    {
        UDPSender sender;
        ASSERT_TRUE(sender.Open("127.0.0.1", 9));
    }
    EXPECT_EQ(close(fd), 0);
}

TEST(UDPSenderTest, AChildProcessDoesNotInheritTheSocket) {
    const int fd = NextDescriptor();
    UDPSender sender;
    ASSERT_TRUE(sender.Open("127.0.0.1", 9));
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    sender.Close();
}

TEST(UDPSenderTest, WithoutDescriptorsOpenIsFalseAndSendIsZero) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 0;
    UDPSender sender;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool opened = sender.Open("127.0.0.1", 9);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_FALSE(opened);
    EXPECT_EQ(sender.Send("x", 1), 0);
}

// Such a text stands for 255.255.255.255, and the socket may not broadcast.
TEST(UDPSenderTest, AHostThatIsNoAddressFailsToSend) {
    OnTwoHosts("10.77.3.1/16", "10.77.3.2/16", [](const NetHost&, const NetHost&) {
        UDPSender sender;
        EXPECT_TRUE(sender.Open("far.example", 9));
        EXPECT_EQ(sender.Send("x", 1), -1);
        sender.Close();
    });
}

}  // namespace
