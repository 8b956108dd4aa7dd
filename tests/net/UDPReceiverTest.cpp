#include "kpl/net/UDPReceiver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "tests/net/UdpTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/SignalRain.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::net::UDPReceiver;
using kpl::test::Bytes;
using kpl::test::FreeUdpPort;
using kpl::test::kCeilingMs;
using kpl::test::LogCapture;
using kpl::test::NextDescriptor;
using kpl::test::OpenDescriptorCount;
using kpl::test::RawSocket;
using kpl::test::ShortestMs;
using kpl::test::SignalRain;
using kpl::test::Stopwatch;
using Messages = std::vector<std::string>;

constexpr char kBindFailed[] = "UDPReceiver::Open(): ??????? bind failed\n";

TEST(UDPReceiverTest, WithoutASocketThereIsNothingToRead) {
    UDPReceiver receiver;
    char buffer[4];
    EXPECT_FALSE(receiver.IsDataAvailable(0));
    EXPECT_EQ(receiver.Read(buffer, 4), -1);
}

TEST(UDPReceiverTest, ReadRefusesNullAndSizesBelowOne) {
    UDPReceiver receiver;
    const int port = FreeUdpPort();
    ASSERT_TRUE(receiver.Open(port));
    ASSERT_TRUE(RawSocket().SendTo("127.0.0.1", port, "x"));
    char buffer[4];
    EXPECT_EQ(receiver.Read(nullptr, 4), -1);
    EXPECT_EQ(receiver.Read(buffer, 0), -1);
    EXPECT_EQ(receiver.Read(buffer, -1), -1);
    EXPECT_EQ(receiver.Read(buffer, 4), 1);
}

TEST(UDPReceiverTest, DatagramsAreReadOneByOne) {
    UDPReceiver receiver;
    const int port = FreeUdpPort();
    ASSERT_TRUE(receiver.Open(port));
    const RawSocket peer;
    for (const int size : {1, 4095, 4096, 65507}) {
        ASSERT_TRUE(peer.SendTo("127.0.0.1", port, Bytes(size)));
    }
    for (const int size : {1, 4095, 4096, 65507}) {
        std::string buffer(70000, '\0');
        ASSERT_EQ(receiver.Read(buffer.data(), 70000), size);
        EXPECT_EQ(buffer.substr(0, static_cast<size_t>(size)), Bytes(size));
    }
}

TEST(UDPReceiverTest, ALongDatagramIsCut) {
    UDPReceiver receiver;
    const int port = FreeUdpPort();
    ASSERT_TRUE(receiver.Open(port));
    ASSERT_TRUE(RawSocket().SendTo("127.0.0.1", port, "abcdef"));
    char buffer[5] = "....";
    EXPECT_EQ(receiver.Read(buffer, 3), 3);
    EXPECT_STREQ(buffer, "abc.");
    EXPECT_FALSE(receiver.IsDataAvailable(1));
}

TEST(UDPReceiverTest, AnEmptyDatagramIsZeroAtOnce) {
    UDPReceiver receiver;
    const int port = FreeUdpPort();
    ASSERT_TRUE(receiver.Open(port));
    ASSERT_TRUE(RawSocket().SendTo("127.0.0.1", port, ""));
    ASSERT_TRUE(RawSocket().SendTo("127.0.0.1", port, "x"));
    char buffer[4];
    EXPECT_EQ(receiver.Read(buffer, 4), 0);
    EXPECT_EQ(receiver.Read(buffer, 4), 1);
}

TEST(UDPReceiverTest, ReadWithNothingArrivingIsZeroAfterASecond) {
    UDPReceiver receiver;
    ASSERT_TRUE(receiver.Open(FreeUdpPort()));
    char buffer[4];
    const Stopwatch watch;
    EXPECT_EQ(receiver.Read(buffer, 4), 0);
    EXPECT_GE(watch.ElapsedMs(), 1000);
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST(UDPReceiverTest, ASignalDoesNotEndTheSecond) {
    UDPReceiver receiver;
    ASSERT_TRUE(receiver.Open(FreeUdpPort()));
    char buffer[4];
    const SignalRain rain;
    const Stopwatch watch;
    EXPECT_EQ(receiver.Read(buffer, 4), 0);
    EXPECT_GE(watch.ElapsedMs(), 1000);
    EXPECT_GE(rain.Count(), 1);
}

TEST(UDPReceiverTest, TheRemainderOfATimeOutCountsAsMicroseconds) {
    UDPReceiver receiver;
    ASSERT_TRUE(receiver.Open(FreeUdpPort()));
    EXPECT_LT(ShortestMs(900, [&] { EXPECT_FALSE(receiver.IsDataAvailable(999)); }), 900);
    const long ms = ShortestMs(1900, [&] { EXPECT_FALSE(receiver.IsDataAvailable(1999)); });
    EXPECT_GE(ms, 1000);
    EXPECT_LT(ms, 1900);
}

TEST(UDPReceiverTest, ATimeOutOfZeroWaitsForData) {
    UDPReceiver receiver;
    const int port = FreeUdpPort();
    ASSERT_TRUE(receiver.Open(port));
    std::thread peer([port] {
        usleep(50000);  // allow-sleep: the wait must have begun, and nothing shows that
        EXPECT_TRUE(RawSocket().SendTo("127.0.0.1", port, "x"));
    });
    const Stopwatch watch;
    EXPECT_TRUE(receiver.IsDataAvailable(0));
    EXPECT_GE(watch.ElapsedMs(), 40);
    peer.join();
}

TEST(UDPReceiverTest, TheLongestTimeOutIsWaitedForAsWell) {
    UDPReceiver receiver;
    const int port = FreeUdpPort();
    ASSERT_TRUE(receiver.Open(port));
    std::thread peer([port] { EXPECT_TRUE(RawSocket().SendTo("127.0.0.1", port, "x")); });
    EXPECT_TRUE(receiver.IsDataAvailable(4294967295U));
    peer.join();
}

TEST(UDPReceiverTest, APortInUseIsABindFailure) {
    const RawSocket taken("0.0.0.0");
    UDPReceiver receiver;
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_FALSE(receiver.Open(taken.Port()));
    EXPECT_EQ(log.Messages(), Messages{kBindFailed});
}

TEST(UDPReceiverTest, AFailedBindLeavesTheSocketUntilTheNextOpenOrClose) {
    const RawSocket taken("0.0.0.0");
    const int before = OpenDescriptorCount();
    UDPReceiver receiver;
    const LogCapture log;
    EXPECT_FALSE(receiver.Open(taken.Port()));
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
    EXPECT_TRUE(receiver.Open(FreeUdpPort()));
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
    EXPECT_FALSE(receiver.Open(taken.Port()));
    receiver.Close();
    receiver.Close();
    EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST(UDPReceiverTest, WithoutDescriptorsOpenIsABindFailureToo) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 0;
    UDPReceiver receiver;
    const LogCapture log;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool opened = receiver.Open(9);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_FALSE(opened);
    EXPECT_EQ(log.Messages(), Messages{kBindFailed});
    char buffer[4];
    EXPECT_EQ(receiver.Read(buffer, 4), -1);
}

TEST(UDPReceiverTest, ADescriptorThatIsNotOpenIsASelectFailure) {
    const int fd = NextDescriptor();
    UDPReceiver receiver;
    ASSERT_TRUE(receiver.Open(FreeUdpPort()));
    ASSERT_EQ(close(fd), 0);
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_FALSE(receiver.IsDataAvailable(1000));
    EXPECT_EQ(log.Messages(),
              Messages{"UDPReceiver::IsDataAvailable(): ????? select failed(-1)\n"});
    char buffer[4];
    EXPECT_EQ(receiver.Read(buffer, 4), 0);
}

TEST(UDPReceiverTest, TheDestructorCloses) {
    const int before = OpenDescriptorCount();
    const int fd = NextDescriptor();
    {
        UDPReceiver receiver;
        ASSERT_TRUE(receiver.Open(FreeUdpPort()));
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    EXPECT_EQ(OpenDescriptorCount(), before);
}

}  // namespace
