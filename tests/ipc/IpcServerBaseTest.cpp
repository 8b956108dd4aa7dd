#include "kpl/ipc/IpcServerBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kpl/os/CEvent.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/VirtualSlot.h"

namespace {

using kpl::ipc::IpcServerBase;
using kpl::ipc::IpcServerObserver;
using kpl::ipc::IpcStreamer;
using kpl::os::CEvent;
using kpl::test::LogCapture;
using kpl::test::SlotOf;
using kpl::test::WaitUntil;
using Messages = std::vector<std::string>;

class NoStreamer : public IpcStreamer {
public:
    bool Open() override { return false; }
    int SetOption(int, int) override { return 0; }
    int GetOption(int) override { return -1; }
    int Read(char*, int, int) override { return -1; }
    int Write(const char*, int) override { return -1; }
    void Close() override {}
    bool IsOpened() override { return false; }
};

// What happened, in order, from all threads.
class Journal {
public:
    void Add(const std::string& entry) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.push_back(entry);
    }
    Messages Entries() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.clear();
    }
    bool WaitFor(const std::string& entry) const {
        return WaitUntil([&] {
            const Messages entries = Entries();
            return std::find(entries.begin(), entries.end(), entry) != entries.end();
        });
    }

private:
    mutable std::mutex m_mutex;
    Messages m_entries;
};

// A transport whose clients are the streamers that a test queues; null stands for a step that
// yields none.
class FakeServer : public IpcServerBase {
public:
    explicit FakeServer(Journal* j) : journal(j) {}
    ~FakeServer() override {
        if (IsAccepting()) {
            Release();
            StopAcceptClient();
        }
    }

    bool DoStart(const char* name, void* param) override {
        journal->Add(std::string("DoStart ") + name + (param != nullptr ? " param" : ""));
        nameInHook = GetServerName();
        paramInHook = GetParameter();
        shutdown = !startResult;
        return startResult;
    }
    bool DoStop() override {
        journal->Add("DoStop");
        if (stopResult) {
            Release();
        }
        if (IsAccepting() && logToAwait != nullptr) {
            logToAwait->WaitFor("IpcServerBase::Execute(): Done.\n");
        }
        return stopResult;
    }
    IpcStreamer* DoAccept() override {
        const int inside = ++m_insideAccept;
        EXPECT_EQ(inside, 1) << "accept steps run one after another";
        m_wake.Wait(-1);
        std::lock_guard<std::mutex> lock(m_mutex);
        acceptThreads.insert(std::this_thread::get_id());
        IpcStreamer* next = nullptr;
        if (!m_clients.empty()) {
            next = m_clients.front();
            m_clients.pop_front();
            journal->Add(next != nullptr ? "DoAccept" : "DoAccept null");
        }
        if (m_clients.empty() && !shutdown) {
            m_wake.Reset();
        }
        --m_insideAccept;
        return next;
    }
    void FreeIpcStreamer(IpcStreamer*) override { journal->Add("FreeIpcStreamer"); }
    bool IsShutdownServer() override { return shutdown; }
    void DoStopped() override { journal->Add(IsAccepting() ? "DoStopped too early" : "DoStopped"); }

    void Offer(IpcStreamer* streamer) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_clients.push_back(streamer);
        m_wake.Set();
    }

    using IpcServerBase::IsAccepting;

    Journal* const journal;
    const LogCapture* logToAwait = nullptr;  // makes the order of a stop's messages certain
    std::atomic<bool> shutdown{false};
    bool startResult = true;
    bool stopResult = true;
    std::string nameInHook;
    void* paramInHook = nullptr;
    std::set<std::thread::id> acceptThreads;

private:
    void Release() {
        std::lock_guard<std::mutex> lock(m_mutex);
        shutdown = true;
        m_wake.Set();
    }

    std::mutex m_mutex;
    std::deque<IpcStreamer*> m_clients;
    CEvent m_wake{false};
    std::atomic<int> m_insideAccept{0};
};

class NotedObserver : public IpcServerObserver {
public:
    NotedObserver(Journal* journal, const char* name) : m_journal(journal), m_name(name) {}

    void ServerOpened(const char* name) override {
        m_journal->Add(m_name + " opened " + name);
        if (onOpened) {
            onOpened();
        }
    }
    bool ClientAccepted(IpcStreamer* streamer) override {
        last = streamer;
        m_journal->Add(m_name + (accepts ? " accepts" : " refuses"));
        if (onAccepted) {
            onAccepted();
        }
        return accepts;
    }
    void ServerClosed() override { m_journal->Add(m_name + " closed"); }

    std::atomic<bool> accepts{true};
    std::atomic<IpcStreamer*> last{nullptr};
    std::function<void()> onOpened;
    std::function<void()> onAccepted;

private:
    Journal* const m_journal;
    const std::string m_name;
};

class IpcServerBaseTest : public ::testing::Test {
protected:
    Journal m_journal;
    NoStreamer m_streamer;
    NotedObserver m_first{&m_journal, "first"};
    NotedObserver m_second{&m_journal, "second"};
};

TEST_F(IpcServerBaseTest, TheHooksFollowTheInterfacesOperationsInTheirSlots) {
    EXPECT_EQ(SlotOf(&IpcServerBase::DoStart), 8);  // the destructor takes two
    EXPECT_EQ(SlotOf(&IpcServerBase::DoStop), 9);
    EXPECT_EQ(SlotOf(&IpcServerBase::DoAccept), 10);
    EXPECT_EQ(SlotOf(&IpcServerBase::FreeIpcStreamer), 11);
    EXPECT_EQ(SlotOf(&IpcServerBase::IsShutdownServer), 12);
}

TEST_F(IpcServerBaseTest, ALifeMessageByMessage) {
    LogCapture log;
    {
        FakeServer server(&m_journal);
        server.logToAwait = &log;
        ASSERT_TRUE(server.Start("Foo", nullptr));
        ASSERT_TRUE(server.Stop());
    }
    EXPECT_EQ(log.Messages(), (Messages{"IpcServerBase::IpcServerBase(): .......\n",
                                        "IpcServerBase::StartAccetpClient(): ....\n",
                                        "IpcServerBase::StartAccetpClient(): Done.\n",
                                        "IpcServerBase::Execute(): Done.\n",
                                        "IpcServerBase::StopAcceptClient(): .....\n",
                                        "IpcServerBase::StopAcceptClient(): Done.\n",
                                        "IpcServerBase::~IpcServerBase(): .......\n"}));
}

TEST_F(IpcServerBaseTest, ARunCallByCall) {
    FakeServer server(&m_journal);
    EXPECT_TRUE(server.RegisterObserver(&m_first));
    EXPECT_TRUE(server.RegisterObserver(&m_second));
    ASSERT_TRUE(server.Start("Foo", this));
    server.Offer(&m_streamer);
    ASSERT_TRUE(m_journal.WaitFor("second accepts"));
    EXPECT_EQ(m_first.last, &m_streamer);
    EXPECT_EQ(m_second.last, &m_streamer);
    ASSERT_TRUE(server.Stop());
    EXPECT_EQ(m_journal.Entries(),
              (Messages{"DoStart Foo param", "first opened Foo", "second opened Foo", "DoAccept",
                        "first accepts", "second accepts", "DoStop", "DoStopped", "first closed",
                        "second closed"}));
}

TEST_F(IpcServerBaseTest, NameAndParameterAreEmptyBeforeTheFirstStart) {
    FakeServer server(&m_journal);
    EXPECT_STREQ(server.GetServerName(), "");
    EXPECT_EQ(server.GetParameter(), nullptr);
}

TEST_F(IpcServerBaseTest, TheHookSeesNameAndParameterAlready) {
    FakeServer server(&m_journal);
    ASSERT_TRUE(server.Start("Foo", this));
    EXPECT_EQ(server.nameInHook, "Foo");
    EXPECT_EQ(server.paramInHook, this);
    EXPECT_STREQ(server.GetServerName(), "Foo");
    EXPECT_EQ(server.GetParameter(), this);
    EXPECT_TRUE(server.Stop());
}

TEST_F(IpcServerBaseTest, StartWithAnEmptyOrNullNameReturnsFalseWithoutTheHook) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    LogCapture log;
    EXPECT_FALSE(server.Start("", this));
    EXPECT_FALSE(server.Start(nullptr, this));
    EXPECT_TRUE(m_journal.Entries().empty());
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_EQ(server.GetParameter(), nullptr);
}

TEST_F(IpcServerBaseTest, AFailedHookStartsNothingTellsNobodyAndKeepsNameAndParameter) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    server.startResult = false;
    LogCapture log;
    EXPECT_FALSE(server.Start("Foo", this));
    EXPECT_EQ(m_journal.Entries(), (Messages{"DoStart Foo param"}));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_FALSE(server.IsAccepting());
    EXPECT_STREQ(server.GetServerName(), "Foo");
    EXPECT_EQ(server.GetParameter(), this);
}

TEST_F(IpcServerBaseTest, AFailedStopLeavesTheWorkerRunningAndTellsNobody) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    ASSERT_TRUE(server.Start("Foo", nullptr));
    server.stopResult = false;
    LogCapture log;
    EXPECT_FALSE(server.Stop());
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_TRUE(server.IsAccepting());
    server.Offer(&m_streamer);
    EXPECT_TRUE(m_journal.WaitFor("first accepts"));
    EXPECT_EQ(m_journal.Entries(),
              (Messages{"DoStart Foo", "first opened Foo", "DoStop", "DoAccept", "first accepts"}));
    server.stopResult = true;
    EXPECT_TRUE(server.Stop());
}

TEST_F(IpcServerBaseTest, StopOfAServerThatWasNeverStartedCallsTheHookAndTellsTheObservers) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    LogCapture log;
    EXPECT_TRUE(server.Stop());
    EXPECT_EQ(m_journal.Entries(), (Messages{"DoStop", "DoStopped", "first closed"}));
    EXPECT_EQ(log.Messages(), (Messages{"IpcServerBase::StopAcceptClient(): .....\n"}));
}

TEST_F(IpcServerBaseTest, AnObserverRegistersOnceAndIsToldOnce) {
    FakeServer server(&m_journal);
    EXPECT_TRUE(server.RegisterObserver(&m_first));
    EXPECT_FALSE(server.RegisterObserver(&m_first));
    EXPECT_FALSE(server.RegisterObserver(nullptr));
    server.NotifyOpened("Foo");
    EXPECT_EQ(m_journal.Entries(), (Messages{"first opened Foo"}));
}

TEST_F(IpcServerBaseTest, AnObserverThatIsUnregisteredHearsNothingMoreAndMayComeBackLast) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    server.RegisterObserver(&m_second);
    server.UnregisterObserver(&m_first);
    server.UnregisterObserver(&m_first);
    server.UnregisterObserver(nullptr);
    server.NotifyClosed();
    EXPECT_EQ(m_journal.Entries(), (Messages{"second closed"}));
    EXPECT_TRUE(server.RegisterObserver(&m_first));
    m_journal.Clear();
    server.NotifyClosed();
    EXPECT_EQ(m_journal.Entries(), (Messages{"second closed", "first closed"}));
}

TEST_F(IpcServerBaseTest, WhenTheFirstObserverRefusesTheSecondIsNotAskedAndTheStreamerIsFreed) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    server.RegisterObserver(&m_second);
    m_first.accepts = false;
    ASSERT_TRUE(server.Start("Foo", nullptr));
    m_journal.Clear();
    server.Offer(&m_streamer);
    EXPECT_TRUE(m_journal.WaitFor("FreeIpcStreamer"));
    EXPECT_EQ(m_journal.Entries(), (Messages{"DoAccept", "first refuses", "FreeIpcStreamer"}));
    EXPECT_TRUE(server.Stop());
}

TEST_F(IpcServerBaseTest, WithoutObserversEveryStreamerCountsAsAccepted) {
    FakeServer server(&m_journal);
    EXPECT_TRUE(server.NotifyAccepted(&m_streamer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    m_journal.Clear();
    server.Offer(&m_streamer);
    server.Offer(nullptr);
    EXPECT_TRUE(m_journal.WaitFor("DoAccept null"));
    EXPECT_EQ(m_journal.Entries(), (Messages{"DoAccept", "DoAccept null"}));
    EXPECT_TRUE(server.Stop());
}

TEST_F(IpcServerBaseTest, NotificationsRefuseNullsAndEmptyNames) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    EXPECT_FALSE(server.NotifyAccepted(nullptr));
    server.NotifyOpened(nullptr);
    server.NotifyOpened("");
    EXPECT_TRUE(m_journal.Entries().empty());
}

TEST_F(IpcServerBaseTest, AStepWithoutAClientIsFollowedByTheNextOne) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    ASSERT_TRUE(server.Start("Foo", nullptr));
    m_journal.Clear();
    server.Offer(nullptr);
    server.Offer(nullptr);
    server.Offer(&m_streamer);
    EXPECT_TRUE(m_journal.WaitFor("first accepts"));
    EXPECT_EQ(m_journal.Entries(),
              (Messages{"DoAccept null", "DoAccept null", "DoAccept", "first accepts"}));
    EXPECT_TRUE(server.Stop());
    EXPECT_EQ(server.acceptThreads.size(), 1U) << "one worker thread";
    EXPECT_EQ(server.acceptThreads.count(std::this_thread::get_id()), 0U);
}

TEST_F(IpcServerBaseTest, AStoppedServerMayBeStartedAgainUnderAnotherName) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    for (const char* name : {"Foo", "Bar", "Foo"}) {
        m_journal.Clear();
        ASSERT_TRUE(server.Start(name, nullptr));
        EXPECT_STREQ(server.GetServerName(), name);
        server.Offer(&m_streamer);
        EXPECT_TRUE(m_journal.WaitFor("first accepts"));
        EXPECT_TRUE(server.Stop());
    }
}

TEST_F(IpcServerBaseTest, StartOfARunningServerStopsAcceptingFirst) {
    FakeServer server(&m_journal);
    ASSERT_TRUE(server.Start("Foo", nullptr));
    server.Offer(nullptr);
    ASSERT_TRUE(m_journal.WaitFor("DoAccept null"));
    LogCapture log;
    std::atomic<bool> stopped{false};
    std::thread release([&] {
        // The old worker is joined: it needs one more step to leave, after the message, which comes
        // before the worker is told to.
        EXPECT_TRUE(log.WaitFor("IpcServerBase::StopAcceptClient(): .....\n"));
        EXPECT_TRUE(WaitUntil([&] {
            server.Offer(nullptr);
            return stopped.load();
        }));
    });
    EXPECT_TRUE(server.Start("Bar", nullptr));
    stopped = true;
    release.join();
    EXPECT_EQ(log.Messages(), (Messages{"IpcServerBase::StartAccetpClient(): ....\n",
                                        "IpcServerBase::StopAcceptClient(): .....\n",
                                        "IpcServerBase::StopAcceptClient(): Done.\n",
                                        "IpcServerBase::StartAccetpClient(): Done.\n"}));
    EXPECT_TRUE(server.Stop());
}

TEST_F(IpcServerBaseTest, DestructionCallsNoHook) {
    {
        FakeServer server(&m_journal);
        server.RegisterObserver(&m_first);
        ASSERT_TRUE(server.Start("Foo", nullptr));
        m_journal.Clear();
    }
    EXPECT_TRUE(m_journal.Entries().empty());
}

TEST_F(IpcServerBaseTest, AnObserverMayRegisterAndUnregisterFromWithinItsCall) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    m_first.onOpened = [&] {
        server.UnregisterObserver(&m_first);
        EXPECT_TRUE(server.RegisterObserver(&m_second));
    };
    server.NotifyOpened("Foo");
    server.NotifyClosed();
    EXPECT_EQ(m_journal.Entries(), (Messages{"first opened Foo", "second closed"}));
}

TEST_F(IpcServerBaseTest, AnObserverRemovedByAnEarlierOneIsNotCalledAnyMore) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    server.RegisterObserver(&m_second);
    m_first.onOpened = [&] { server.UnregisterObserver(&m_second); };
    server.NotifyOpened("Foo");
    EXPECT_EQ(m_journal.Entries(), (Messages{"first opened Foo"}));
}

TEST_F(IpcServerBaseTest, UnregisterWaitsForACallOnAnotherThread) {
    FakeServer server(&m_journal);
    server.RegisterObserver(&m_first);
    CEvent inside(false);
    CEvent leave(false);
    m_first.onAccepted = [&] {
        inside.Set();
        leave.Wait(-1);
        m_journal.Add("leaves");
    };
    ASSERT_TRUE(server.Start("Foo", nullptr));
    server.Offer(&m_streamer);
    ASSERT_TRUE(inside.Wait(10000));
    kpl::test::WatchedThread remover([&] {
        server.UnregisterObserver(&m_first);
        m_journal.Add("unregistered");
    });
    remover.WaitUntilBlocked();
    EXPECT_FALSE(remover.HasEnded());
    leave.Set();
    remover.Join();
    const Messages entries = m_journal.Entries();
    EXPECT_EQ(entries.back(), "unregistered");
    EXPECT_EQ(entries[entries.size() - 2], "leaves");
    EXPECT_TRUE(server.Stop());
}

TEST_F(IpcServerBaseTest, ObserversComeAndGoWhileClientsAreAccepted) {
    FakeServer server(&m_journal);
    ASSERT_TRUE(server.Start("Foo", nullptr));
    std::thread offering([&] {
        for (int i = 0; i < 2000; ++i) {
            server.Offer(&m_streamer);
        }
    });
    for (int i = 0; i < 300; ++i) {
        auto observer = std::make_unique<NotedObserver>(&m_journal, "passing");
        ASSERT_TRUE(server.RegisterObserver(observer.get()));
        server.UnregisterObserver(observer.get());
        observer.reset();  // nothing may touch it any more
    }
    offering.join();
    EXPECT_TRUE(server.Stop());
}

}  // namespace
