#include "kpl/net/server/CSocketServerEx.h"

#include <atomic>
#include <memory>
#include <vector>

#include "tests/net/NetTestSupport.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/VirtualSlot.h"

namespace kpl::net::server {
namespace {

using test::LineServer;
using test::LogCapture;
using test::Missing;
using test::Peer;
using test::Running;
using test::Script;
using test::SlotOf;
using test::WaitUntil;

using Messages = std::vector<std::string>;

class Observer : public IServerObserver {
public:
    bool ClientAccepted(CSocket* client) override {
        const char* ip = client->GetPeerIp();
        peerWasThere = client->IsOpen() && ip != nullptr;
        ++accepted;
        if (goOn != nullptr) {
            goOn->Wait(-1);
            isStillThere = client->IsOpen();
        }
        return false;
    }
    void ServerClosed() override { ++closed; }
    void StartToAccept() override { ++started; }

    os::CEvent* goOn = nullptr;
    std::atomic<bool> peerWasThere{false};
    std::atomic<bool> isStillThere{false};
    std::atomic<int> accepted{0};
    std::atomic<int> closed{0};
    std::atomic<int> started{0};
};

class CSocketServerExTest : public test::NetTest {
protected:
    void TearDown() override {
        EXPECT_TRUE(m_script.AllGone());
        NetTest::TearDown();
    }

    static bool IsServed(const LineServer& server) {
        const Peer peer = Peer::ConnectTo(server.GetListeningPort());
        return peer.Send("ping\n") && peer.Read(6) == ">ping\n";
    }

    Script m_script;
};

TEST_F(CSocketServerExTest, SlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&CSocketServerEx::CreateThreadManager), 2);  // behind the destructors
}

TEST_F(CSocketServerExTest, ServesManyConnections) {
    LineServer server(&m_script);
    EXPECT_EQ(server.GetPort(), -1);
    EXPECT_EQ(server.GetListeningPort(), -1);
    ASSERT_TRUE(server.StartServer());
    EXPECT_EQ(server.GetPort(), 0);
    std::vector<Peer> peers;
    for (int i = 0; i < 100; ++i) {
        peers.push_back(Peer::ConnectTo(server.GetListeningPort()));
    }
    for (int round = 0; round < 3; ++round) {
        for (size_t i = 0; i < peers.size(); ++i) {
            const std::string line = std::to_string(i) + "-" + std::to_string(round);
            ASSERT_TRUE(peers[i].Send(line + "\n"));
            EXPECT_EQ(peers[i].Read(line.size() + 2), ">" + line + "\n");
        }
    }
    EXPECT_EQ(m_script.threads, 4) << "of 32 connections each";
    EXPECT_TRUE(server.StopServer());
    EXPECT_EQ(m_script.threads, 0);
    EXPECT_EQ(server.GetListeningPort(), -1);
    for (const Peer& peer : peers) {
        EXPECT_TRUE(peer.HasEnded());
    }
}

TEST_F(CSocketServerExTest, LogsItsLife) {
    const LogCapture log;
    {
        LineServer server(&m_script);
        ASSERT_TRUE(server.StartServer());
        ASSERT_TRUE(log.WaitFor("CSocketServer::Accept(): Wait for connection....\n"));
        server.StopServer();
    }
    Messages messages;
    for (const std::string& message : log.Messages()) {
        if (message.rfind("CSocketServer::Accept(): ", 0) != 0) {  // on the accept thread
            messages.push_back(message);
        }
    }
    EXPECT_EQ(messages,
              (Messages{"CSocketServerEx::ServerImpl::ServerImpl(): Port=(0)\n",
                        "CServerThreadManager::CServerThreadManager(): ....\n",
                        "CSocketServer::Stop(): .....\n", "CSocketServer::Stop(): Done.....\n",
                        "CSocketServer::BindAndListen(): Max pending connection(128).....\n",
                        "CSocketServer::BindAndListen(): Done.....\n",
                        "CSocketServerEx::ServerObserverImpl::StartToAccept(): .....\n",
                        "CSocketServerEx::StopServer(): .....\n", "CSocketServer::Stop(): .....\n",
                        "CSocketServerEx::ServerObserverImpl::ServerClosed(): .....\n",
                        "CSocketServer::Stop(): Done.....\n",
                        "CServerThreadManager::StopAllThreads(): Thread Counts=0\n",
                        "CServerThreadManager::StopAllThreads(): Done....\n",
                        "CSocketServerEx::StopServer(): Done.....\n",
                        // The destructor stops once more.
                        "CSocketServerEx::~CSocketServerEx(): .....\n",
                        "CSocketServerEx::StopServer(): .....\n", "CSocketServer::Stop(): .....\n",
                        "CSocketServer::Stop(): Done.....\n",
                        "CServerThreadManager::StopAllThreads(): Thread Counts=0\n",
                        "CServerThreadManager::StopAllThreads(): Done....\n",
                        "CSocketServerEx::StopServer(): Done.....\n",
                        "CServerThreadManager::~CServerThreadManager(): ....\n",
                        "CServerThreadManager::StopAllThreads(): Thread Counts=0\n",
                        "CServerThreadManager::StopAllThreads(): Done....\n",
                        "CServerThreadManager::~CServerThreadManager(): Done....\n",
                        "CSocketServer::~CSocketServer(): .....\n",
                        "CSocketServer::Stop(): .....\n", "CSocketServer::Stop(): Done.....\n",
                        "CSocketServer::~CSocketServer(): Done.....\n",
                        "CSocketServerEx::~CSocketServerEx(): Done.....\n"}));
}

TEST_F(CSocketServerExTest, LogsARefusedConnection) {
    m_script.missing = Missing::Manager;
    LogCapture log;
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    ASSERT_TRUE(log.WaitFor("CSocketServer::Accept(): Wait for connection....\n"));
    log.Clear();
    const Peer peer = Peer::ConnectTo(server.GetListeningPort());
    EXPECT_TRUE(peer.HasEnded());
    const std::string refused =
        "CSocketServer::Accept(): ??????????????? Fail to create client socket\n";
    ASSERT_TRUE(log.WaitFor(refused));
    const Messages messages = log.Messages();
    ASSERT_GE(messages.size(), 4U);
    const std::string done = "CSocketServer::Accept(): Wait for connection done(Ret=";
    ASSERT_EQ(messages[0].rfind(done, 0), 0U) << messages[0];
    const std::string fd = std::to_string(std::stoi(messages[0].substr(done.size())));
    EXPECT_EQ(messages[1],
              "CSocketServerEx::ServerImpl::CreateClientSocket(): iSocketFd=(" + fd + ")\n");
    EXPECT_EQ(messages[2], "CSocket::Close(): Done(" + fd + ")\n");
    EXPECT_EQ(messages[3], refused);
}

TEST_F(CSocketServerExTest, WhateverIsMissingTheConnectionEndsAndTheServerGoesOn) {
    m_script.handshake = true;
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    for (const Missing missing : {Missing::ServerThread, Missing::Processor, Missing::Preparation,
                                  Missing::Demuxer, Missing::Handshaker, Missing::AnswerLength,
                                  Missing::AnswerData, Missing::Executor, Missing::Muxer}) {
        const bool inHandshake = missing == Missing::Handshaker ||
                                 missing == Missing::AnswerLength || missing == Missing::AnswerData;
        m_script.missing = missing;
        const Peer peer = Peer::ConnectTo(server.GetListeningPort());
        (void)peer.Send(inHandshake ? "hello\n" : "ping\n");
        EXPECT_EQ(peer.ReadToEnd(), "");
        m_script.missing = Missing::Nothing;
        EXPECT_TRUE(IsServed(server)) << static_cast<int>(missing);
    }
    server.StopServer();
}

TEST_F(CSocketServerExTest, BadInputEndsItsConnectionOnly) {
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    const Peer good = Peer::ConnectTo(server.GetListeningPort());
    {
        const Peer tooLong = Peer::ConnectTo(server.GetListeningPort());
        (void)tooLong.Send(std::string(10000, 'x'));
        EXPECT_TRUE(tooLong.HasEnded());
        const Peer zero = Peer::ConnectTo(server.GetListeningPort());
        EXPECT_TRUE(zero.Send(std::string("\0\n", 2)));
        EXPECT_EQ(zero.Read(3), std::string(">\0\n", 3));
        Peer half = Peer::ConnectTo(server.GetListeningPort());
        EXPECT_TRUE(half.Send("hal"));
        half.Close();
        Peer reset = Peer::ConnectTo(server.GetListeningPort());
        EXPECT_TRUE(reset.Send("hal"));
        reset.Reset();
        Peer inResponse = Peer::ConnectTo(server.GetListeningPort());
        EXPECT_TRUE(inResponse.Send("big 10000000\n"));
        EXPECT_EQ(inResponse.Read(1), "x");
        inResponse.Reset();
    }
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 1; }));
    ASSERT_TRUE(good.Send("ping\n"));
    EXPECT_EQ(good.Read(6), ">ping\n");
    server.StopServer();
}

TEST_F(CSocketServerExTest, TheObserverIsSetAfterTheStartAndHearsOfClientsAndTheEnd) {
    Observer observer;
    LineServer server(&m_script);
    server.SetObserver(&observer);  // too early
    ASSERT_TRUE(server.StartServer());
    EXPECT_TRUE(IsServed(server));
    EXPECT_EQ(observer.accepted, 0);
    server.SetObserver(&observer);
    EXPECT_TRUE(IsServed(server)) << "whatever the observer says";
    EXPECT_EQ(observer.accepted, 1);
    EXPECT_TRUE(observer.peerWasThere);
    server.StopServer();
    EXPECT_EQ(observer.closed, 1);
    EXPECT_EQ(observer.started, 0);
    ASSERT_TRUE(server.StartServer());
    EXPECT_TRUE(IsServed(server));
    server.StopServer();
    EXPECT_EQ(observer.accepted, 1) << "forgotten by the second start";
    EXPECT_EQ(observer.closed, 1);
}

TEST_F(CSocketServerExTest, TheObserverMayLookAtASocketWhosePeerHasGone) {
    os::CEvent goOn(false);
    Observer observer;
    observer.goOn = &goOn;
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    server.SetObserver(&observer);
    {
        const Peer gone = Peer::ConnectTo(server.GetListeningPort());
        EXPECT_TRUE(gone.Send("bad\n"));
        ASSERT_TRUE(WaitUntil([&] { return observer.accepted == 1; }));
    }
    EXPECT_FALSE(WaitUntil([this] { return m_script.processors == 0; }, 50));
    EXPECT_EQ(m_script.prepared, 0) << "not served before the observer has returned";
    goOn.Set();
    EXPECT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
    EXPECT_TRUE(observer.isStillThere);
    server.StopServer();
}

// Then there is nothing to wait for.
TEST_F(CSocketServerExTest, AWaitForDataThatBeganWhileTheOnlyConnectionWasHeldSeesItLater) {
    os::CEvent goOn(false);
    Observer observer;
    observer.goOn = &goOn;
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    server.SetObserver(&observer);
    Peer peer = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(WaitUntil([&] { return observer.accepted == 1; }));
    Running checking([&] { (void)m_script.lastThread.load()->CheckIfDataAvailable(0); });
    EXPECT_FALSE(checking.EndsWithin(50));
    goOn.Set();
    peer.Close();
    EXPECT_TRUE(checking.EndsWithin(test::kCeilingMs));
    server.StopServer();
}

TEST_F(CSocketServerExTest, OthersAreServedWhileTheObserverLooksAtAClient) {
    os::CEvent goOn(false);
    Observer observer;
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    const Peer first = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(first.Send("served\n"));  // so that its own look is over
    ASSERT_EQ(first.Read(8), ">served\n");
    observer.goOn = &goOn;
    server.SetObserver(&observer);
    const Peer second = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(second.Send("two\n"));
    ASSERT_TRUE(WaitUntil([&] { return observer.accepted >= 1; }));
    ASSERT_TRUE(first.Send("one\n"));
    EXPECT_EQ(first.Read(5), ">one\n");
    goOn.Set();
    EXPECT_EQ(second.Read(5), ">two\n");
    server.StopServer();
}

TEST_F(CSocketServerExTest, WaitBeforeTheStartWaitsUntilTheStop) {
    LineServer server(&m_script);
    std::atomic<int> result{-1};
    Running waiting([&] { result = server.WaitForServerStop(); });
    ASSERT_TRUE(waiting.WaitUntilBlocked());
    ASSERT_TRUE(server.StartServer());
    EXPECT_FALSE(waiting.EndsWithin(20));
    server.StopServer();
    EXPECT_TRUE(waiting.EndsWithin(test::kCeilingMs));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(server.WaitForServerStop(), 1) << "at once, once it is stopped";
}

TEST_F(CSocketServerExTest, TheDestructorLetsTheWaitersGoAndWaitsForThem) {
    for (int round = 0; round < 100; ++round) {
        std::vector<std::unique_ptr<Running>> waiting;
        {
            LineServer server(&m_script);
            for (int i = 0; i < 3; ++i) {
                waiting.push_back(std::make_unique<Running>([&] { server.WaitForServerStop(); }));
            }
            for (const auto& one : waiting) {
                ASSERT_TRUE(one->WaitUntilBlocked());
            }
        }
    }
}

TEST_F(CSocketServerExTest, AStartRightAfterTheStopKeepsNoWaiterBack) {
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    for (int round = 0; round < 100; ++round) {
        Running waiting([&] { server.WaitForServerStop(); });
        ASSERT_TRUE(waiting.WaitUntilBlocked());
        server.StopServer();
        ASSERT_TRUE(server.StartServer());
        EXPECT_TRUE(waiting.EndsWithin(test::kCeilingMs)) << "round " << round;
    }
    server.StopServer();
}

TEST_F(CSocketServerExTest, AWaiterMayDestroyTheServerThatAnotherThreadStops) {
    for (int round = 0; round < 100; ++round) {
        auto server = std::make_unique<LineServer>(&m_script);
        ASSERT_TRUE(server->StartServer());
        LineServer* const raw = server.get();
        Running stopping([raw] { raw->StopServer(); });
        EXPECT_EQ(server->WaitForServerStop(), 1);
        server.reset();
    }
}

TEST_F(CSocketServerExTest, StartOfARunningServerReplacesIt) {
    Observer observer;
    LineServer server(&m_script);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(server.StartServer());
        EXPECT_EQ(m_script.managers, 1);
        EXPECT_EQ(observer.closed, i);
        EXPECT_EQ(m_script.after, i) << "the hooks of the one before, with its threads";
        server.SetObserver(&observer);
        EXPECT_TRUE(IsServed(server));
    }
    server.StopServer();
}

TEST_F(CSocketServerExTest, ClientsMayConnectWhileARunningServerIsReplaced) {
    // The accept thread must have ended before the manager that it hands them to is gone.
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    std::atomic<int> port{server.GetListeningPort()};
    std::atomic<bool> stop{false};
    Running connecting([&] {
        while (!stop) {
            const Peer peer = Peer::ConnectTo(port);
            (void)peer.Send("bad\n");
            (void)peer.HasEnded();
        }
    });
    for (int i = 0; i < 50; ++i) {
        const int before = m_script.created;
        ASSERT_TRUE(WaitUntil([&] { return m_script.created > before; }));
        ASSERT_TRUE(server.StartServer());
        port = server.GetListeningPort();
        EXPECT_EQ(m_script.managers, 1);
    }
    stop = true;
    server.StopServer();
}

TEST_F(CSocketServerExTest, APortInUseIsFalse) {
    LineServer first(&m_script);
    ASSERT_TRUE(first.StartServer());
    const int port = first.GetListeningPort();
    LineServer second(&m_script, static_cast<unsigned int>(port));
    EXPECT_FALSE(second.StartServer());
    EXPECT_EQ(second.GetPort(), port);
    EXPECT_EQ(second.GetListeningPort(), -1);
    EXPECT_TRUE(IsServed(first));
}

TEST_F(CSocketServerExTest, MoreThan1100DescriptorsWork) {
    const test::ManyDescriptors many(1100);
    if (!many.Done()) {
        GTEST_SKIP() << "this process may not open so many descriptors";
    }
    LineServer server(&m_script);
    ASSERT_TRUE(server.StartServer());
    std::vector<Peer> peers;
    for (int i = 0; i < 100; ++i) {
        peers.push_back(Peer::ConnectTo(server.GetListeningPort()));
        ASSERT_TRUE(peers.back().Send("ping\n"));
    }
    for (const Peer& peer : peers) {
        EXPECT_GT(peer.Fd(), 1100);
        EXPECT_EQ(peer.Read(6), ">ping\n");
    }
    server.StopServer();
}

}  // namespace
}  // namespace kpl::net::server
