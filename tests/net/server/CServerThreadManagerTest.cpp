#include "kpl/net/server/CServerThreadManager.h"

#include <memory>
#include <vector>

#include "tests/net/NetTestSupport.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/Process.h"
#include "tests/support/VirtualSlot.h"

namespace kpl::net::server {
namespace {

using test::ConnectedPair;
using test::LineManager;
using test::LogCapture;
using test::Missing;
using test::Peer;
using test::Running;
using test::Script;
using test::SlotOf;
using test::WaitUntil;

using Messages = std::vector<std::string>;

constexpr const char* kPrefix = "CServerThreadManager::";

class CServerThreadManagerTest : public test::NetTest {
protected:
    void SetUp() override {
        NetTest::SetUp();
        m_manager = std::make_unique<LineManager>(&m_script);
    }

    void TearDown() override {
        m_script.release.Set();
        m_manager.reset();
        EXPECT_TRUE(m_script.AllGone());
        NetTest::TearDown();
    }

    Peer Connect() {
        ConnectedPair pair;
        EXPECT_TRUE(m_manager->Dispatch(pair.served, new CSocket(pair.served)));
        return std::move(pair.peer);
    }

    void ExpectRefused() {
        ConnectedPair pair;
        CSocket socket(pair.served);
        EXPECT_FALSE(m_manager->Dispatch(pair.served, &socket));
        EXPECT_TRUE(socket.IsOpen());
    }

    static bool IsServed(const Peer& peer) {
        return peer.Send("ping\n") && peer.Read(6) == ">ping\n";
    }

    Script m_script;
    std::unique_ptr<LineManager> m_manager;
};

TEST_F(CServerThreadManagerTest, SlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&CServerThreadManager::GetServerThreadParam), 2);  // behind the destructors
    EXPECT_EQ(SlotOf(&CServerThreadManager::CreateServerThread), 3);
    EXPECT_EQ(SlotOf(&CServerThreadManager::BeforeStopAllThreads), 4);
    EXPECT_EQ(SlotOf(&CServerThreadManager::AfterStopAllThreads), 5);
}

// Overrides only what it must.
class PlainManager : public CServerThreadManager {
    CServerThread* CreateServerThread() override { return nullptr; }
};

TEST_F(CServerThreadManagerTest, LogsItsLife) {
    const LogCapture log;
    {
        PlainManager manager;
        EXPECT_EQ(manager.GetServerThreadParam(1, nullptr), nullptr);
    }
    Messages expected;
    for (const char* text : {"CServerThreadManager(): ....", "~CServerThreadManager(): ....",
                             "StopAllThreads(): Thread Counts=0", "StopAllThreads(): Done....",
                             "~CServerThreadManager(): Done...."}) {
        expected.push_back(std::string(kPrefix) + text + "\n");
    }
    EXPECT_EQ(log.Messages(), expected);
}

TEST_F(CServerThreadManagerTest, RefusesWhatIsNoConnection) {
    ConnectedPair pair;
    CSocket socket(pair.served);
    EXPECT_FALSE(m_manager->Dispatch(-1, &socket));
    EXPECT_FALSE(m_manager->Dispatch(pair.served, nullptr));
    EXPECT_EQ(m_script.threadsCreated, 0);
}

TEST_F(CServerThreadManagerTest, The33rdConnectionMakesASecondThread) {
    std::vector<Peer> peers;
    for (int i = 0; i < 32; ++i) {
        peers.push_back(Connect());
    }
    EXPECT_EQ(m_script.threadsCreated, 1);
    CServerThread* const first = m_script.lastThread;
    peers.push_back(Connect());
    EXPECT_EQ(m_script.threadsCreated, 2);
    CServerThread* const second = m_script.lastThread;
    EXPECT_NE(second, first);
    peers.push_back(Connect());
    EXPECT_EQ(m_script.lastThread, second);
    for (const Peer& peer : peers) {
        EXPECT_TRUE(IsServed(peer));
    }
    peers[5].Close();
    ASSERT_TRUE(WaitUntil([&] { return first->CanAcceptClient(); }));
    peers.push_back(Connect());
    EXPECT_EQ(m_script.lastThread, first) << "the first with room";
    EXPECT_EQ(m_script.threadsCreated, 2);
    EXPECT_TRUE(IsServed(peers.back()));
}

TEST_F(CServerThreadManagerTest, AThreadWithoutConnectionsIsUsedAgain) {
    for (int i = 0; i < 5; ++i) {
        Peer peer = Connect();
        EXPECT_TRUE(IsServed(peer));
        peer.Close();
        ASSERT_TRUE(WaitUntil([this] { return m_script.processors == 0; }));
    }
    EXPECT_EQ(m_script.threadsCreated, 1);
}

TEST_F(CServerThreadManagerTest, TheParameterReachesTheProcessor) {
    com::CUnknownBase param;
    m_manager->param = &param;
    const Peer peer = Connect();
    EXPECT_EQ(m_script.lastParam, &param);
}

TEST_F(CServerThreadManagerTest, WithoutAServerThreadTheConnectionIsRefused) {
    m_script.missing = Missing::ServerThread;
    ExpectRefused();
    m_script.missing = Missing::Nothing;
    EXPECT_TRUE(IsServed(Connect()));
}

TEST_F(CServerThreadManagerTest, WithoutAProcessorTheConnectionIsRefusedAndNoThreadIsKept) {
    m_script.missing = Missing::Processor;
    for (int i = 0; i < 5; ++i) {
        ExpectRefused();
        EXPECT_EQ(m_script.threads, 0);
    }
    m_script.missing = Missing::Nothing;
    EXPECT_TRUE(IsServed(Connect()));
}

TEST_F(CServerThreadManagerTest, StoppingAnEmptyManagerLogsZeroAndCallsBothHooks) {
    const LogCapture log;
    EXPECT_TRUE(m_manager->StopAllThreads());
    EXPECT_EQ(log.Messages(), (Messages{"CServerThreadManager::StopAllThreads(): Thread Counts=0\n",
                                        "CServerThreadManager::StopAllThreads(): Done....\n"}));
    EXPECT_EQ(m_script.before, 1);
    EXPECT_EQ(m_script.after, 1);
}

TEST_F(CServerThreadManagerTest, StopEndsAllThreadsInTheOrderOfTheirCreation) {
    m_script.maxPerThread = 1;
    const Peer first = Connect();
    const Peer second = Connect();
    const LogCapture log;
    EXPECT_TRUE(m_manager->StopAllThreads());
    EXPECT_TRUE(log.Contains("CServerThreadManager::StopAllThreads(): Thread Counts=2\n"));
    EXPECT_EQ(log.Count("CServerThread::Stop(): Socket counts=1\n"), 2);
    EXPECT_EQ(log.Count("CServerThread::~CServerThread(): Done....\n"), 2);
    EXPECT_EQ(m_script.threads, 0);
    EXPECT_EQ(m_script.processors, 0);
    EXPECT_TRUE(first.HasEnded());
    EXPECT_TRUE(second.HasEnded());
    EXPECT_TRUE(IsServed(Connect())) << "it can be used again";
}

TEST_F(CServerThreadManagerTest, AfterAStopHasBegunNoOtherRequestIs) {
    m_script.maxPerThread = 1;
    const Peer holder = Connect();
    const Peer other = Connect();
    ASSERT_TRUE(holder.Send("hold\n"));
    ASSERT_TRUE(WaitUntil([this] { return m_script.holding == 1; }));
    const LogCapture log;
    Running stopping([this] { m_manager->StopAllThreads(); });
    EXPECT_TRUE(holder.HasEnded()) << "shut down by the stop";
    ASSERT_TRUE(log.WaitFor("CServerThread::Stop(): Socket counts=1\n")) << "of the first thread";
    (void)other.Send("late\n");
    EXPECT_FALSE(stopping.EndsWithin(50)) << "it waits for the request that is being executed";
    m_script.release.Set();
    EXPECT_TRUE(stopping.EndsWithin(10000));
    EXPECT_EQ(m_script.Lines(), Messages{"hold"});
}

}  // namespace
}  // namespace kpl::net::server
