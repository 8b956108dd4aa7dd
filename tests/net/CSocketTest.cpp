#include "kpl/net/CSocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <type_traits>

#include "tests/net/NetTestSupport.h"
#include "tests/support/Process.h"
#include "tests/support/SignalRain.h"
#include "tests/support/Stopwatch.h"

namespace kpl::net {
namespace {

using test::ConnectedPair;
using test::Listener;
using test::LogCapture;
using test::MsOf;
using test::Peer;
using test::Running;
using test::SignalRain;

using Messages = std::vector<std::string>;

class CSocketTest : public test::NetTest {};

std::string ClosedMessage(int fd) {
    return "CSocket::Close(): Done(" + std::to_string(fd) + ")\n";
}

// The number that the next new descriptor gets.
int NextDescriptor() {
    const int next = dup(STDERR_FILENO);
    close(next);
    return next;
}

// Blocks in Write on a peer that does not read.
void FillUntilError(CSocket* socket) {
    const std::string piece(1 << 20, 'x');
    while (socket->Write(piece.data(), static_cast<unsigned int>(piece.size()), 0) > 0) {
    }
}

TEST_F(CSocketTest, HasNothingButTheDescriptorAndTheCountOfItsUsers) {
    EXPECT_EQ(sizeof(CSocket), 2 * sizeof(int));
    EXPECT_FALSE(std::is_polymorphic_v<CSocket>);
}

TEST_F(CSocketTest, WithoutASocketEveryOperationSaysSo) {
    CSocket socket;
    char byte = 0;
    const int yes = 1;
    EXPECT_EQ(socket.Read(&byte, 1, 0), -4);
    EXPECT_EQ(socket.Read(nullptr, 0, 0), -4) << "looked at before the buffer";
    EXPECT_EQ(socket.Write(&byte, 1, 0), -4);
    EXPECT_EQ(socket.SetOption(SOL_SOCKET, SO_KEEPALIVE, &yes, sizeof(yes)), -4);
    EXPECT_FALSE(socket.IsDataAvailable(0));
    EXPECT_FALSE(socket.IsOOBReceived());
    EXPECT_EQ(socket.GetAvailableDataLength(), 0);
    EXPECT_EQ(socket.GetPeerIp(), nullptr);
    EXPECT_FALSE(socket.IsOpen());
    socket.Interrupt();
    const LogCapture log;
    socket.Disconnect();
    EXPECT_EQ(log.Messages(), Messages{});
}

TEST_F(CSocketTest, ConnectsReadsAndWrites) {
    const Listener listener;
    CSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", listener.Port()));
    EXPECT_TRUE(socket.IsOpen());
    const Peer peer(listener.Accept());
    EXPECT_EQ(socket.Write("hello", 5, 0), 5);
    EXPECT_EQ(peer.Read(5), "hello");
    ASSERT_TRUE(peer.Send("world"));
    EXPECT_TRUE(socket.IsDataAvailable(0));
    EXPECT_EQ(socket.GetAvailableDataLength(), 5);
    char bytes[16] = {};
    EXPECT_EQ(socket.Read(bytes, 2, 0), 2) << "no more than asked for";
    EXPECT_EQ(socket.Read(bytes + 2, 14, 0), 3) << "a short read is returned as it is";
    EXPECT_STREQ(bytes, "world");
}

TEST_F(CSocketTest, ReadFlagsAreRecvFlags) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    ASSERT_TRUE(pair.peer.Send("ab"));
    ASSERT_TRUE(socket.IsDataAvailable(0));
    char byte = 0;
    EXPECT_EQ(socket.Read(&byte, 1, MSG_PEEK), 1);
    EXPECT_EQ(byte, 'a');
    EXPECT_EQ(socket.GetAvailableDataLength(), 2);
}

TEST_F(CSocketTest, ReadOfAClosedPeerIsMinusFive) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    pair.peer.Close();
    char byte = 0;
    EXPECT_EQ(socket.Read(&byte, 1, 0), -5);
    EXPECT_EQ(socket.GetAvailableDataLength(), 0);
}

TEST_F(CSocketTest, ReadIntoNothingIsMinusThreeAlsoOnAValidSocket) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    char byte = 0;
    EXPECT_EQ(socket.Read(&byte, 0, 0), -3);
    EXPECT_EQ(socket.Read(nullptr, 1, 0), -3);
}

TEST_F(CSocketTest, WriteOfNothingSendsNothingAndIsMinusFive) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    char byte = 0;
    EXPECT_EQ(socket.Write(&byte, 0, 0), -5);
    EXPECT_EQ(socket.Write(nullptr, 0, 0), -5);
    socket.Disconnect();
    EXPECT_EQ(pair.peer.ReadToEnd(), "");
}

TEST_F(CSocketTest, AFailedReadIsMinusOneAndLogged) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    const LogCapture log(LogCapture::Debug::Off);
    char byte = 0;
    EXPECT_EQ(socket.Read(&byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(log.Messages(), Messages{"CSocket::Read(): Read error(-1)\n"});
}

TEST_F(CSocketTest, AWriteToAPeerThatHasGoneIsMinusOneAndLoggedAndNoSignal) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    pair.peer.Reset();
    ASSERT_TRUE(socket.IsDataAvailable(0));
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_EQ(socket.Write("a", 1, 0), -1);
    EXPECT_EQ(socket.Write("a", 1, 0), -1);
    EXPECT_EQ(log.Messages(), Messages(2, "CSocket::Write(): Write error(-1)\n"));
}

TEST_F(CSocketTest, IsDataAvailableWithZeroWaitsUntilDataOrHangUp) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    for (const bool hangUp : {false, true}) {
        std::atomic<bool> available{false};
        Running waiting([&] { available = socket.IsDataAvailable(0); });
        ASSERT_TRUE(waiting.WaitUntilBlocked());
        EXPECT_FALSE(waiting.EndsWithin(100)) << "without limit";
        if (hangUp) {
            pair.peer.Close();
        } else {
            ASSERT_TRUE(pair.peer.Send("a"));
        }
        EXPECT_TRUE(waiting.EndsWithin(test::kCeilingMs));
        EXPECT_TRUE(available);
        char byte = 0;
        EXPECT_EQ(socket.Read(&byte, 1, 0), hangUp ? -5 : 1);
    }
}

TEST_F(CSocketTest, IsDataAvailableTakesTheRestOfASecondForMicroseconds) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    // A hundred waits of 999 are a tenth of a second, not a hundred.
    EXPECT_LT(MsOf([&] {
                  for (int i = 0; i < 100; ++i) {
                      EXPECT_FALSE(socket.IsDataAvailable(999));
                  }
              }),
              test::kCeilingMs);
    const long ms = test::ShortestMs(1850, [&] { EXPECT_FALSE(socket.IsDataAvailable(1900)); });
    EXPECT_GE(ms, 1001);
    EXPECT_LT(ms, 1850);
}

TEST_F(CSocketTest, IsDataAvailableWithTheLargestTimeOutIsNoError) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    ASSERT_TRUE(pair.peer.Send("a"));
    EXPECT_TRUE(socket.IsDataAvailable(4294967295U));
}

TEST_F(CSocketTest, IsDataAvailableOfABadDescriptorIsLogged) {
    const int fd = NextDescriptor();
    {
        CSocket socket(fd);  // which is not open
        const LogCapture log(LogCapture::Debug::Off);
        EXPECT_FALSE(socket.IsDataAvailable(1));
        EXPECT_EQ(log.Messages(), Messages{"CSocket::IsDataAvailable(): select failed(-1)\n"});
    }
}

TEST_F(CSocketTest, DescriptorsAbove1024Work) {
    const test::ManyDescriptors many(1100);
    if (!many.Done()) {
        GTEST_SKIP() << "this process may not open so many descriptors";
    }
    ConnectedPair pair;
    ASSERT_GT(pair.served, 1100);
    CSocket socket(pair.served);
    EXPECT_FALSE(socket.IsDataAvailable(1));
    ASSERT_TRUE(pair.peer.Send("a"));
    EXPECT_TRUE(socket.IsDataAvailable(0));
}

TEST_F(CSocketTest, DisconnectTwicePrintsOneMessage) {
    ConnectedPair pair;
    const LogCapture log;
    CSocket socket(pair.served);
    socket.Disconnect();
    EXPECT_FALSE(socket.IsOpen());
    socket.Disconnect();
    EXPECT_EQ(log.Messages(), Messages{ClosedMessage(pair.served)});
    EXPECT_EQ(fcntl(pair.served, F_GETFD), -1);
    EXPECT_TRUE(pair.peer.HasEnded());
}

TEST_F(CSocketTest, TheDestructorCloses) {
    ConnectedPair pair;
    {
        const CSocket socket(pair.served);
        EXPECT_TRUE(socket.IsOpen());
    }
    EXPECT_EQ(fcntl(pair.served, F_GETFD), -1);
    EXPECT_TRUE(pair.peer.HasEnded());
}

TEST_F(CSocketTest, ConnectClosesAnEarlierConnection) {
    const Listener listener;
    ConnectedPair pair;
    CSocket socket(pair.served);
    const LogCapture log;
    EXPECT_TRUE(socket.Connect("127.0.0.1", listener.Port()));
    EXPECT_EQ(log.Messages(), Messages{ClosedMessage(pair.served)});
    EXPECT_TRUE(pair.peer.HasEnded());
}

TEST_F(CSocketTest, AFailedConnectIsLoggedAndLeavesNoSocket) {
    int port = 0;
    {
        const Listener listener;
        port = listener.Port();
    }
    CSocket socket;
    const int fd = NextDescriptor();
    const LogCapture log;
    EXPECT_FALSE(socket.Connect("127.0.0.1", port));
    EXPECT_FALSE(socket.IsOpen());
    EXPECT_EQ(
        log.Messages(),
        (Messages{"CSocket::Connect(): ????? Failed(Err=" + std::to_string(ECONNREFUSED) + ")\n",
                  ClosedMessage(fd)}));
}

TEST_F(CSocketTest, ConnectDoesNotResolveNamesAndGoesToTheZeroAddress) {
    const Listener listener;
    CSocket socket;
    ASSERT_TRUE(socket.Connect("no-such-host.invalid", listener.Port()));
    const Peer peer(listener.Accept());
    EXPECT_EQ(socket.Write("a", 1, 0), 1);
    EXPECT_EQ(peer.Read(1), "a");
}

TEST_F(CSocketTest, ConnectToNullIsFalseAndClosesAnEarlierConnection) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    EXPECT_FALSE(socket.Connect(nullptr, 1));
    EXPECT_FALSE(socket.IsOpen());
}

TEST_F(CSocketTest, WithoutADescriptorConnectIsFalseWithoutAMessage) {
    const Listener listener;
    CSocket socket;
    const LogCapture log;
    const test::NoDescriptors none;
    EXPECT_FALSE(socket.Connect("127.0.0.1", listener.Port()));
    EXPECT_EQ(log.Messages(), Messages{});
}

TEST_F(CSocketTest, ASignalDoesNotEndAConnect) {
    // With its backlog full, the listener answers the third only once one was accepted.
    const Listener listener(0);
    std::optional<Peer> first(Peer::ConnectTo(listener.Port()));
    CSocket socket;
    std::atomic<bool> connected{false};
    std::atomic<int> signals{0};
    Running connecting([&] {
        const SignalRain rain;
        connected = socket.Connect("127.0.0.1", listener.Port());
        signals = rain.Count();
    });
    EXPECT_FALSE(connecting.EndsWithin(100));
    const Peer accepted(listener.Accept());
    EXPECT_TRUE(connecting.EndsWithin(test::kCeilingMs));
    EXPECT_TRUE(connected);
    EXPECT_GT(signals, 0);
    const Peer other(listener.Accept());
    EXPECT_EQ(socket.Write("a", 1, 0), 1);
    EXPECT_EQ(other.Read(1), "a");
}

TEST_F(CSocketTest, ASignalDoesNotEndARead) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    std::atomic<int> received{0};
    std::atomic<int> signals{0};
    Running reading([&] {
        const SignalRain rain;
        char byte = 0;
        received = socket.Read(&byte, 1, 0);
        signals = rain.Count();
    });
    EXPECT_FALSE(reading.EndsWithin(100));
    ASSERT_TRUE(pair.peer.Send("a"));
    EXPECT_TRUE(reading.EndsWithin(test::kCeilingMs));
    EXPECT_EQ(received, 1);
    EXPECT_GT(signals, 0);
}

TEST_F(CSocketTest, IsOOBReceivedAtTheMarkOnly) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    EXPECT_FALSE(socket.IsOOBReceived());
    ASSERT_TRUE(pair.peer.Send("ab"));
    ASSERT_EQ(send(pair.peer.Fd(), "!", 1, MSG_OOB), 1);
    ASSERT_TRUE(pair.peer.Send("c"));
    ASSERT_TRUE(test::WaitUntil([&] { return socket.GetAvailableDataLength() >= 2; }));
    EXPECT_FALSE(socket.IsOOBReceived());
    char bytes[2] = {};
    ASSERT_EQ(socket.Read(bytes, 2, 0), 2);
    EXPECT_TRUE(test::WaitUntil([&] { return socket.IsOOBReceived(); }));
}

TEST_F(CSocketTest, SetOptionIsZeroOrMinusOneAndLogged) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    const LogCapture log(LogCapture::Debug::Off);
    const int yes = 1;
    EXPECT_EQ(socket.SetOption(IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes)), 0);
    int set = 0;
    socklen_t length = sizeof(set);
    ASSERT_EQ(getsockopt(pair.served, IPPROTO_TCP, TCP_NODELAY, &set, &length), 0);
    EXPECT_NE(set, 0);
    EXPECT_EQ(log.Messages(), Messages{});
    EXPECT_EQ(socket.SetOption(SOL_SOCKET, -1, &yes, sizeof(yes)), -1);
    EXPECT_EQ(log.Messages(), Messages{"CSocket::SetOption(): SetOption error(-1)\n"});
}

TEST_F(CSocketTest, GetPeerIpIsTheDottedAddress) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    EXPECT_STREQ(socket.GetPeerIp(), "127.0.0.1");
}

TEST_F(CSocketTest, GetPeerIpWithoutAPeerIsNull) {
    CSocket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(socket.GetPeerIp(), nullptr);
}

TEST_F(CSocketTest, DescriptorsAreCloseOnExec) {
    const Listener listener;
    CSocket socket;
    const int fd = NextDescriptor();
    ASSERT_TRUE(socket.Connect("127.0.0.1", listener.Port()));
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(CSocketTest, InterruptReleasesABlockedWrite) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    Running writing([&] { FillUntilError(&socket); });
    ASSERT_TRUE(writing.WaitUntilBlocked());
    EXPECT_FALSE(writing.EndsWithin(50));
    socket.Interrupt();
    EXPECT_TRUE(writing.EndsWithin(test::kCeilingMs));
    EXPECT_TRUE(socket.IsOpen()) << "the descriptor stays";
    EXPECT_NE(fcntl(pair.served, F_GETFD), -1);
}

TEST_F(CSocketTest, InterruptReleasesABlockedReadAndLaterOnesDoNotWait) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    char byte = 0;
    std::atomic<int> received{0};
    Running reading([&] { received = socket.Read(&byte, 1, 0); });
    ASSERT_TRUE(reading.WaitUntilBlocked());
    socket.Interrupt();
    EXPECT_TRUE(reading.EndsWithin(test::kCeilingMs));
    EXPECT_EQ(received, -5);
    EXPECT_EQ(socket.Read(&byte, 1, 0), -5);
    EXPECT_EQ(socket.Write("a", 1, 0), -1);
}

TEST_F(CSocketTest, DisconnectReleasesABlockedRead) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    char byte = 0;
    std::atomic<int> received{0};
    Running reading([&] { received = socket.Read(&byte, 1, 0); });
    ASSERT_TRUE(reading.WaitUntilBlocked());
    Running disconnecting([&] { socket.Disconnect(); });
    EXPECT_TRUE(disconnecting.EndsWithin(test::kCeilingMs));
    EXPECT_TRUE(reading.HasEnded() || reading.EndsWithin(test::kCeilingMs));
    EXPECT_EQ(received, -5);
    EXPECT_EQ(fcntl(pair.served, F_GETFD), -1);
}

TEST_F(CSocketTest, DisconnectReleasesABlockedWrite) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    Running writing([&] { FillUntilError(&socket); });
    ASSERT_TRUE(writing.WaitUntilBlocked());
    Running disconnecting([&] { socket.Disconnect(); });
    EXPECT_TRUE(disconnecting.EndsWithin(test::kCeilingMs));
    EXPECT_TRUE(writing.EndsWithin(test::kCeilingMs));
    EXPECT_EQ(fcntl(pair.served, F_GETFD), -1);
}

// One that has no peer cannot be shut down, but that wakes whoever waits all the same.
TEST_F(CSocketTest, DisconnectReleasesAWaitForDataOnSocketsOfAllStates) {
    ConnectedPair pair;
    const int listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(listen(listening, 1), 0);
    const int fresh = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int datagrams = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    for (const int fd : {pair.served, listening, fresh, datagrams}) {
        CSocket socket(fd);
        Running waiting([&] { (void)socket.IsDataAvailable(0); });
        ASSERT_TRUE(waiting.WaitUntilBlocked());
        Running disconnecting([&] { socket.Disconnect(); });
        EXPECT_TRUE(disconnecting.EndsWithin(test::kCeilingMs)) << fd;
        EXPECT_TRUE(waiting.EndsWithin(test::kCeilingMs)) << fd;
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
}

TEST_F(CSocketTest, DisconnectDoesNotWaitForWhatItCannotWake) {
    int ends[2] = {};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    CSocket socket(ends[0]);
    Running waiting([&] { (void)socket.IsDataAvailable(0); });
    ASSERT_TRUE(waiting.WaitUntilBlocked());
    Running disconnecting([&] { socket.Disconnect(); });
    EXPECT_TRUE(disconnecting.EndsWithin(test::kCeilingMs));
    close(ends[1]);  // that does
    EXPECT_TRUE(waiting.EndsWithin(test::kCeilingMs));
}

// It must not wait for a call that uses the next connection.
TEST_F(CSocketTest, DisconnectReturnsAlsoWhenTheOtherThreadConnectsAgainAtOnce) {
    const Listener listener;
    CSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", listener.Port()));
    Running reading([&] {
        char byte = 0;
        for (int i = 0; i < 2; ++i) {
            EXPECT_LT(socket.Read(&byte, 1, 0), 0);
            EXPECT_TRUE(i == 1 || socket.Connect("127.0.0.1", listener.Port()));
        }
    });
    ASSERT_TRUE(reading.WaitUntilBlocked());
    Running disconnecting([&] { socket.Disconnect(); });
    EXPECT_TRUE(disconnecting.EndsWithin(test::kCeilingMs));
    EXPECT_TRUE(test::WaitUntil([&] { return socket.IsOpen(); }));
    { const Peer first(listener.Accept()); }
    { const Peer second(listener.Accept()); }  // ends the second connection
    EXPECT_TRUE(reading.EndsWithin(test::kCeilingMs));
}

TEST_F(CSocketTest, InterruptNeverHitsADescriptorThatIsAnothersByNow) {
    // One thread interrupts all the time while the socket is closed and its number used again: the
    // socket that has the number then must stay whole.
    int other[2] = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, other), 0);
    int number = -1;
    for (int round = 0; round < 200; ++round) {
        if (number != -1) {
            close(number);
        }
        ConnectedPair pair;
        number = pair.served;
        CSocket socket(number);
        std::atomic<bool> stop{false};
        Running interrupting([&] {
            while (!stop) {
                socket.Interrupt();
            }
        });
        socket.Disconnect();
        ASSERT_EQ(dup3(other[0], number, O_CLOEXEC), number);
        stop = true;
    }
    char byte = 0;
    EXPECT_EQ(recv(number, &byte, 1, MSG_DONTWAIT), -1) << "0 if it was shut down";
    for (const int fd : {other[0], other[1], number}) {
        close(fd);
    }
}

}  // namespace
}  // namespace kpl::net
