#include "kpl/net/server/CServerThread.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/net/NetTestSupport.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/VirtualSlot.h"

namespace kpl::net::server {
namespace {

using test::ConnectedPair;
using test::LineThread;
using test::LogCapture;
using test::Missing;
using test::MsOf;
using test::Peer;
using test::Running;
using test::Script;
using test::SlotOf;
using test::WaitUntil;

using Messages = std::vector<std::string>;

const std::string kProcDone = "CServerThread::ThreadProc(): Done.....\n";

class CServerThreadTest : public test::NetTest {
protected:
    void SetUp() override {
        NetTest::SetUp();
        m_thread = std::make_unique<LineThread>(&m_script);
    }

    void TearDown() override {
        m_script.release.Set();
        m_thread.reset();
        EXPECT_TRUE(m_script.AllGone());
        NetTest::TearDown();
    }

    // A connection that the thread serves.
    struct Client {
        int fd = -1;
        Peer peer{-1};
    };
    Client Connect() {
        ConnectedPair pair;
        Client client;
        client.fd = pair.served;
        client.peer = std::move(pair.peer);
        EXPECT_TRUE(m_thread->AddSocket(client.fd, new CSocket(client.fd), nullptr));
        return client;
    }

    // A connection whose executor occupies the thread until m_script.release is set.
    Client ConnectAndHold() {
        Client client = Connect();
        EXPECT_TRUE(client.peer.Send("hold\n"));
        EXPECT_TRUE(WaitUntil([this] { return m_script.holding > 0; }));
        return client;
    }

    static bool IsServed(const Client& client) {
        return client.peer.Send("ping\n") && client.peer.Read(6) == ">ping\n";
    }

    Script m_script;
    std::unique_ptr<LineThread> m_thread;
};

// Overrides only what it must.
class PlainThread : public CServerThread {
    CServerProtocolProcessor* CreateProtocolProcessor(int, CSocket*, com::IUnknown*) override {
        return nullptr;
    }
};

TEST_F(CServerThreadTest, SlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&CServerThread::GetMaxAcceptableCounts), 2);  // behind the destructors
    EXPECT_EQ(SlotOf(&CServerThread::CreateProtocolProcessor), 3);
}

TEST_F(CServerThreadTest, TakesThirtyTwoConnections) {
    PlainThread plain;
    EXPECT_EQ(plain.GetMaxAcceptableCounts(), 32);
    EXPECT_TRUE(plain.CanAcceptClient());
}

TEST_F(CServerThreadTest, LogsItsLife) {
    const LogCapture log;
    { const PlainThread plain; }
    EXPECT_EQ(log.Messages(),
              (Messages{"CServerThread::CServerThread(): ....\n",
                        "CServerThread::~CServerThread(): ....\n",
                        "CServerThread::Stop(): Socket counts=0\n", "CServerThread::Stop(): Done\n",
                        "CServerThread::~CServerThread(): Done....\n"}));
}

TEST_F(CServerThreadTest, ServesAConnectionAndLogsEachStep) {
    const LogCapture log;
    ConnectedPair pair;
    auto* socket = new CSocket(pair.served);
    ASSERT_TRUE(m_thread->AddSocket(pair.served, socket, nullptr));
    ASSERT_TRUE(pair.peer.Send("one\n"));
    EXPECT_EQ(pair.peer.Read(5), ">one\n");
    const Messages messages = log.Messages();
    ASSERT_GE(messages.size(), 5U);
    EXPECT_EQ(messages[0].rfind("CServerThread::AddSocket(): Create(0x", 0), 0U) << messages[0];
    char added[100];
    snprintf(added, sizeof(added), "CServerThread::AddSocket(): iSocketFd=%d, pSocket=%p\n",
             pair.served, static_cast<void*>(socket));
    EXPECT_EQ(messages[1], "CServerThread::ThreadProc(): .....\n");
    EXPECT_EQ(messages[2], "CServerThread::ThreadProc(): Start....\n");
    EXPECT_EQ(messages[3], added);
    EXPECT_EQ(messages[4], "CServerThread::ThreadProc(): Data is from socket(" +
                               std::to_string(pair.served) + ").....\n");
    m_thread->ReleaseSocket(pair.served);
    EXPECT_TRUE(log.WaitFor(kProcDone));
}

TEST_F(CServerThreadTest, RefusesWhatIsNoSocket) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    EXPECT_FALSE(m_thread->AddSocket(-1, &socket, nullptr));
    EXPECT_FALSE(m_thread->AddSocket(pair.served, nullptr, nullptr));
    EXPECT_EQ(m_script.created, 0);
}

TEST_F(CServerThreadTest, RefusesWhenItIsFull) {
    m_script.maxPerThread = 2;
    const Client first = Connect();
    EXPECT_TRUE(m_thread->CanAcceptClient());
    Client second = Connect();
    EXPECT_FALSE(m_thread->CanAcceptClient());
    ConnectedPair pair;
    CSocket socket(pair.served);
    EXPECT_FALSE(m_thread->AddSocket(pair.served, &socket, nullptr));
    second.peer.Close();
    EXPECT_TRUE(WaitUntil([this] { return m_thread->CanAcceptClient(); }));
    EXPECT_TRUE(IsServed(first));
}

TEST_F(CServerThreadTest, WithoutAProcessorTheSocketStaysTheCallers) {
    m_script.missing = Missing::Processor;
    ConnectedPair pair;
    CSocket socket(pair.served);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(m_thread->AddSocket(pair.served, &socket, nullptr));
        EXPECT_TRUE(socket.IsOpen());
    }
    m_script.missing = Missing::Nothing;
    EXPECT_TRUE(IsServed(Connect()));
}

TEST_F(CServerThreadTest, TheParameterReachesTheProcessor) {
    ConnectedPair pair;
    auto* param = new com::CUnknownBase;
    ASSERT_TRUE(m_thread->AddSocket(pair.served, new CSocket(pair.served), param));
    EXPECT_EQ(m_script.lastParam, param);
    EXPECT_EQ(param->Release(), 0U) << "nobody has counted it";
}

TEST_F(CServerThreadTest, TheFirstConnectionDoesNotCostTenMilliseconds) {
    long fastest = test::kCeilingMs;
    for (int i = 0; i < 20; ++i) {
        LineThread thread(&m_script);
        ConnectedPair pair;
        auto* socket = new CSocket(pair.served);
        fastest = std::min(
            fastest, MsOf([&] { EXPECT_TRUE(thread.AddSocket(pair.served, socket, nullptr)); }));
    }
    EXPECT_LT(fastest, 5);
}

TEST_F(CServerThreadTest, ADuplicatedDescriptorIsLoggedAndReplacesTheProcessor) {
    ConnectedPair first;
    ConnectedPair second;
    ASSERT_TRUE(m_thread->AddSocket(second.served, new CSocket(first.served), nullptr));
    const LogCapture log(LogCapture::Debug::Off);
    ASSERT_TRUE(m_thread->AddSocket(second.served, new CSocket(second.served), nullptr));
    EXPECT_EQ(log.Messages(), Messages{"CServerThread::AddSocket(): ?????? Duplicated client\n"});
    EXPECT_EQ(m_script.processors, 1);
    EXPECT_TRUE(first.peer.HasEnded());
    ASSERT_TRUE(second.peer.Send("one\n"));
    EXPECT_EQ(second.peer.Read(5), ">one\n");
}

TEST_F(CServerThreadTest, ProcessReturningFalseRemovesOnlyThatConnection) {
    const LogCapture log;
    const Client first = Connect();
    const Client second = Connect();
    ASSERT_TRUE(first.peer.Send("bad\n"));
    EXPECT_TRUE(first.peer.HasEnded());
    EXPECT_TRUE(IsServed(second));
    EXPECT_EQ(log.Count(kProcDone), 0);
    EXPECT_EQ(m_script.processors, 1);
}

TEST_F(CServerThreadTest, TheThreadEndsWithTheLastConnectionAndIsMadeAgainByTheNext) {
    const LogCapture log;
    for (int i = 1; i <= 3; ++i) {
        Client client = Connect();
        EXPECT_TRUE(IsServed(client));
        client.peer.Close();
        ASSERT_TRUE(WaitUntil([&] { return log.Count(kProcDone) == i; }));
    }
    const Messages messages = log.Messages();
    const auto begins = [&](const std::string& text) {
        return std::count_if(messages.begin(), messages.end(), [&](const std::string& message) {
            return message.rfind("CServerThread::AddSocket(): " + text + "(0x", 0) == 0;
        });
    };
    EXPECT_EQ(begins("Create"), 3);
    EXPECT_EQ(begins("Delete"), 2);
}

// What it has received and nobody has read yet.
int Unread(int fd) {
    int count = 0;
    return ioctl(fd, FIONREAD, &count) == 0 ? count : -1;
}

TEST_F(CServerThreadTest, AThreadThatHasEndedKeepsNoDescriptors) {
    const int before = test::OpenDescriptorCount();
    {
        const Client client = Connect();
        EXPECT_TRUE(IsServed(client));
    }
    EXPECT_TRUE(WaitUntil([&] { return test::OpenDescriptorCount() == before; }));
}

// Nor can it have one, and looks at all its connections each time.
TEST_F(CServerThreadTest, WithoutDescriptorsOfItsOwnItServesInOrder) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of virtual calls needs a descriptor of its own";
#endif
    const LogCapture log;
    ConnectedPair pair;
    auto* socket = new CSocket(pair.served);
    const int before = test::OpenDescriptorCount();
    {
        const test::NoDescriptors none;
        ASSERT_TRUE(m_thread->AddSocket(pair.served, socket, nullptr));
    }
    EXPECT_EQ(test::OpenDescriptorCount(), before) << "two more otherwise";
    Client one;
    one.fd = pair.served;
    one.peer = std::move(pair.peer);
    const Client two = Connect();
    EXPECT_EQ(test::OpenDescriptorCount(), before + 2) << "the new connection's";
    EXPECT_TRUE(IsServed(one));
    EXPECT_TRUE(IsServed(two));
    const Client holder = ConnectAndHold();
    const Client& low = one.fd < two.fd ? one : two;
    const Client& high = one.fd < two.fd ? two : one;
    ASSERT_TRUE(high.peer.Send("high\n"));
    ASSERT_TRUE(low.peer.Send("low\n"));
    ASSERT_TRUE(WaitUntil([&] { return Unread(high.fd) == 5 && Unread(low.fd) == 4; }));
    m_script.release.Set();
    EXPECT_EQ(high.peer.Read(6), ">high\n");
    EXPECT_EQ(m_script.Lines(), (Messages{"ping", "ping", "hold", "low", "high"}));
    m_thread->Stop();
    ASSERT_TRUE(log.WaitFor(kProcDone));
    const int stopped = test::OpenDescriptorCount();
    const Client next = Connect();
    EXPECT_EQ(test::OpenDescriptorCount(), stopped + 4) << "with two of the thread's own";
    EXPECT_TRUE(IsServed(next));
}

TEST_F(CServerThreadTest, AConnectionThatComesWhileTheLastOneGoesIsServed) {
    // What decides is whether the thread has looked at its connections for the last time.
    Client last = Connect();
    for (int i = 0; i < 300; ++i) {
        ConnectedPair pair;
        last.peer.Close();
        for (int spin = 0; spin < i * 20; ++spin) {  // shifts the moment from round to round
            (void)m_thread->CanAcceptClient();
        }
        ASSERT_TRUE(m_thread->AddSocket(pair.served, new CSocket(pair.served), nullptr));
        last.fd = pair.served;
        last.peer = std::move(pair.peer);
        ASSERT_TRUE(IsServed(last)) << "round " << i;
    }
}

std::string DataFrom(int fd) {
    return "CServerThread::ThreadProc(): Data is from socket(" + std::to_string(fd) + ").....\n";
}

// The messages of that kind, in their order.
Messages Served(const LogCapture& log) {
    Messages served;
    for (const std::string& message : log.Messages()) {
        if (message.rfind("CServerThread::ThreadProc(): Data is from", 0) == 0) {
            served.push_back(message);
        }
    }
    return served;
}

TEST_F(CServerThreadTest, OfTwoReadyConnectionsTheLowerDescriptorIsServedFirst) {
    const Client holder = ConnectAndHold();
    const Client one = Connect();
    const Client two = Connect();
    const Client& low = one.fd < two.fd ? one : two;
    const Client& high = one.fd < two.fd ? two : one;
    const LogCapture log;
    ASSERT_TRUE(high.peer.Send("high\n"));
    ASSERT_TRUE(low.peer.Send("low\n"));
    EXPECT_EQ(m_thread->CheckIfDataAvailable(1), low.fd);
    m_script.release.Set();
    EXPECT_EQ(high.peer.Read(6), ">high\n");
    EXPECT_EQ(m_script.Lines(), (Messages{"hold", "low", "high"}));
    EXPECT_EQ(Served(log), (Messages{DataFrom(low.fd), DataFrom(high.fd)})) << "one in each cycle";
}

TEST_F(CServerThreadTest, ALowerDescriptorThatBecomesReadyMeanwhileGoesBeforeTheHigherOnes) {
    Client clients[3];
    std::atomic<int> executed{0};
    m_script.onExecute = [&](CServerProtocolProcessor*) {
        if (++executed == 2) {  // the middle one
            EXPECT_TRUE(clients[0].peer.Send("low\n"));
            EXPECT_TRUE(WaitUntil([&] { return Unread(clients[0].fd) == 4; }));
        }
    };
    const Client holder = ConnectAndHold();
    for (Client& client : clients) {
        client = Connect();
    }
    std::sort(std::begin(clients), std::end(clients),
              [](const Client& one, const Client& two) { return one.fd < two.fd; });
    ASSERT_TRUE(clients[1].peer.Send("middle\n"));
    ASSERT_TRUE(clients[2].peer.Send("high\n"));
    ASSERT_TRUE(WaitUntil([&] { return Unread(clients[2].fd) == 5; }));
    m_script.release.Set();
    EXPECT_EQ(clients[2].peer.Read(6), ">high\n");
    EXPECT_EQ(m_script.Lines(), (Messages{"hold", "middle", "low", "high"}));
}

TEST_F(CServerThreadTest, WhatALowerDescriptorHasLeftUnreadGoesBeforeTheHigherOnes) {
    const Client holder = ConnectAndHold();
    const Client one = Connect();
    const Client two = Connect();
    const Client& low = one.fd < two.fd ? one : two;
    const Client& high = one.fd < two.fd ? two : one;
    Messages expected{"hold"};
    std::string lines;
    while (lines.size() < 12000) {  // more than is taken at once
        expected.emplace_back(99, 'x');
        lines += expected.back() + "\n";
    }
    expected.emplace_back("high");
    ASSERT_TRUE(low.peer.Send(lines));
    ASSERT_TRUE(WaitUntil([&] { return Unread(low.fd) == static_cast<int>(lines.size()); }));
    ASSERT_TRUE(high.peer.Send("high\n"));
    ASSERT_TRUE(WaitUntil([&] { return Unread(high.fd) == 5; }));
    m_script.release.Set();
    EXPECT_EQ(high.peer.Read(6), ">high\n");
    EXPECT_EQ(m_script.Lines(), expected);
}

TEST_F(CServerThreadTest, TheEndOfALowerDescriptorIsSeenBeforeTheHigherOnesAreServed) {
    const Client holder = ConnectAndHold();
    const Client one = Connect();
    const Client two = Connect();
    const Client& low = one.fd < two.fd ? one : two;
    const Client& high = one.fd < two.fd ? two : one;
    ASSERT_TRUE(low.peer.Send("low\n"));
    ASSERT_EQ(shutdown(low.peer.Fd(), SHUT_WR), 0);
    ASSERT_TRUE(WaitUntil([&] {
        pollfd end{low.fd, POLLRDHUP, 0};
        return poll(&end, 1, 0) == 1;
    }));
    const LogCapture log;
    ASSERT_TRUE(high.peer.Send("high\n"));
    ASSERT_TRUE(WaitUntil([&] { return Unread(high.fd) == 5; }));
    m_script.release.Set();
    EXPECT_EQ(high.peer.Read(6), ">high\n");
    EXPECT_EQ(Served(log), (Messages{DataFrom(low.fd), DataFrom(low.fd), DataFrom(high.fd)}));
}

TEST_F(CServerThreadTest, CheckWithoutAConnectionIsMinus101) {
    EXPECT_EQ(m_thread->CheckIfDataAvailable(500), -101);
    EXPECT_EQ(m_thread->CheckIfDataAvailable(0), -101);
}

TEST_F(CServerThreadTest, CheckTakesTheRestOfASecondForMicroseconds) {
    const Client client = Connect();
    EXPECT_LT(MsOf([&] {
                  for (int i = 0; i < 100; ++i) {
                      EXPECT_EQ(m_thread->CheckIfDataAvailable(500), -100);
                  }
              }),
              test::kCeilingMs);
    const long ms =
        test::ShortestMs(1850, [&] { EXPECT_EQ(m_thread->CheckIfDataAvailable(1900), -100); });
    EXPECT_GE(ms, 1001);
    EXPECT_LT(ms, 1850);
}

TEST_F(CServerThreadTest, CheckWithZeroOrLessWaitsUntilData) {
    const Client holder = ConnectAndHold();
    const Client client = Connect();
    for (const int timeout : {0, -1}) {
        std::atomic<int> result{0};
        Running checking([&] { result = m_thread->CheckIfDataAvailable(timeout); });
        EXPECT_FALSE(checking.EndsWithin(50));
        ASSERT_TRUE(client.peer.Send("a"));
        EXPECT_TRUE(checking.EndsWithin(test::kCeilingMs));
        EXPECT_EQ(result, client.fd);
        char byte = 0;
        ASSERT_EQ(recv(client.fd, &byte, 1, 0), 1);
    }
}

TEST_F(CServerThreadTest, ADescriptorThatIsNotOpenIsMinus102AndEndsTheThread) {
    const Client holder = ConnectAndHold();
    const Client client = Connect();
    const LogCapture log;
    close(client.fd);
    EXPECT_EQ(m_thread->CheckIfDataAvailable(500), -102);
    m_script.release.Set();
    EXPECT_TRUE(log.WaitFor(kProcDone));
    EXPECT_EQ(m_script.processors, 2) << "the connections stay";
}

TEST_F(CServerThreadTest, ADescriptorThatIsClosedWhileTheThreadIsIdleEndsItToo) {
    const Client other = Connect();
    const Client client = Connect();
    ASSERT_TRUE(IsServed(other));
    ASSERT_TRUE(IsServed(client));
    const LogCapture log;
    close(client.fd);
    EXPECT_TRUE(log.WaitFor(kProcDone));
}

TEST_F(CServerThreadTest, AConnectionThatAnotherThreadDisconnectsIsRemovedAndTheOthersGoOn) {
    const LogCapture log;
    const Client other = Connect();
    CServerProtocolProcessor* processor = nullptr;
    m_script.onExecute = [&](CServerProtocolProcessor* mine) { processor = mine; };
    for (int i = 0; i < 100; ++i) {
        const Client client = Connect();
        ASSERT_TRUE(IsServed(client));
        {
            const std::lock_guard<std::mutex> alive(m_script.lifetime);
            processor->Disconnect();
        }
        EXPECT_TRUE(client.peer.HasEnded());
        ASSERT_TRUE(WaitUntil([this] { return m_script.processors == 1; }));
    }
    EXPECT_TRUE(IsServed(other));
    EXPECT_EQ(log.Count(kProcDone), 0);
}

TEST_F(CServerThreadTest, AProtocolThatDisconnectsItselfIsRemoved) {
    m_script.onExecute = [](CServerProtocolProcessor* processor) { processor->Disconnect(); };
    const Client client = Connect();
    ASSERT_TRUE(client.peer.Send("one\n"));
    EXPECT_TRUE(client.peer.HasEnded());
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
}

// The protocol closes its own connection, and before its Process returns the number belongs to a
// new connection on the same thread.
TEST_F(CServerThreadTest, ANewConnectionWithTheNumberOfTheOneBeingProcessedIsNotRemoved) {
    for (const bool keep : {false, true}) {
        m_script.keep = keep;
        ConnectedPair successor;
        bool done = false;
        int number = -1;
        m_script.onExecute = [&](CServerProtocolProcessor* processor) {
            if (done) {
                return;
            }
            done = true;
            processor->Disconnect();
            EXPECT_EQ(dup3(successor.served, number, O_CLOEXEC), number);
            close(successor.served);
            EXPECT_TRUE(m_thread->AddSocket(number, new CSocket(number), nullptr));
        };
        Client client = Connect();
        number = client.fd;
        ASSERT_TRUE(client.peer.Send("one\n"));
        EXPECT_TRUE(client.peer.HasEnded());
        m_script.keep = true;
        ASSERT_TRUE(successor.peer.Send("two\n"));
        EXPECT_EQ(successor.peer.Read(5), ">two\n");
        EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 1; }));
        m_thread->ReleaseSocket(number);
        EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
    }
}

// The thread wakes for the connection that ended, and finds another one under its number.
TEST_F(CServerThreadTest, ANewConnectionWithTheNumberOfOneThatEndedMeanwhileIsServed) {
    const Client other = Connect();
    for (int i = 0; i < 200; ++i) {
        const Client old = Connect();
        ConnectedPair successor;
        ASSERT_TRUE(IsServed(other));  // so that the old one is watched
        m_thread->ReleaseSocket(old.fd);
        ASSERT_EQ(dup3(successor.served, old.fd, O_CLOEXEC), old.fd);
        close(successor.served);
        ASSERT_TRUE(m_thread->AddSocket(old.fd, new CSocket(old.fd), nullptr));
        ASSERT_TRUE(IsServed(other));
        ASSERT_TRUE(successor.peer.Send("two\n"));
        ASSERT_EQ(successor.peer.Read(5), ">two\n") << "round " << i;
        m_thread->ReleaseSocket(old.fd);
    }
    EXPECT_EQ(m_script.disconnects, 0);
}

TEST_F(CServerThreadTest, DescriptorsAbove1024AreServed) {
    const test::ManyDescriptors many(1100);
    if (!many.Done()) {
        GTEST_SKIP() << "this process may not open so many descriptors";
    }
    std::vector<Client> clients;
    for (int i = 0; i < 32; ++i) {
        clients.push_back(Connect());
        ASSERT_GT(clients.back().fd, 1100);
    }
    for (int round = 0; round < 3; ++round) {
        for (const Client& client : clients) {
            ASSERT_TRUE(IsServed(client));
        }
    }
    m_thread->Stop();
}

TEST_F(CServerThreadTest, ReleaseSocketEndsOneConnection) {
    const Client first = Connect();
    const Client second = Connect();
    m_thread->ReleaseSocket(-1);
    m_thread->ReleaseSocket(999);
    EXPECT_EQ(m_script.processors, 2);
    m_thread->ReleaseSocket(first.fd);
    EXPECT_EQ(m_script.processors, 1);
    EXPECT_TRUE(first.peer.HasEnded());
    EXPECT_TRUE(IsServed(second));
}

TEST_F(CServerThreadTest, AProcessorThatIsReleasedWhileItProcessesLivesUntilItReturns) {
    const Client holder = ConnectAndHold();
    m_thread->ReleaseSocket(holder.fd);
    EXPECT_EQ(m_script.processors, 1);
    EXPECT_TRUE(holder.peer.HasEnded()) << "its socket is shut down at once";
    const Client other = Connect();
    m_script.release.Set();
    EXPECT_TRUE(IsServed(other));
    EXPECT_EQ(m_script.processors, 1);
}

TEST_F(CServerThreadTest, StopEndsAllConnectionsAndTheThread) {
    const LogCapture log;
    const Client first = Connect();
    const Client second = Connect();
    EXPECT_TRUE(IsServed(second));
    EXPECT_TRUE(m_thread->Stop());
    EXPECT_TRUE(log.Contains("CServerThread::Stop(): Socket counts=2\n"));
    EXPECT_TRUE(log.Contains("CServerThread::Stop(): Done\n"));
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
    EXPECT_TRUE(first.peer.HasEnded());
    EXPECT_TRUE(second.peer.HasEnded());
    EXPECT_TRUE(log.WaitFor(kProcDone));
    EXPECT_TRUE(IsServed(Connect())) << "it can be used again";
}

TEST_F(CServerThreadTest, StopDoesNotWaitForARequestThatIsBeingExecuted) {
    const Client holder = ConnectAndHold();
    const Client idle = Connect();
    Running stopping([this] { m_thread->Stop(); });
    EXPECT_TRUE(stopping.EndsWithin(test::kCeilingMs));
    EXPECT_EQ(m_script.processors, 1);
    EXPECT_TRUE(idle.peer.HasEnded());
    EXPECT_TRUE(holder.peer.HasEnded());
    m_script.release.Set();
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
}

TEST_F(CServerThreadTest, StopReleasesAResponseThatTheClientDoesNotTake) {
    const Client client = Connect();
    ASSERT_TRUE(client.peer.Send("big 100000000\n"));
    ASSERT_EQ(client.peer.Read(1), "x");
    m_thread->Stop();
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
    EXPECT_EQ(m_script.ended, 1);
}

TEST_F(CServerThreadTest, AProtocolMayStopItsOwnThread) {
    m_script.onExecute = [this](CServerProtocolProcessor*) { m_thread->Stop(); };
    const Client client = Connect();
    ASSERT_TRUE(client.peer.Send("one\n"));
    EXPECT_TRUE(client.peer.HasEnded());
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
}

TEST_F(CServerThreadTest, AddingAndReleasingFromOtherThreadsLosesNoConnection) {
    std::atomic<int> served{0};
    {
        std::vector<std::unique_ptr<Running>> users;
        for (int user = 0; user < 4; ++user) {
            users.push_back(std::make_unique<Running>([&] {
                for (int i = 0; i < 50; ++i) {
                    Client client = Connect();
                    served += IsServed(client) ? 1 : 0;
                    if (i % 2 == 0) {
                        m_thread->ReleaseSocket(client.fd);
                    } else {
                        client.peer.Close();
                    }
                }
            }));
        }
    }
    EXPECT_EQ(served, 200);
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
}

}  // namespace
}  // namespace kpl::net::server
