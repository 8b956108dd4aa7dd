// Stopping the TCP server, whatever it is doing.
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kpl/net/server/CSocketServerEx.h"
#include "kpl/os/Sleep.h"
#include "tests/net/NetTestSupport.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace kpl::net::server {
namespace {

using test::LineServer;
using test::MsOf;
using test::Peer;
using test::Running;
using test::Script;
using test::WaitUntil;

// More than a socket's buffers on both sides take.
constexpr const char* kEndlessResponse = "big 100000000\n";

class ServerStopTest : public test::NetTest {
protected:
    void SetUp() override {
        NetTest::SetUp();
        m_threads = test::ThreadCount();
        m_descriptors = test::OpenDescriptorCount();
    }

    // What a state consists of: clients that the round keeps, and threads that end by themselves.
    struct Round {
        Script script;
        std::unique_ptr<LineServer> server = std::make_unique<LineServer>(&script);
        std::vector<Peer> peers;
        std::atomic<bool> stopped{false};
        std::vector<std::unique_ptr<Running>> helpers;

        Peer& Connect(int receiveBuffer = 0) {
            peers.push_back(Peer::ConnectTo(server->GetListeningPort(), receiveBuffer));
            EXPECT_TRUE(peers.back().IsOpen());
            return peers.back();
        }
    };

    static void MakeIdle(Round* round) {
        for (int i = 0; i < 3; ++i) {
            const Peer& peer = round->Connect();
            ASSERT_TRUE(peer.Send("ping\n"));
            ASSERT_EQ(peer.Read(6), ">ping\n");
        }
    }

    static void MakeHalfRequest(Round* round) {
        const Peer& peer = round->Connect();
        ASSERT_TRUE(peer.Send("ping\nhal"));
        ASSERT_EQ(peer.Read(6), ">ping\n");
    }

    // Released by a thread that has seen the stop begin: the connection is shut down then.
    static void MakeExecuting(Round* round) {
        const Peer& peer = round->Connect();
        ASSERT_TRUE(peer.Send("hold\n"));
        ASSERT_TRUE(WaitUntil([&] { return round->script.holding > 0; }));
        const int fd = peer.Fd();
        round->helpers.push_back(std::make_unique<Running>([round, fd] {
            char byte = 0;
            EXPECT_EQ(recv(fd, &byte, 1, 0), 0);
            round->script.release.Set();
        }));
    }

    static void MakeBlockedResponse(Round* round) {
        const Peer& peer = round->Connect(65536);
        ASSERT_TRUE(peer.Send(kEndlessResponse));
        ASSERT_EQ(peer.Read(1), "x");
        // Blocked: no further piece is asked for, five looks long.
        int pieces = 0;
        int same = 0;
        ASSERT_TRUE(WaitUntil([&] {
            const int now = round->script.pieces;
            same = now == pieces ? same + 1 : 0;
            pieces = now;
            return same >= 5;
        }));
    }

    // A thread that connects again and again.
    static void MakeConnecting(Round* round) {
        const int port = round->server->GetListeningPort();
        std::atomic<int>* connected = &m_connected;
        const int before = *connected;
        round->helpers.push_back(std::make_unique<Running>([round, port, connected] {
            while (!round->stopped) {
                const Peer peer = Peer::ConnectTo(port);
                if (peer.IsOpen() && peer.Send("ping\n") && peer.Read(6) == ">ping\n") {
                    ++*connected;
                }
            }
        }));
        ASSERT_TRUE(WaitUntil([&] { return *connected > before; }));
    }

    // Stops the server in the state that `make` has put it into. Returns milliseconds.
    static double StopIn(void (*make)(Round*), Round* round) {
        std::atomic<int> released{0};
        EXPECT_TRUE(round->server->StartServer());
        double ms = 0;
        {
            Running waiting([&] { released = round->server->WaitForServerStop(); });
            make(round);
            const auto start = std::chrono::steady_clock::now();
            EXPECT_TRUE(round->server->StopServer());
            ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                     .count();
            EXPECT_TRUE(waiting.EndsWithin(test::kCeilingMs));
        }
        EXPECT_EQ(released, 1);
        EXPECT_EQ(round->script.processors, 0);
        EXPECT_EQ(round->script.threads, 0);
        EXPECT_EQ(round->script.requests, 0);
        round->stopped = true;
        round->script.release.Set();
        round->helpers.clear();
        for (const Peer& peer : round->peers) {
            EXPECT_TRUE(peer.HasEnded());
        }
        return ms;
    }

    void RunRounds(const char* name, void (*make)(Round*), int rounds) {
        std::vector<double> times;
        for (int i = 0; i < rounds && !HasFailure(); ++i) {
            Round round;
            times.push_back(StopIn(make, &round));
            round.server.reset();
            EXPECT_TRUE(round.script.AllGone());
            round.peers.clear();
            // A client's own thread may be listed for a moment after it was joined.
            EXPECT_TRUE(WaitUntil([this] {
                return test::ThreadCount() <= m_threads &&
                       test::OpenDescriptorCount() <= m_descriptors;
            })) << "round "
                << i;
        }
        std::sort(times.begin(), times.end());
        printf("stop, %s: median %.2f ms, longest %.2f ms, of %zu\n", name, times[times.size() / 2],
               times.back(), times.size());
    }

private:
    static std::atomic<int> m_connected;
    int m_threads = 0;
    int m_descriptors = 0;
};

std::atomic<int> ServerStopTest::m_connected{0};

// 500 rounds in all.

TEST_F(ServerStopTest, WithIdleConnections) {
    RunRounds("idle connections", &MakeIdle, 90);
}

TEST_F(ServerStopTest, WithHalfARequestReceived) {
    RunRounds("half a request", &MakeHalfRequest, 90);
}

TEST_F(ServerStopTest, WithAnExecutorRunning) {
    RunRounds("executor running", &MakeExecuting, 90);
}

TEST_F(ServerStopTest, WithAResponseThatTheClientDoesNotRead) {
    RunRounds("response not read", &MakeBlockedResponse, 90);
}

TEST_F(ServerStopTest, WithAClientConnectingAtThatMoment) {
    RunRounds("client connecting", &MakeConnecting, 70);
}

TEST_F(ServerStopTest, WithEverythingAtOnce) {
    RunRounds(
        "everything at once",
        [](Round* round) {
            round->script.maxPerThread = 1;
            MakeIdle(round);
            MakeHalfRequest(round);
            MakeExecuting(round);
            MakeBlockedResponse(round);
            MakeConnecting(round);
        },
        40);
}

TEST_F(ServerStopTest, WithDescriptorsExhausted) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of virtual calls needs a descriptor of its own";
#endif
    std::unique_ptr<test::NoDescriptors> none;
    static std::unique_ptr<test::NoDescriptors>* exhausted;
    exhausted = &none;
    std::vector<double> times;
    for (int i = 0; i < 30 && !HasFailure(); ++i) {
        Round round;
        times.push_back(StopIn(
            [](Round* made) {
                const test::LogCapture log;
                MakeIdle(made);
                const Peer taken = Peer::Unconnected();
                const Peer waiting = Peer::Unconnected();
                *exhausted = std::make_unique<test::NoDescriptors>();
                // The first gets the descriptor that accept has set aside; the second waits.
                ASSERT_TRUE(taken.Connect(made->server->GetListeningPort()));
                ASSERT_TRUE(waiting.Connect(made->server->GetListeningPort()));
                ASSERT_TRUE(
                    log.WaitFor("CSocketServer::Accept(): ??????????????? Fail to "
                                "accept(Err=24)\n"));
            },
            &round));
        none.reset();
    }
    std::sort(times.begin(), times.end());
    printf("stop, descriptors exhausted: median %.2f ms, longest %.2f ms, of %zu\n",
           times[times.size() / 2], times.back(), times.size());
}

TEST_F(ServerStopTest, WaitsForAnExecutorThatTakesTwoSecondsAndNoLonger) {
    Round round;
    round.script.onExecute = [](CServerProtocolProcessor*) {
        os::osal_Sleep(2000);  // allow-sleep: an executor that takes its time is the subject
    };
    round.script.maxPerThread = 1;
    ASSERT_TRUE(round.server->StartServer());
    const test::Stopwatch watch;
    // Two at the same time on two threads, and another request behind each.
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(round.Connect().Send("one\ntwo\n"));
    }
    ASSERT_TRUE(WaitUntil([&] { return round.script.Lines().size() == 2; }));
    const long ms = MsOf([&] { round.server->StopServer(); });
    printf("stop, executors of two seconds: %ld ms\n", ms);
    EXPECT_GE(watch.ElapsedMs(), 2000);
    EXPECT_LT(watch.ElapsedMs(), 3900);
    EXPECT_EQ(round.script.Lines(), (std::vector<std::string>{"one", "one"}));
    EXPECT_EQ(round.script.processors, 0);
}

}  // namespace
}  // namespace kpl::net::server
