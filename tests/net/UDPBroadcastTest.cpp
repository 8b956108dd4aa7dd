#include "kpl/net/UDPBroadcast.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kpl/os/CEvent.h"
#include "tests/net/UdpTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/SignalRain.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TestNetwork.h"
#include "tests/support/VirtualSlot.h"

namespace {

using kpl::net::UDPBroadcastObserver;
using kpl::net::UDPBroadcastReceiver;
using kpl::net::UDPBroadcastSender;
using kpl::os::CEvent;
using kpl::test::Bytes;
using kpl::test::FreeUdpPort;
using kpl::test::LogCapture;
using kpl::test::NetHost;
using kpl::test::NextDescriptor;
using kpl::test::OnTwoHosts;
using kpl::test::OpenDescriptorCount;
using kpl::test::RawSocket;
using kpl::test::SettledThreadCount;
using kpl::test::SlotOf;
using kpl::test::ThreadCount;
using kpl::test::WaitUntil;
using Messages = std::vector<std::string>;

constexpr char kBegun[] = "UDPBroadcastReceiver::PrivateImpl::ThreadProc(): .....\n";
constexpr char kEnded[] = "UDPBroadcastReceiver::PrivateImpl::ThreadProc(): Done.....\n";
constexpr char kBindFailed[] =
    "UDPBroadcastReceiver::PrivateImpl::ThreadProc(): ??????? bind failed\n";

// Keeps what it hears, and checks the zero behind it.
class Listener : public UDPBroadcastObserver {
public:
    explicit Listener(std::function<void()> then = {}) : m_then(std::move(then)) {}

    void OnBroadcastReceived(const char* data, int length) override {
        EXPECT_EQ(data[length], '\0');
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_heard.emplace_back(data, static_cast<size_t>(length));
        }
        if (m_then) {
            m_then();
        }
    }

    std::vector<std::string> Heard() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_heard;
    }

    bool WaitFor(size_t count) const {
        return WaitUntil([&] { return Heard().size() >= count; });
    }

private:
    const std::function<void()> m_then;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_heard;
};

// Sends to a port of this host until somebody hears it: the receiving thread may still be on its
// way to its socket.
void KnockUntilHeard(int port, const Listener& listener, const std::string& bytes = "knock") {
    const RawSocket peer;
    ASSERT_TRUE(WaitUntil([&] {
        EXPECT_TRUE(peer.SendTo("127.0.0.1", port, bytes));
        return !listener.Heard().empty();
    }));
}

TEST(UDPBroadcastObserverTest, TheOperationIsTheFirstVirtualOne) {
    EXPECT_EQ(SlotOf(&UDPBroadcastObserver::OnBroadcastReceived), 0);
}

TEST(UDPBroadcastReceiverTest, EveryDatagramReachesTheObserversInTheirOrder) {
    const int port = FreeUdpPort();
    UDPBroadcastReceiver receiver;
    Listener second;
    Listener* firstHeard = nullptr;
    Listener first([&] { EXPECT_LT(second.Heard().size(), firstHeard->Heard().size()); });
    firstHeard = &first;
    receiver.RegisterObserver(&first);
    receiver.RegisterObserver(&second);
    EXPECT_EQ(receiver.Start(port), 1);
    KnockUntilHeard(port, second);
    receiver.Stop();
    EXPECT_EQ(first.Heard(), second.Heard());
}

TEST(UDPBroadcastReceiverTest, RegisteringTheSameObserverTwiceDeliversOnce) {
    const int port = FreeUdpPort();
    Listener twice;
    Listener last;
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&twice);
    receiver.RegisterObserver(&last);
    receiver.RegisterObserver(&twice);
    receiver.RegisterObserver(nullptr);
    receiver.Start(port);
    KnockUntilHeard(port, last);
    receiver.Stop();
    EXPECT_EQ(twice.Heard(), last.Heard());
}

TEST(UDPBroadcastReceiverTest, AnUnregisteredObserverHearsNothing) {
    const int port = FreeUdpPort();
    Listener first;
    Listener gone;
    Listener last;
    UDPBroadcastReceiver receiver;
    for (Listener* listener : {&first, &gone, &last}) {
        receiver.RegisterObserver(listener);
    }
    receiver.UnregisterObserver(&gone);
    receiver.UnregisterObserver(&gone);
    receiver.Start(port);
    KnockUntilHeard(port, last);
    receiver.Stop();
    EXPECT_TRUE(gone.Heard().empty());
    EXPECT_EQ(first.Heard(), last.Heard());
}

TEST(UDPBroadcastReceiverTest, ADatagramOf4095BytesIsWholeAndALongerOneIsCut) {
    const int port = FreeUdpPort();
    Listener listener;
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&listener);
    const LogCapture log;
    receiver.Start(port);
    KnockUntilHeard(port, listener, "k");
    const RawSocket peer;
    for (const int size : {4095, 4096, 65507}) {
        ASSERT_TRUE(peer.SendTo("127.0.0.1", port, Bytes(size)));
    }
    const auto cut = [&] {
        std::vector<std::string> heard = listener.Heard();
        heard.erase(std::remove(heard.begin(), heard.end(), "k"), heard.end());
        return heard;
    };
    EXPECT_TRUE(WaitUntil([&] { return cut().size() == 3; }));
    receiver.Stop();
    EXPECT_EQ(cut(), std::vector<std::string>(3, Bytes(4095)));
}

TEST(UDPBroadcastReceiverTest, TheThreadSaysWhenItBeginsAndEnds) {
    const int port = FreeUdpPort();
    Listener listener;
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&listener);
    const LogCapture log;
    receiver.Start(port);
    KnockUntilHeard(port, listener);
    EXPECT_EQ(log.Messages(), Messages{kBegun});
    receiver.Stop();
    EXPECT_EQ(log.Messages(), (Messages{kBegun, kEnded}));
}

TEST(UDPBroadcastReceiverTest, APortInUseIsLoggedAndEndsTheThread) {
    const RawSocket taken("0.0.0.0");
    UDPBroadcastReceiver receiver;
    const LogCapture log;
    EXPECT_EQ(receiver.Start(taken.Port()), 1);
    EXPECT_TRUE(log.WaitFor(kBindFailed));
    receiver.Stop();
    EXPECT_EQ(log.Messages(), (Messages{kBegun, kBindFailed}));
}

TEST(UDPBroadcastReceiverTest, TheBindFailureIsLoggedAlsoWhileTheLogIsOff) {
    const RawSocket taken("0.0.0.0");
    UDPBroadcastReceiver receiver;
    const LogCapture log(LogCapture::Debug::Off);
    receiver.Start(taken.Port());
    EXPECT_TRUE(log.WaitFor(kBindFailed));
    receiver.Stop();
    EXPECT_EQ(log.Messages(), Messages{kBindFailed});
}

TEST(UDPBroadcastReceiverTest, AnEmptyDatagramEndsTheThread) {
    const int port = FreeUdpPort();
    Listener listener;
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&listener);
    const LogCapture log;
    receiver.Start(port);
    KnockUntilHeard(port, listener);
    ASSERT_TRUE(RawSocket().SendTo("127.0.0.1", port, ""));
    EXPECT_TRUE(log.WaitFor(kEnded));
    // The port stays taken until the stop.
    receiver.Stop();
    const RawSocket port_is_free("0.0.0.0", port);
}

TEST(UDPBroadcastReceiverTest, ASignalDoesNotEndTheThread) {
    const int port = FreeUdpPort();
    UDPBroadcastReceiver receiver;
    CEvent rained(false);
    Listener listener([&] {
        const kpl::test::SignalRain rain;
        EXPECT_TRUE(WaitUntil([&] { return rain.Count() >= 3; }));
        rained.Set();
    });
    receiver.RegisterObserver(&listener);
    receiver.Start(port);
    KnockUntilHeard(port, listener);
    EXPECT_TRUE(rained.Wait(10000));
    const size_t heard = listener.Heard().size();
    ASSERT_TRUE(RawSocket().SendTo("127.0.0.1", port, "again"));
    EXPECT_TRUE(listener.WaitFor(heard + 1));
    receiver.Stop();
}

TEST(UDPBroadcastReceiverTest, StartStopsTheRunBefore) {
    const int first = FreeUdpPort();
    const int before = OpenDescriptorCount();
    Listener listener;
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&listener);
    receiver.Start(first);
    KnockUntilHeard(first, listener);
    const int second = FreeUdpPort();
    receiver.Start(second);
    const RawSocket first_is_free("0.0.0.0", first);
    const size_t heard = listener.Heard().size();
    const RawSocket peer;
    EXPECT_TRUE(WaitUntil(
        [&] { return peer.SendTo("127.0.0.1", second, "x") && listener.Heard().size() > heard; }));
    receiver.Stop();
    EXPECT_EQ(OpenDescriptorCount(), before + 2);
}

TEST(UDPBroadcastReceiverTest, StopWaitsForAnObserver) {
    const int port = FreeUdpPort();
    UDPBroadcastReceiver receiver;
    CEvent entered(false);
    CEvent leave(false);
    std::atomic<bool> left{false};
    Listener listener([&] {
        entered.Set();
        leave.Wait(-1);
        left = true;
    });
    receiver.RegisterObserver(&listener);
    receiver.Start(port);
    KnockUntilHeard(port, listener);
    ASSERT_TRUE(entered.Wait(10000));
    std::thread helper([&] { leave.Set(); });
    receiver.Stop();
    EXPECT_TRUE(left);
    helper.join();
}

// Its number must not become somebody else's while the thread may still receive from it.
TEST(UDPBroadcastReceiverTest, StopEndsTheThreadEvenIfDatagramsWaitAndClosesTheSocketLast) {
    const int port = FreeUdpPort();
    const int fd = NextDescriptor();
    const auto events = [fd] {
        pollfd look{fd, 0, 0};
        poll(&look, 1, 0);
        return look.revents;
    };
    CEvent entered(false);
    std::atomic<int> calls{0};
    Listener listener([&] {
        ++calls;
        entered.Set();
        EXPECT_TRUE(WaitUntil([&] { return events() != 0; }));
        EXPECT_EQ(events(), POLLHUP);  // shut down, and not closed
    });
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&listener);
    receiver.Start(port);
    ASSERT_TRUE(WaitUntil([&] { return events() != POLLNVAL; }));
    KnockUntilHeard(port, listener);
    ASSERT_TRUE(entered.Wait(10000));
    const RawSocket peer;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(peer.SendTo("127.0.0.1", port, "x"));
    }
    receiver.Stop();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(events(), POLLNVAL);
}

TEST(UDPBroadcastReceiverTest, AnObserverMayStopAndMayNotStart) {
    const int port = FreeUdpPort();
    UDPBroadcastReceiver receiver;
    std::atomic<int> started{-1};
    Listener listener([&] {
        receiver.Stop();
        started = receiver.Start(port);
    });
    receiver.RegisterObserver(&listener);
    const LogCapture log;
    receiver.Start(port);
    KnockUntilHeard(port, listener);
    EXPECT_TRUE(log.WaitFor(kEnded));
    receiver.Stop();
    EXPECT_EQ(started, 0);
    EXPECT_EQ(log.Messages(), (Messages{kBegun, kEnded}));
    EXPECT_EQ(receiver.Start(port), 1);
    receiver.Stop();  // before the listener goes
}

TEST(UDPBroadcastReceiverTest, StopWithoutStartDoesNothing) {
    UDPBroadcastReceiver receiver;
    receiver.Stop();
    receiver.Stop();
}

TEST(UDPBroadcastReceiverTest, TheDestructorStops) {
    const int threads = ThreadCount();
    const int descriptors = OpenDescriptorCount();
    const int port = FreeUdpPort();
    {
        Listener listener;
        UDPBroadcastReceiver receiver;
        receiver.RegisterObserver(&listener);
        receiver.Start(port);
        KnockUntilHeard(port, listener);
    }
    EXPECT_EQ(SettledThreadCount(threads), threads);
    EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

TEST(UDPBroadcastReceiverTest, AChildProcessDoesNotInheritTheSocket) {
    const int port = FreeUdpPort();
    Listener listener;
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&listener);
    const int fd = NextDescriptor();
    receiver.Start(port);
    ASSERT_TRUE(WaitUntil([fd] { return fcntl(fd, F_GETFD) != -1; }));
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    receiver.Stop();
}

struct Counter : UDPBroadcastObserver {
    std::atomic<int> heard{0};
    void OnBroadcastReceived(const char*, int) override { ++heard; }
};

void Spin(int count) {
    for (volatile int left = count; left > 0;) {
        left = left - 1;
    }
}

constexpr int kRounds = 5000;

// Nobody sends anything here, so nothing but the stop can wake the thread.
TEST(UDPBroadcastReceiverTest, StopAtAnyMomentAfterStartReturns) {
    const int port = FreeUdpPort();
    const int descriptors = OpenDescriptorCount();
    const int fd = NextDescriptor();
    UDPBroadcastReceiver receiver;
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(receiver.Start(port), 1);
        if (round % 10 != 0) {
            // Every step of the beginning thread, and well into its first receive.
            Spin((round % 200) * (round % 200) * 5);
        } else {
            // Closely around the moment at which the thread has its socket.
            while (fcntl(fd, F_GETFD) == -1) {
                std::this_thread::yield();
            }
            Spin(round % 400);
        }
        receiver.Stop();
    }
    EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

TEST(UDPBroadcastReceiverTest, StopReturnsWhileSomebodySendsAllTheTime) {
    const int port = FreeUdpPort();
    const int descriptors = OpenDescriptorCount();
    Counter counter;
    UDPBroadcastReceiver receiver;
    receiver.RegisterObserver(&counter);
    std::atomic<bool> over{false};
    std::thread peer([&] {
        const RawSocket socket;
        while (!over) {
            socket.SendTo("127.0.0.1", port, "x");
            std::this_thread::yield();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(receiver.Start(port), 1);
        const int heard = counter.heard;
        Spin((round % 100) * (round % 100) * 10);
        if (round % 10 == 9) {
            EXPECT_TRUE(WaitUntil([&] { return counter.heard > heard; }));
        }
        receiver.Stop();
    }
    over = true;
    peer.join();
    EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

TEST(UDPBroadcastSenderTest, NullAndLengthsBelowOneAreRefused) {
    OnTwoHosts("10.77.3.1/24", "10.77.3.2/24", [](const NetHost&, const NetHost&) {
        UDPBroadcastSender sender;
        EXPECT_FALSE(sender.Send(nullptr, 1, 9000));
        EXPECT_FALSE(sender.Send("x", 0, 9000));
        EXPECT_FALSE(sender.Send("x", -1, 9000));
        EXPECT_TRUE(sender.Send("x", 1, 9000));
    });
}

// A socket of that host; it can be used from everywhere.
std::unique_ptr<RawSocket> SocketOn(const NetHost& host, const std::string& address, int port) {
    std::unique_ptr<RawSocket> socket;
    host.Run([&] { socket = std::make_unique<RawSocket>(address, port); });
    return socket;
}

void ExpectEverySizeAt(const RawSocket& peer) {
    UDPBroadcastSender sender;
    for (const int size : {1, 4095, 4096, 65507}) {
        const std::string bytes = Bytes(size);
        EXPECT_TRUE(sender.Send(bytes.data(), size, 9000)) << size;
        EXPECT_EQ(peer.Receive(), bytes) << size;
    }
}

// On a network of 65536 addresses, 192.168.1.255 is one of them. Whoever is bound to it hears what
// is sent to it, and nothing else.
TEST(UDPBroadcastSenderTest, TheLastOctetIs255AlsoWhereTheMaskIs16Bits) {
    OnTwoHosts("192.168.1.23/16", "192.168.1.24/16", [](const NetHost&, const NetHost& far) {
        ASSERT_TRUE(far.Ip("address add 192.168.1.255/16 dev eth0"));
        const auto peer = SocketOn(far, "192.168.1.255", 9000);
        const auto wholeNetwork = SocketOn(far, "192.168.255.255", 9000);
        ExpectEverySizeAt(*peer);
        EXPECT_EQ(wholeNetwork->Receive(100), "<none>");
    });
}

TEST(UDPBroadcastSenderTest, EverybodyOnANetworkOf24BitsHearsIt) {
    OnTwoHosts("192.168.1.23/24", "192.168.1.24/24", [](const NetHost&, const NetHost& far) {
        const auto broadcast = SocketOn(far, "192.168.1.255", 9000);
        ExpectEverySizeAt(*broadcast);
    });
}

TEST(UDPBroadcastSenderTest, ReceiversOnTheOtherHostHearItCutTo4095Bytes) {
    OnTwoHosts("10.77.3.1/24", "10.77.3.2/24", [](const NetHost&, const NetHost& far) {
        Listener listener;
        UDPBroadcastReceiver receiver;
        receiver.RegisterObserver(&listener);
        far.Run([&] { receiver.Start(9000); });
        UDPBroadcastSender sender;
        ASSERT_TRUE(
            WaitUntil([&] { return sender.Send("k", 1, 9000) && !listener.Heard().empty(); }));
        for (const int size : {4095, 4096, 65507}) {
            EXPECT_TRUE(sender.Send(Bytes(size).data(), size, 9000));
        }
        ASSERT_TRUE(listener.WaitFor(4));
        receiver.Stop();
        std::vector<std::string> heard = listener.Heard();
        heard.erase(heard.begin(), heard.end() - 3);
        EXPECT_EQ(heard, std::vector<std::string>(3, Bytes(4095)));
    });
}

TEST(UDPBroadcastSenderTest, MoreThanADatagramHoldsIsFalse) {
    OnTwoHosts("10.77.3.1/24", "10.77.3.2/24", [](const NetHost&, const NetHost&) {
        const int descriptors = OpenDescriptorCount();
        EXPECT_FALSE(UDPBroadcastSender().Send(Bytes(65508).data(), 65508, 9000));
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    });
}

TEST(UDPBroadcastSenderTest, WithLoopbackAloneItStaysOnThisHost) {
    OnTwoHosts("", "", [](const NetHost&, const NetHost&) {
        const RawSocket peer("127.0.0.255", 9000);
        EXPECT_TRUE(UDPBroadcastSender().Send("x", 1, 9000));
        EXPECT_EQ(peer.Receive(), "x");
    });
}

TEST(UDPBroadcastSenderTest, WithoutAnAddressNothingIsSent) {
    OnTwoHosts("", "", [](const NetHost& near, const NetHost&) {
        ASSERT_TRUE(near.Ip("address flush dev lo"));
        EXPECT_FALSE(UDPBroadcastSender().Send("x", 1, 9000));
    });
}

}  // namespace
