#include "kpl/ipc/IpcServerPipeImpl.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/os/CEvent.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"

namespace {

using kpl::ipc::IpcClientPipeImpl;
using kpl::ipc::IpcServerPipeImpl;
using kpl::ipc::IpcStreamer;
using kpl::ipc::IpcStreamerPipeImpl;
using kpl::test::AnnouncementBytes;
using kpl::test::ChildProcess;
using kpl::test::EchoObserver;
using kpl::test::EchoWorks;
using kpl::test::GoodAnnouncement;
using kpl::test::IpcTest;
using kpl::test::kPromptMs;
using kpl::test::LogCapture;
using kpl::test::MsOf;
using kpl::test::NewStreamer;
using kpl::test::OneWordObserver;
using kpl::test::RawConnect;
using kpl::test::RawConnection;
using kpl::test::WaitUntil;
using kpl::test::WatchedThread;
using kpl::test::WriteToRoot;
using Messages = std::vector<std::string>;

Messages operator+(Messages a, const Messages& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Messages kStepBegins{"IpcServerPipeImpl::DoAccept(): .....\n",
                           "IpcServerPipeImpl::RemoveIdleStreamer(): .....\n",
                           "IpcServerPipeImpl::RemoveIdleStreamer(): Done.....\n"};
const Messages kEndOfFile{"IpcServerPipeImpl::DoAccept(): iRet=0.....\n",
                          "IpcServerPipeImpl::DoAccept(): Done.....\n"};

Messages Received(int bytes) {
    return {"IpcServerPipeImpl::DoAccept(): iRet=" + std::to_string(bytes) + ".....\n"};
}

Messages Parsed(const std::string& magic, int id, int total, int extra, int rest) {
    return {"IpcServerPipeImpl::ParseBufferData(): MagicNum=" + magic +
                ", ID=" + std::to_string(id) + ", Cmd=0, Length=" + std::to_string(extra) + "\n",
            "IpcServerPipeImpl::ParseBufferData(): Total Data size=" + std::to_string(total) +
                ", Current Extra Data Size=" + std::to_string(extra) +
                ", Header Size=16, Rest Total Size=" + std::to_string(rest) + ")\n"};
}

Messages Created(int id) {
    const std::string number = std::to_string(id);
    return {
        "IpcServerPipeImpl::CreateStreamerByCommand(): Create new streamer(ID=" + number + ")\n",
        "IpcStreamerRefCnt::IpcStreamerRefCnt(): ....\n",
        "IpcStreamerPipeImpl::IpcStreamerPipeImpl(): Pipe ID=" + number + ", Server=1\n",
        "IpcServerPipeImpl::CreateStreamerByCommand(): Create new streamer(ID=" + number +
            ") OK\n"};
}

// The hooks called by hand, one after another on one thread; the test holds the Root FIFO open for
// reading and writing, so that it never blocks and no end of file comes before it closes it.
class PipeServerStepTest : public IpcTest {
protected:
    void Start() {
        ASSERT_TRUE(m_server.DoStart("Foo", nullptr));
        OpenRoot();
    }
    void OpenRoot() {
        m_root = open(Path("FooRoot").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_NE(m_root, -1);
    }
    void CloseRoot() {
        if (m_root != -1) {
            close(m_root);
            m_root = -1;
        }
    }
    void TearDown() override {
        CloseRoot();
        EXPECT_TRUE(m_server.DoStop());
        IpcTest::TearDown();
    }
    void Send(const std::string& bytes) {
        ASSERT_TRUE(kpl::test::WriteAll(m_root, bytes.data(), bytes.size()));
    }
    Messages Closed(int id) const {
        const std::string number = std::to_string(id);
        return {"IpcStreamerRefCnt::Close(): Ref counter=0\n",
                "IpcStreamerPipeImpl::DoClose(): (" + Path("FooServer" + number) + ")(" +
                    Path("FooClient" + number) + ")\n",
                "IpcStreamerPipeImpl::~IpcStreamerPipeImpl(): Server=1, ID=" + number + "\n",
                "IpcStreamerRefCnt::~IpcStreamerRefCnt(): ....\n"};
    }
    Messages StepBeginsClosing(int id) const {
        return Messages{kStepBegins[0], kStepBegins[1]} + Closed(id) + Messages({kStepBegins[2]});
    }
    // The server's end of connection `id`, open, with a client's end beside it.
    IpcStreamerPipeImpl* AcceptAndOpen(int id, IpcStreamerPipeImpl** client) {
        Send(GoodAnnouncement(static_cast<uint32_t>(id)));
        auto* accepted = static_cast<IpcStreamerPipeImpl*>(m_server.DoAccept());
        *client = NewStreamer("Foo", id, false);
        std::thread opener([client] { EXPECT_TRUE((*client)->OpenWithin(10000)); });
        EXPECT_TRUE(accepted != nullptr && accepted->OpenWithin(10000));
        opener.join();
        return accepted;
    }

    IpcServerPipeImpl m_server;
    int m_root = -1;
};

void CloseTwice(IpcStreamer* streamer) {
    streamer->Close();
    streamer->Close();
}

TEST_F(PipeServerStepTest, StartAndStopMessageByMessage) {
    LogCapture log;
    {
        IpcServerPipeImpl server;
        EXPECT_FALSE(server.IsShutdownServer());
        EXPECT_TRUE(server.DoStart("Foo", this));
        EXPECT_TRUE(Exists("FooRoot"));
        EXPECT_TRUE(server.DoStop());
        EXPECT_FALSE(Exists("FooRoot"));
        EXPECT_TRUE(server.IsShutdownServer());
        server.FreeIpcStreamer(nullptr);
    }
    char address[32];
    snprintf(address, sizeof(address), "%p", static_cast<void*>(this));
    EXPECT_EQ(log.Messages(),
              (Messages{"IpcServerBase::IpcServerBase(): .......\n",
                        "IpcServerPipeImpl::IpcServerPipeImpl(): .....\n",
                        "IpcServerPipeImpl::IsShutdownServer(): (0)\n",
                        std::string("IpcServerPipeImpl::DoStart(): Foo(") + address + ")\n",
                        "IpcServerPipeImpl::DoStart(): Pipe path=" + Path("FooRoot") + "\n",
                        "IpcServerPipeImpl::DoStop(): .....\n",
                        "IpcServerPipeImpl::IsShutdownServer(): (1)\n",
                        "IpcServerPipeImpl::FreeIpcStreamer(): .....\n",
                        "IpcServerPipeImpl::~IpcServerPipeImpl(): .....\n",
                        "IpcServerBase::~IpcServerBase(): .......\n"}));
}

TEST_F(PipeServerStepTest, StartRefusesNullAndEmptyNamesSilently) {
    LogCapture log;
    EXPECT_FALSE(m_server.DoStart(nullptr, nullptr));
    EXPECT_FALSE(m_server.DoStart("", nullptr));
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(PipeServerStepTest, StartRefusesANameTooLongForAPath) {
    const size_t longest = 256 - Dir().Path().size() - sizeof("/Server2147483647");
    EXPECT_FALSE(m_server.DoStart(std::string(longest + 1, 'n').c_str(), nullptr));
    EXPECT_TRUE(Dir().Entries().empty());
    EXPECT_TRUE(m_server.DoStart(std::string(longest, 'n').c_str(), nullptr));
}

TEST_F(PipeServerStepTest, StartReusesAnExistingFifoAndFailsWithoutOne) {
    ASSERT_EQ(mkfifo(Path("FooRoot").c_str(), 0700), 0);
    EXPECT_TRUE(m_server.DoStart("Foo", nullptr));
    IpcServerPipeImpl other;
    EXPECT_FALSE(other.DoStart("no/such/directory", nullptr));
}

TEST_F(PipeServerStepTest, StartRefusesAFileThatIsNoFifoAndLeavesItThere) {
    close(open(Path("FooRoot").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_FALSE(m_server.DoStart("Foo", nullptr));
    EXPECT_TRUE(m_server.DoStop());
    EXPECT_EQ(unlink(Path("FooRoot").c_str()), 0);
}

TEST_F(PipeServerStepTest, StartRefusesWhileTheServerRuns) {
    EXPECT_TRUE(m_server.DoStart("Foo", nullptr));
    EXPECT_FALSE(m_server.DoStart("Foo", nullptr));
    EXPECT_FALSE(m_server.DoStart("Bar", nullptr));
    EXPECT_EQ(Dir().Entries(), (Messages{"FooRoot"}));
}

TEST_F(PipeServerStepTest, AnAnnouncementWithId5YieldsTheServersEndOfConnection5) {
    Start();
    Send(GoodAnnouncement(5));
    LogCapture log;
    auto* streamer = static_cast<IpcStreamerPipeImpl*>(m_server.DoAccept());
    ASSERT_NE(streamer, nullptr);
    EXPECT_EQ(log.Messages(),
              kStepBegins + Received(16) + Parsed("0x49504320", 5, 16, 0, 0) + Created(5));
    EXPECT_EQ(streamer->GetId(), 5);
    EXPECT_EQ(streamer->GetRefCount(), 1);
    EXPECT_FALSE(streamer->OpenWithin(0));
    EXPECT_TRUE(Exists("FooServer5"));
    EXPECT_TRUE(Exists("FooClient5"));
}

TEST_F(PipeServerStepTest, AStreamerThatIsNeverOpenedIsRemovedAtTheNextStep) {
    Start();
    Send(GoodAnnouncement(5));
    ASSERT_NE(m_server.DoAccept(), nullptr);
    CloseRoot();
    LogCapture log;
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(log.Messages(), StepBeginsClosing(5) + kEndOfFile);
}

TEST_F(PipeServerStepTest, IdleStreamersAreRemovedInTheOrderOfTheirIds) {
    Start();
    Send(GoodAnnouncement(0x7fffffff) + GoodAnnouncement(3) + GoodAnnouncement(4));
    IpcStreamer* last = m_server.DoAccept();
    ASSERT_NE(last, nullptr);
    // Held by a second reference, as an observer that uses them would.
    IpcStreamerPipeImpl* ends[2];
    const int ids[2] = {9, 8};
    for (int i = 0; i < 2; ++i) {
        ASSERT_NE(m_server.DoAccept(), nullptr);
    }
    IpcStreamerPipeImpl* clients[2];
    for (int i = 0; i < 2; ++i) {
        ends[i] = AcceptAndOpen(ids[i], &clients[i]);
    }
    ends[0]->Close();
    ends[1]->Close();
    CloseRoot();
    LogCapture log;
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(log.Messages(), Messages({kStepBegins[0], kStepBegins[1]}) + Closed(8) + Closed(9) +
                                  Messages({kStepBegins[2]}) + kEndOfFile);
    for (IpcStreamerPipeImpl* client : clients) {
        CloseTwice(client);
    }
}

TEST_F(PipeServerStepTest, AStreamerInUseStaysUntilItsObserverClosesIt) {
    Start();
    IpcStreamerPipeImpl* client = nullptr;
    IpcStreamerPipeImpl* end = AcceptAndOpen(5, &client);
    Send(AnnouncementBytes(0, 0, 0, 0));
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(client->Write("abc", 3), 3);
    char buf[8];
    EXPECT_EQ(end->Read(buf, sizeof(buf), 1000), 3);
    end->Close();
    Send(AnnouncementBytes(0, 0, 0, 0));
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(client->Read(buf, sizeof(buf), 1000), 0);
    CloseTwice(client);
}

TEST_F(PipeServerStepTest, ASecondAnnouncementOfAnIdInUseIsDroppedWithTheDuplicateLine) {
    Start();
    IpcStreamerPipeImpl* client = nullptr;
    IpcStreamerPipeImpl* end = AcceptAndOpen(5, &client);
    Send(GoodAnnouncement(5));
    {
        LogCapture log;
        EXPECT_EQ(m_server.DoAccept(), nullptr);
        EXPECT_EQ(log.Messages(),
                  kStepBegins + Received(16) + Parsed("0x49504320", 5, 16, 0, 0) +
                      Messages({"IpcServerPipeImpl::CreateStreamerByCommand(): ?????? Duplicated "
                                "Pipe\n"}));
    }
    Send(GoodAnnouncement(5));
    LogCapture forced(LogCapture::Debug::Off);
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(forced.Messages().size(), 1U) << "forced: also with the log switched off";
    EXPECT_EQ(end->GetRefCount(), 2);
    end->Close();
    CloseTwice(client);
}

TEST_F(PipeServerStepTest, AnAnnouncementOfAnIdleIdReplacesTheOldConnection) {
    Start();
    Send(GoodAnnouncement(5) + GoodAnnouncement(6));
    ASSERT_NE(m_server.DoAccept(), nullptr);
    IpcStreamerPipeImpl* client = nullptr;
    ASSERT_NE(m_server.DoAccept(), nullptr);
    IpcStreamerPipeImpl* end = AcceptAndOpen(7, &client);
    // It goes idle after the step's clean-up, as in a race with its observer: two announcements in
    // one step, the first without a result.
    Send(AnnouncementBytes(0, 0, 0, 0) + GoodAnnouncement(7));
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    end->Close();
    LogCapture log;
    auto* again = static_cast<IpcStreamerPipeImpl*>(m_server.DoAccept());
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->GetId(), 7);
    EXPECT_EQ(again->GetRefCount(), 1);
    CloseTwice(client);
}

TEST_F(PipeServerStepTest, TwoAnnouncementsInOneReadYieldTwoStreamersTheSecondWithoutARead) {
    Start();
    Send(GoodAnnouncement(5) + GoodAnnouncement(6));
    LogCapture log;
    auto* first = static_cast<IpcStreamerPipeImpl*>(m_server.DoAccept());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetId(), 5);
    EXPECT_EQ(log.Messages(),
              kStepBegins + Received(32) + Parsed("0x49504320", 5, 32, 0, 16) + Created(5));
    log.Clear();
    auto* second = static_cast<IpcStreamerPipeImpl*>(m_server.DoAccept());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->GetId(), 6);
    EXPECT_EQ(log.Messages(),
              StepBeginsClosing(5) + Parsed("0x49504320", 6, 16, 0, 0) + Created(6));
}

TEST_F(PipeServerStepTest, ExtraBytesAreSkipped) {
    Start();
    Send(AnnouncementBytes(0x49504320, 5, 0, 8) + "extrabyt" + GoodAnnouncement(6));
    LogCapture log;
    EXPECT_NE(m_server.DoAccept(), nullptr);
    EXPECT_EQ(log.Messages(),
              kStepBegins + Received(40) + Parsed("0x49504320", 5, 40, 8, 16) + Created(5));
    auto* second = static_cast<IpcStreamerPipeImpl*>(m_server.DoAccept());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->GetId(), 6);
}

TEST_F(PipeServerStepTest, AWrongMagicYieldsNothingAndNoLineBeyondTheParseLines) {
    Start();
    Send(AnnouncementBytes(0x12345678, 5, 0, 0));
    LogCapture log;
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(log.Messages(), kStepBegins + Received(16) + Parsed("0x12345678", 5, 16, 0, 0));
}

TEST_F(PipeServerStepTest, ATruncatedAnnouncementIsLoggedAsCorruptedWithTheLogSwitchedOff) {
    Start();
    Send("12345678");
    LogCapture log(LogCapture::Debug::Off);
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(
        log.Messages(),
        (Messages{"IpcServerPipeImpl::ProcessCorruptedData(): ????????? corrupted data(Total=8, "
                  "Offset=0, Max=262144)\n",
                  "IpcServerPipeImpl::ProcessCorruptedData(): ??????? Invalid size(262144, 8)\n"}));
}

TEST_F(PipeServerStepTest, ALengthBeyondWhatWasReceivedIsCorrupted) {
    Start();
    Send(AnnouncementBytes(0x49504320, 5, 0, 8) + "short");
    LogCapture log;
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(
        log.Messages(),
        kStepBegins + Received(21) +
            Messages({"IpcServerPipeImpl::ParseBufferData(): MagicNum=0x49504320, ID=5, Cmd=0, "
                      "Length=8\n",
                      "IpcServerPipeImpl::ProcessCorruptedData(): ????????? corrupted "
                      "data(Total=21, Offset=0, Max=262144)\n",
                      "IpcServerPipeImpl::ProcessCorruptedData(): ??????? Invalid size(262144, "
                      "21)\n"}));
}

// The next header is taken from what is read next; the stale count is added to it.
TEST_F(PipeServerStepTest, AHeaderSplitAcrossTwoReadsIsNotPutTogether) {
    Start();
    const std::string whole = GoodAnnouncement(5);
    Send(whole.substr(0, 8));
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    Send(whole.substr(8));
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    Send(GoodAnnouncement(6));
    IpcStreamerPipeImpl* streamer = nullptr;
    LogCapture log;
    for (int step = 0; step < 3 && streamer == nullptr; ++step) {
        streamer = static_cast<IpcStreamerPipeImpl*>(m_server.DoAccept());
    }
    ASSERT_NE(streamer, nullptr);
    EXPECT_EQ(streamer->GetId(), 6);
    for (const std::string& message : log.Messages()) {
        EXPECT_EQ(message.find("(ID=5)"), std::string::npos);
    }
}

TEST_F(PipeServerStepTest, EndOfFileEndsTheStepAndTheNextClientIsServedInTheNextOne) {
    Start();
    Send(GoodAnnouncement(5));
    ASSERT_NE(m_server.DoAccept(), nullptr);
    for (uint32_t id = 6; id < 9; ++id) {
        CloseRoot();
        EXPECT_EQ(m_server.DoAccept(), nullptr);
        OpenRoot();
        Send(GoodAnnouncement(id));
        LogCapture log;
        EXPECT_NE(m_server.DoAccept(), nullptr);
        EXPECT_TRUE(log.Contains("IpcServerPipeImpl::DoAccept(): iRet=16.....\n"));
    }
}

// Without a reader in between, this announcement would be thrown away.
TEST_F(PipeServerStepTest, AnAnnouncementRightAfterTheEndOfFileIsKept) {
    Start();
    Send(GoodAnnouncement(5));
    ASSERT_NE(m_server.DoAccept(), nullptr);
    CloseRoot();
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    const int writer = open(Path("FooRoot").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(writer, -1) << "somebody must have the Root FIFO open for reading";
    const std::string announcement = GoodAnnouncement(6);
    ASSERT_TRUE(kpl::test::WriteAll(writer, announcement.data(), announcement.size()));
    close(writer);
    EXPECT_NE(m_server.DoAccept(), nullptr);
}

TEST_F(PipeServerStepTest, ARefusedStreamerIsDroppedFromTheTableWithItsReference) {
    Start();
    Send(GoodAnnouncement(5));
    IpcStreamer* streamer = m_server.DoAccept();
    ASSERT_NE(streamer, nullptr);
    LogCapture log;
    m_server.FreeIpcStreamer(streamer);
    EXPECT_EQ(log.Messages(),
              Messages({"IpcServerPipeImpl::FreeIpcStreamer(): .....\n"}) + Closed(5));
    CloseRoot();
    log.Clear();
    EXPECT_EQ(m_server.DoAccept(), nullptr);  // would touch it again if the entry were there
    EXPECT_EQ(log.Messages(), kStepBegins + kEndOfFile);
}

TEST_F(PipeServerStepTest, StopClosesEveryStreamerInTheTable) {
    Start();
    IpcStreamerPipeImpl* client = nullptr;
    IpcStreamerPipeImpl* end = AcceptAndOpen(4, &client);
    Send(GoodAnnouncement(5));
    ASSERT_NE(m_server.DoAccept(), nullptr);
    LogCapture log;
    EXPECT_TRUE(m_server.DoStop());
    EXPECT_EQ(log.Messages(), Messages({"IpcServerPipeImpl::DoStop(): .....\n",
                                        "IpcStreamerRefCnt::Close(): Ref counter=1\n"}) +
                                  Closed(5));
    EXPECT_FALSE(Exists("FooRoot"));
    EXPECT_TRUE(end->IsOpened()) << "its observer's own reference keeps it";
    end->Close();
    CloseTwice(client);
}

TEST_F(PipeServerStepTest, TheDestructorClosesWhatIsInTheTable) {
    auto server = std::make_unique<IpcServerPipeImpl>();
    ASSERT_TRUE(server->DoStart("Foo", nullptr));
    OpenRoot();
    Send(GoodAnnouncement(5));
    auto* streamer = static_cast<IpcStreamerPipeImpl*>(server->DoAccept());
    EXPECT_FALSE(streamer->OpenWithin(0));
    server.reset();
    EXPECT_TRUE(Dir().Entries().empty());
}

TEST_F(PipeServerStepTest, AStepOfAStoppedServerEndsAtOnceWithTheClosingLine) {
    Start();
    EXPECT_TRUE(m_server.DoStop());
    LogCapture log;
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    EXPECT_EQ(log.Messages(),
              kStepBegins + Messages({"IpcServerPipeImpl::DoAccept(): Closing.....\n"}));
}

TEST_F(PipeServerStepTest, ARestartBeginsAfresh) {
    Start();
    Send("leftover");
    EXPECT_EQ(m_server.DoAccept(), nullptr);
    CloseRoot();
    EXPECT_TRUE(m_server.DoStop());
    Start();
    EXPECT_FALSE(m_server.IsShutdownServer());
    Send(GoodAnnouncement(5));
    LogCapture log;
    EXPECT_NE(m_server.DoAccept(), nullptr);
    EXPECT_EQ(log.Messages(),
              kStepBegins + Received(16) + Parsed("0x49504320", 5, 16, 0, 0) + Created(5))
        << "no bytes and no count of the run before";
}

// A whole server with its accept thread.
class IpcServerPipeImplTest : public IpcTest {
protected:
    std::string RootPath() const { return Path("FooRoot"); }

    static bool ConnectAndEcho(const char* name = "Foo") {
        IpcClientPipeImpl client;
        return client.Connect(name, nullptr, 10000) && EchoWorks(client.GetStreamer(), "hello");
    }

    // Stops `server` and looks that it does so promptly.
    static void StopPromptly(IpcServerPipeImpl* server) {
        EXPECT_LT(MsOf([&] { EXPECT_TRUE(server->Stop()); }), kPromptMs);
    }
};

// Only what the accept thread says; what the starting and stopping thread says meanwhile is woven
// into it.
Messages OfTheAcceptThread(const Messages& all) {
    Messages own;
    for (const std::string& message : all) {
        for (const char* begin : {"IpcServerPipeImpl::DoAccept", "IpcServerPipeImpl::RemoveIdle",
                                  "IpcServerPipeImpl::Parse", "IpcServerPipeImpl::Create",
                                  "IpcServerPipeImpl::IsShutdown", "IpcServerBase::Execute"}) {
            if (message.rfind(begin, 0) == 0) {
                own.push_back(message);
            }
        }
    }
    return own;
}

TEST_F(IpcServerPipeImplTest, AWholeRunOfTheAcceptThreadMessageByMessage) {
    ChildProcess client([this] {
        if (!WaitUntil([this] { return Exists("FooRoot"); })) {
            return 1;
        }
        RawConnection connection = RawConnect(Dir().Path(), "Foo", 5);
        return EchoWorks(connection, "hello") ? 0 : 2;
    });
    LogCapture log;
    IpcServerPipeImpl server;
    EchoObserver echo;
    ASSERT_TRUE(server.RegisterObserver(&echo));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    EXPECT_EQ(client.Wait(), 0);
    ASSERT_TRUE(WaitUntil([&] { return echo.ended == 1; }));
    ASSERT_TRUE(log.WaitFor("IpcServerPipeImpl::IsShutdownServer(): (0)\n"));
    // The third step has begun: it waits for the next client.
    ASSERT_TRUE(WaitUntil([&] { return log.Count(kStepBegins[2]) == 3; }));
    StopPromptly(&server);
    const Messages created = Created(5);
    EXPECT_EQ(OfTheAcceptThread(log.Messages()),
              kStepBegins + Received(16) + Parsed("0x49504320", 5, 16, 0, 0) +
                  Messages({created.front(), created.back()}) + kStepBegins + kEndOfFile +
                  Messages({"IpcServerPipeImpl::IsShutdownServer(): (0)\n"}) + kStepBegins +
                  Messages({"IpcServerPipeImpl::DoAccept(): Closing.....\n",
                            "IpcServerPipeImpl::IsShutdownServer(): (1)\n",
                            "IpcServerBase::Execute(): Done.\n"}));
}

TEST_F(IpcServerPipeImplTest, ClientsOfTheLibraryAreServed) {
    IpcServerPipeImpl server;
    EchoObserver observer;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", this));
    EXPECT_EQ(observer.opened, 1);
    std::vector<std::unique_ptr<IpcClientPipeImpl>> clients;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(std::make_unique<IpcClientPipeImpl>());
        ASSERT_TRUE(clients.back()->Connect("Foo", nullptr, 10000));
    }
    for (const auto& client : clients) {
        EXPECT_TRUE(EchoWorks(client->GetStreamer(), std::string(20000, 'e')));
    }
    clients.clear();
    StopPromptly(&server);
    EXPECT_EQ(observer.accepted, 5);
    EXPECT_EQ(observer.closed, 1);
}

TEST_F(IpcServerPipeImplTest, ClientsThatSpeakThePublishedBytesWithoutTheLibraryAreServed) {
    constexpr int kClients = 20;
    ChildProcess clients([this] {
        if (!WaitUntil([this] { return Exists("FooRoot"); })) {
            return 1;
        }
        for (int id = 0; id < kClients; ++id) {
            RawConnection connection = RawConnect(Dir().Path(), "Foo", id);
            if (!EchoWorks(connection, "published bytes")) {
                return 2;
            }
            connection.Close();
        }
        return 0;
    });
    IpcServerPipeImpl server;
    EchoObserver observer;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    EXPECT_EQ(clients.Wait(), 0);
    EXPECT_EQ(observer.accepted, kClients);
    ASSERT_TRUE(WaitUntil([&] { return observer.ended == kClients; }));
    StopPromptly(&server);
}

TEST_F(IpcServerPipeImplTest, ThousandsOfConnectionsFromTwoClientsBackToBackLoseNone) {
    constexpr int kEach = 2000;
    const auto clientBody = [this]() -> int {
        if (!WaitUntil([this] { return Exists("FooRoot"); })) {
            return 1;
        }
        IpcClientPipeImpl client;
        srand48(getpid());  // ids of their own: both have the generator of one parent
        for (int i = 0; i < kEach; ++i) {
            if (!client.Connect("Foo", nullptr, 20000)) {
                return 2;
            }
            if (!EchoWorks(client.GetStreamer(), "word")) {
                return 3;
            }
            client.Disconnect();
        }
        return 0;
    };
    ChildProcess one(clientBody);
    ChildProcess two([&] { return clientBody(); });
    IpcServerPipeImpl server;
    OneWordObserver observer;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    EXPECT_EQ(one.Wait(100000), 0);
    EXPECT_EQ(two.Wait(100000), 0);
    EXPECT_EQ(observer.served, 2 * kEach);
    StopPromptly(&server);
}

TEST_F(IpcServerPipeImplTest, StopWhenNobodyEverConnectedIsPromptAndRemovesTheRootFifo) {
    IpcServerPipeImpl server;
    LogCapture log;
    ASSERT_TRUE(server.Start("Foo", nullptr));
    ASSERT_TRUE(Exists("FooRoot"));
    ASSERT_TRUE(log.WaitFor(kStepBegins[2]));  // the accept thread is about to wait, or waits
    StopPromptly(&server);
    EXPECT_FALSE(Exists("FooRoot"));
    EXPECT_TRUE(log.Contains("IpcServerPipeImpl::DoAccept(): Closing.....\n"));
    EXPECT_TRUE(log.Contains("IpcServerBase::Execute(): Done.\n"));
}

TEST_F(IpcServerPipeImplTest, StopWhileAClientHoldsTheRootFifoOpenAndIsSilentIsPrompt) {
    for (const bool wroteBefore : {false, true}) {
        IpcServerPipeImpl server;
        EchoObserver observer(100);
        ASSERT_TRUE(server.RegisterObserver(&observer));
        ASSERT_TRUE(server.Start("Foo", nullptr));
        const int root = open(RootPath().c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_NE(root, -1);
        if (wroteBefore) {
            const std::string announcement = GoodAnnouncement(5);
            ASSERT_TRUE(kpl::test::WriteAll(root, announcement.data(), announcement.size()));
            ASSERT_TRUE(WaitUntil([&] { return observer.offered == 1; }));
        }
        StopPromptly(&server);
        close(root);
    }
}

TEST_F(IpcServerPipeImplTest, StopWhileAnObserverOpensForAClientThatNeverComesIsPrompt) {
    IpcServerPipeImpl server;
    EchoObserver observer;  // opens without a limit
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    ASSERT_TRUE(WriteToRoot(RootPath(), GoodAnnouncement(5)));
    ASSERT_TRUE(WaitUntil([&] { return Exists("FooClient5"); }));
    StopPromptly(&server);
    EXPECT_EQ(observer.offered, 1);
    EXPECT_EQ(observer.accepted, 0);
}

// The streamer that is being offered must stay alive until its observer has returned, also when
// that one looks at it after the failed open.
TEST_F(IpcServerPipeImplTest, AStreamerBeingOfferedOutlivesTheStop) {
    class Observer : public kpl::ipc::IpcServerObserver {
    public:
        void ServerOpened(const char*) override {}
        bool ClientAccepted(IpcStreamer* streamer) override {
            inside = true;
            EXPECT_FALSE(streamer->Open());
            EXPECT_EQ(static_cast<IpcStreamerPipeImpl*>(streamer)->GetRefCount(), 1);
            EXPECT_FALSE(streamer->IsOpened());
            return false;
        }
        void ServerClosed() override {}
        std::atomic<bool> inside{false};
    };
    for (int i = 0; i < 50; ++i) {
        IpcServerPipeImpl server;
        Observer observer;
        ASSERT_TRUE(server.RegisterObserver(&observer));
        ASSERT_TRUE(server.Start("Foo", nullptr));
        ASSERT_TRUE(WriteToRoot(RootPath(), GoodAnnouncement(5)));
        ASSERT_TRUE(WaitUntil([&] { return observer.inside.load(); }));
        StopPromptly(&server);
    }
}

// A stop must not break a connection that its observer has taken over by then, however short ago.
TEST_F(IpcServerPipeImplTest, AConnectionTakenOverJustBeforeAStopGoesOnAfterIt) {
    class Observer : public EchoObserver {
    public:
        Observer() : EchoObserver(10000) {}
        bool ClientAccepted(IpcStreamer* streamer) override {
            const bool taken = EchoObserver::ClientAccepted(streamer);
            inside = true;
            leave.Wait(-1);
            return taken;
        }
        std::atomic<bool> inside{false};
        kpl::os::CEvent leave{false};
    };
    Observer observer;
    IpcServerPipeImpl server;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    IpcClientPipeImpl client;
    ASSERT_TRUE(client.Connect("Foo", nullptr, 10000));
    ASSERT_TRUE(WaitUntil([&] { return observer.inside.load(); }));
    LogCapture log;
    WatchedThread stopping([&] { EXPECT_TRUE(server.Stop()); });
    // The stop has done its part and waits for the accept thread.
    ASSERT_TRUE(log.WaitFor("IpcServerBase::StopAcceptClient(): .....\n"));
    observer.leave.Set();
    stopping.Join();
    EXPECT_TRUE(EchoWorks(client.GetStreamer(), "still here"));
    client.Disconnect();
    EXPECT_TRUE(WaitUntil([&] { return observer.ended == 1; }));
}

TEST_F(IpcServerPipeImplTest, AThousandStartsAndStopsNeverGetStuck) {
    IpcServerPipeImpl server;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(server.Start("Foo", nullptr));
        if (i % 3 == 1) {
            // A client that comes at the same time, and silently leaves.
            const int root = open(RootPath().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (root != -1) {
                close(root);
            }
        }
        if (i % 3 == 2) {
            const timespec pause{0, (i % 50) * 4000};
            nanosleep(&pause, nullptr);  // allow-sleep: the stop meets each part of a step
        }
        ASSERT_LT(MsOf([&] { ASSERT_TRUE(server.Stop()); }), kPromptMs);
        ASSERT_FALSE(Exists("FooRoot"));
    }
}

TEST_F(IpcServerPipeImplTest, AStoppedServerServesAgainAfterARestart) {
    IpcServerPipeImpl server;
    EchoObserver observer;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    for (const char* name : {"Foo", "Bar", "Foo"}) {
        ASSERT_TRUE(server.Start(name, nullptr));
        EXPECT_STREQ(server.GetServerName(), name);
        EXPECT_TRUE(ConnectAndEcho(name));
        StopPromptly(&server);
        EXPECT_TRUE(Dir().Entries().empty());
    }
    EXPECT_EQ(observer.closed, 3);
}

TEST_F(IpcServerPipeImplTest, DestructionWhileRunningShutsDown) {
    {
        EchoObserver observer;
        IpcServerPipeImpl server;
        ASSERT_TRUE(server.RegisterObserver(&observer));
        ASSERT_TRUE(server.Start("Foo", nullptr));
        EXPECT_TRUE(ConnectAndEcho());
    }
    {
        EchoObserver observer;  // its client never comes
        IpcServerPipeImpl server;
        ASSERT_TRUE(server.RegisterObserver(&observer));
        ASSERT_TRUE(server.Start("Foo", nullptr));
        ASSERT_TRUE(WriteToRoot(RootPath(), GoodAnnouncement(5)));
        ASSERT_TRUE(WaitUntil([&] { return Exists("FooClient5"); }));
    }
    {
        IpcServerPipeImpl server;  // its transport was stopped, its accept thread was not joined
        ASSERT_TRUE(server.Start("Foo", nullptr));
        EXPECT_TRUE(server.DoStop());
    }
    EXPECT_TRUE(Dir().Entries().empty());
}

TEST_F(IpcServerPipeImplTest, StartOfARunningServerIsRefusedAndItGoesOn) {
    IpcServerPipeImpl server;
    EchoObserver observer;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    EXPECT_FALSE(server.Start("Foo", nullptr));
    EXPECT_TRUE(ConnectAndEcho());
    StopPromptly(&server);
    EXPECT_EQ(observer.opened, 1);
}

TEST_F(IpcServerPipeImplTest, ASecondStopRemovesNobodyElsesRootFifo) {
    IpcServerPipeImpl first;
    ASSERT_TRUE(first.Start("Foo", nullptr));
    ASSERT_TRUE(first.Stop());
    IpcServerPipeImpl second;
    EchoObserver observer;
    ASSERT_TRUE(second.RegisterObserver(&observer));
    ASSERT_TRUE(second.Start("Foo", nullptr));
    EXPECT_TRUE(first.Stop());
    EXPECT_TRUE(ConnectAndEcho());
    StopPromptly(&second);
}

TEST_F(IpcServerPipeImplTest, WithoutAnObserverTheConnectionIsReclaimedAndTheClientTold) {
    IpcServerPipeImpl server;
    ASSERT_TRUE(server.Start("Foo", nullptr));
    IpcStreamerPipeImpl* client = NewStreamer("Foo", 5, false);
    bool opened = true;
    WatchedThread opener([&] { opened = client->Open(); });
    ASSERT_TRUE(WaitUntil([&] { return Exists("FooServer5"); }));
    opener.WaitUntilBlocked();
    ASSERT_TRUE(WriteToRoot(RootPath(), GoodAnnouncement(5)));
    opener.Join();
    EXPECT_FALSE(opened);
    client->Close();
    StopPromptly(&server);
}

TEST_F(IpcServerPipeImplTest, ARefusedClientIsToldAndTheNextOneIsServed) {
    class Refusing : public EchoObserver {
    public:
        bool ClientAccepted(IpcStreamer* streamer) override {
            return !refuse && EchoObserver::ClientAccepted(streamer);
        }
        std::atomic<bool> refuse{true};
    };
    Refusing observer;
    IpcServerPipeImpl server;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    IpcStreamerPipeImpl* client = NewStreamer("Foo", 5, false);
    bool opened = true;
    WatchedThread opener([&] { opened = client->Open(); });
    ASSERT_TRUE(WaitUntil([&] { return Exists("FooServer5"); }));
    opener.WaitUntilBlocked();
    ASSERT_TRUE(WriteToRoot(RootPath(), GoodAnnouncement(5)));
    opener.Join();
    EXPECT_FALSE(opened);
    client->Close();
    observer.refuse = false;
    EXPECT_TRUE(ConnectAndEcho());
    StopPromptly(&server);
}

TEST_F(IpcServerPipeImplTest, AnIdWithoutAPathIsNoConnection) {
    IpcServerPipeImpl server;
    EchoObserver observer(1000);
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    ASSERT_TRUE(WriteToRoot(RootPath(), GoodAnnouncement(0x80000000U)));
    ASSERT_TRUE(WaitUntil([&] { return observer.offered == 1; }));
    EXPECT_TRUE(ConnectAndEcho());
    StopPromptly(&server);
    EXPECT_EQ(observer.accepted, 1);
}

struct Hostile {
    const char* name;
    std::string bytes;
};

std::vector<Hostile> HostileAnnouncements() {
    std::string badMagics;
    for (uint32_t i = 0; i < 50; ++i) {
        badMagics += AnnouncementBytes(0xbad00000 + i, i, 0, i % 3 * 16);
    }
    std::string hugeLengths;
    for (uint32_t i = 0; i < 50; ++i) {
        hugeLengths += AnnouncementBytes(0x49504320, 1000 + i, 0, 0x10000U << (i % 15));
    }
    return {{"Length 0x7fffffff", AnnouncementBytes(0x49504320, 900, 0, 0x7fffffff)},
            {"Length 0xffffffff", AnnouncementBytes(0x49504320, 901, 0, 0xffffffff)},
            {"Length 0xfffffff0", AnnouncementBytes(0x49504320, 902, 0, 0xfffffff0)},
            {"bad magic, Length 0xffffffff", AnnouncementBytes(0x12345678, 903, 0, 0xffffffff)},
            {"bad magic, Length 16", AnnouncementBytes(0x12345678, 904, 0, 16)},
            {"one byte", "x"},
            {"fifteen bytes", std::string(15, '\x20')},
            {"half a good one", GoodAnnouncement(905).substr(0, 8)},
            {"the magic alone", GoodAnnouncement(906).substr(0, 4)},
            {"five bytes of a good one", GoodAnnouncement(907).substr(0, 5)},
            {"twelve bytes of a good one", GoodAnnouncement(908).substr(0, 12)},
            {"fifty wrong magics", badMagics},
            {"fifty huge lengths", hugeLengths}};
}

class HostileAnnouncementTest : public IpcServerPipeImplTest {
protected:
    void SetUp() override {
        IpcServerPipeImplTest::SetUp();
        m_server = std::make_unique<IpcServerPipeImpl>();
        ASSERT_TRUE(m_server->RegisterObserver(&m_observer));
        ASSERT_TRUE(m_server->Start("Foo", nullptr));
    }
    void TearDown() override {
        StopPromptly(m_server.get());
        m_server.reset();
        IpcServerPipeImplTest::TearDown();
    }

    // The client's end of connection `id`, once somebody has announced it.
    static bool IsServed(uint32_t id) {
        IpcStreamerPipeImpl* client = NewStreamer("Foo", static_cast<int>(id), false);
        const bool served = client->OpenWithin(10000) && EchoWorks(client, "hello");
        if (client->GetRefCount() == 2) {
            client->Close();
        }
        client->Close();
        return served;
    }

    EchoObserver m_observer{1000};
    std::unique_ptr<IpcServerPipeImpl> m_server;
};

TEST_F(HostileAnnouncementTest, AGoodClientBehindItInTheSameWriteIsServed) {
    uint32_t id = 70;
    for (const Hostile& hostile : HostileAnnouncements()) {
        ASSERT_TRUE(WriteToRoot(RootPath(), hostile.bytes + GoodAnnouncement(++id)));
        EXPECT_TRUE(IsServed(id)) << hostile.name;
    }
}

TEST_F(HostileAnnouncementTest, AClientThatComesLaterIsServed) {
    for (const Hostile& hostile : HostileAnnouncements()) {
        ASSERT_TRUE(WriteToRoot(RootPath(), hostile.bytes));
        EXPECT_TRUE(ConnectAndEcho()) << hostile.name;
        EXPECT_TRUE(ConnectAndEcho()) << hostile.name;
    }
}

TEST_F(HostileAnnouncementTest, AClientBeforeItIsServed) {
    uint32_t id = 70;
    for (const Hostile& hostile : HostileAnnouncements()) {
        ASSERT_TRUE(WriteToRoot(RootPath(), GoodAnnouncement(++id) + hostile.bytes));
        EXPECT_TRUE(IsServed(id)) << hostile.name;
        EXPECT_TRUE(ConnectAndEcho()) << hostile.name;
    }
}

TEST_F(HostileAnnouncementTest, AFullBufferOfGarbageStopsNobody) {
    for (const char filler : {'\0', '\x20', '\xff'}) {
        const int root = open(RootPath().c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_NE(root, -1);
        const std::string page(4096, filler);
        for (int i = 0; i < 262144 / 4096 + 1; ++i) {
            ASSERT_TRUE(kpl::test::WriteAll(root, page.data(), page.size()));
        }
        close(root);
        EXPECT_TRUE(ConnectAndEcho());
        EXPECT_TRUE(ConnectAndEcho());
    }
}

TEST_F(HostileAnnouncementTest, OldBytesInTheBufferAreNotTakenForAnAnnouncement) {
    // Stale counts make the server look behind what it has read; a consumed announcement must not
    // be there any more.
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(WriteToRoot(RootPath(), AnnouncementBytes(0x49504320, 5000, 0, 64)));
        EXPECT_TRUE(ConnectAndEcho());
    }
    EXPECT_EQ(m_observer.offered, 3);
}

TEST_F(IpcServerPipeImplTest, OutOfDescriptorsTheAcceptThreadWaitsInsteadOfSpinning) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of virtual calls needs a descriptor of its own";
#endif
    IpcServerPipeImpl server;
    EchoObserver observer;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit tight = before;
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    tight.rlim_cur = static_cast<rlim_t>(next);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    LogCapture log;
    ASSERT_TRUE(server.Start("Foo", nullptr));
    ASSERT_TRUE(WaitUntil([&] { return log.Count(kStepBegins[0]) >= 2; }));
    const int steps = log.Count(kStepBegins[0]);
    const long ms = MsOf(
        [&] { ASSERT_TRUE(WaitUntil([&] { return log.Count(kStepBegins[0]) >= steps + 10; })); });
    EXPECT_GE(ms, 80) << "ten steps, ten milliseconds each";
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(ConnectAndEcho());
    StopPromptly(&server);
}

}  // namespace
