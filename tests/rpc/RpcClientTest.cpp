#include "kpl/rpc/RpcClient.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/tools/DebugLog.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OwnProgram.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::rpc;
using kpl::os::CEvent;
using kpl::test::CallbackBytes;
using kpl::test::LogCapture;
using kpl::test::ResultBytes;
using kpl::test::ScriptedServer;
using kpl::test::TempDir;
using kpl::test::WaitUntil;

// Each test has its own FIFO directory, a quiet log, and checks at its end that nothing is left.
class RpcClientTest : public testing::Test {
protected:
    RpcClientTest() : m_log(LogCapture::Debug::Off) {
        kpl::ipc::SetPipeRootPath(m_directory.c_str());
        m_descriptors = kpl::test::OpenDescriptorCount();
    }
    ~RpcClientTest() override {
        EXPECT_TRUE(m_directory.Entries().empty());
        EXPECT_EQ(kpl::test::OpenDescriptorCount(), m_descriptors);
    }

    std::string Log() const {
        std::string all;
        for (const std::string& message : m_log.Messages()) {
            all += message;
        }
        return all;
    }

    TempDir m_directory;
    LogCapture m_log;
    int m_descriptors = 0;
};

// A client that is connected to a scripted server.
class ConnectedRpcClientTest : public RpcClientTest {
protected:
    ConnectedRpcClientTest() {
        EXPECT_TRUE(client->Connect("Script", nullptr));
        EXPECT_TRUE(server->AwaitClient());
    }
    ~ConnectedRpcClientTest() override {
        client.reset();
        server.reset();
    }

    // Starts an invoke of `name` with one int on a thread of its own; the value is the int result,
    // -1 for a failed call.
    std::future<int> InvokeElsewhere(const char* name, int argument, long timeoutMs = -1) {
        return std::async(std::launch::async, [this, name, argument, timeoutMs] {
            EXPECT_TRUE(client->GetCommandMuxer()->Push(argument));
            const bool done = client->Invoke(name, timeoutMs);
            return done ? client->GetCommandDemuxer()->Get<int>(0) : -1;
        });
    }

    // Calls with these callbacks; the server answers at once.
    template <class... Contexts>
    unsigned int CallWithCallbacks(Contexts... contexts) {
        unsigned int id = 0;
        std::thread answer([this, &id] {
            id = server->ReadId();
            EXPECT_TRUE(server->Write(ResultBytes(id, 0)));
        });
        EXPECT_TRUE((client->GetCommandMuxer()->Push(contexts) && ...));
        EXPECT_TRUE(client->Invoke("Watch"));
        answer.join();
        return id;
    }

    // What is logged when a callback begins to wait for the end of its call, which is under way.
    std::string WaitingLine(unsigned int id) {
        char line[160];
        snprintf(line, sizeof(line),
                 "RpcClient::CallbackHandler::Execute(): ????? Cannot find callback list! ID(%u), "
                 "Context(%p)\n",
                 id, static_cast<void*>(client->GetCallContext(id)));
        return line;
    }

    std::unique_ptr<ScriptedServer> server = std::make_unique<ScriptedServer>("Script");
    std::unique_ptr<RpcClient> client = std::make_unique<RpcClient>();
};

// Remembers the callbacks that it gets.
struct Recorder {
    static void Run(void* proxy, RpcCommandDemuxer* command) {
        auto* self = static_cast<Recorder*>(proxy);
        std::lock_guard<std::mutex> lock(self->mutex);
        self->values.push_back(command->Get<int>(1));
        self->called.Set();
    }
    RpcCallbackContext Context() { return {this, &Recorder::Run}; }
    bool Await(size_t count) {
        return WaitUntil([&] {
            std::lock_guard<std::mutex> lock(mutex);
            return values.size() >= count;
        });
    }

    std::mutex mutex;
    std::vector<int> values;
    CEvent called{false};
};

// What it uses of the process is destroyed after it.
TEST(RpcClientExitTest, AStaticClientDisconnectsWhenItsProcessEnds) {
    if (!kpl::test::RunsInFreshProcess()) {
        return;
    }
    const TempDir directory;
    kpl::ipc::SetPipeRootPath(directory.c_str());
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    kpl::test::ChildProcess child([&]() -> int {
        dup2(pipes[1], STDERR_FILENO);
        static RpcClient client;
        exit(WaitUntil([&] { return client.Connect("Script", nullptr, 10000); }) ? 0 : 1);
    });
    close(pipes[1]);
    {
        const ScriptedServer server("Script");
        EXPECT_EQ(child.Wait(), 0) << "it did not connect";
    }
    std::string messages(4096, '\0');
    messages.resize(static_cast<size_t>(
        std::max<ssize_t>(0, read(pipes[0], messages.data(), messages.size()))));
    close(pipes[0]);
    EXPECT_EQ(messages.find("?????"), std::string::npos) << messages;
    EXPECT_EQ(messages.find("leak"), std::string::npos) << messages;
    EXPECT_TRUE(directory.Entries().empty());
}

// --- Connecting ---

TEST_F(RpcClientTest, TheConstructorForcesTheRevisionLine) {
    RpcClient client;
    EXPECT_EQ(Log(), "RpcClient::RpcClient(): Framework Revision: 735647\n");
}

TEST_F(RpcClientTest, ConnectRefusesANullOrEmptyName) {
    RpcClient client;
    EXPECT_FALSE(client.Connect(nullptr, nullptr));
    EXPECT_FALSE(client.Connect("", nullptr));
    EXPECT_FALSE(client.Connect("", nullptr, 10));
    EXPECT_EQ(client.GetServerName(), nullptr);
    EXPECT_FALSE(client.IsAlive());
}

TEST_F(RpcClientTest, ConnectWithoutAServerFailsAtOnce) {
    RpcClient client;
    EXPECT_FALSE(client.Connect("Nobody", nullptr));
    EXPECT_EQ(client.GetServerName(), nullptr);
}

TEST_F(RpcClientTest, ConnectRefusesANameThatIsTooLong) {
    RpcClient client;
    EXPECT_FALSE(client.Connect(std::string(300, 'x').c_str(), nullptr));
}

TEST_F(RpcClientTest, ASecondConnectToTheSameNameReturnsTrueWithoutReconnecting) {
    ScriptedServer server("x");
    RpcClient client;
    kpl::tools::EnableDumpLog(true, false);
    ASSERT_TRUE(client.Connect("x", nullptr));
    ASSERT_TRUE(server.AwaitClient());
    EXPECT_TRUE(client.Connect("x", nullptr));
    EXPECT_TRUE(m_log.Contains("RpcClient::Connect(): Already connect to(x)\n"));
    EXPECT_EQ(server.ClientCount(), 1);
    EXPECT_STREQ(client.GetServerName(), "x");
}

TEST_F(RpcClientTest, ConnectToAnotherNameReleasesAndReconnects) {
    ScriptedServer x("x");
    ScriptedServer y("y");
    RpcClient client;
    ASSERT_TRUE(client.Connect("x", nullptr));
    ASSERT_TRUE(x.AwaitClient());
    ASSERT_TRUE(client.Connect("y", nullptr));
    EXPECT_STREQ(client.GetServerName(), "y");
    EXPECT_TRUE(client.IsAlive());
    EXPECT_EQ(x.ReadCommand(), "");  // The first connection has ended.
}

TEST_F(RpcClientTest, AConnectionLogsItsLife) {
    ScriptedServer server("x");
    RpcClient client;
    kpl::tools::EnableDumpLog(true, false);
    m_log.Clear();
    ASSERT_TRUE(client.Connect("x", nullptr));
    client.Disconnect();
    std::string log;
    for (const std::string& message : m_log.Messages()) {
        // The reader's reads come as they come; the other lines in this order.
        if (message.rfind("RpcClient::", 0) == 0 &&
            message.find("Read command done") == std::string::npos) {
            log += message;
        }
    }
    EXPECT_EQ(log,
              "RpcClient::Connect(): ...\n"
              "RpcClient::ThreadProc(): .....\n"
              "RpcClient::Connect(): Done...\n"
              "RpcClient::Disconnect(): ...\n"
              "RpcClient::ThreadProc(): Done(0).....\n"
              "RpcClient::Disconnect(): Done...\n");
}

TEST_F(RpcClientTest, TheDestructorLogsAndDisconnects) {
    auto client = std::make_unique<RpcClient>();
    kpl::tools::EnableDumpLog(true, false);
    m_log.Clear();
    client.reset();
    EXPECT_EQ(Log(),
              "RpcClient::~RpcClient(): ...\n"
              "RpcClient::Disconnect(): ...\n"
              "RpcClient::Disconnect(): Done...\n"
              "RpcClient::~RpcClient(): Done...\n");
}

TEST_F(RpcClientTest, TimedConnectGivesUpOnARootFifoThatNobodyReads) {
    char path[256];
    ASSERT_TRUE(kpl::ipc::GetPipeServerRootPath("Stale", path, sizeof(path)));
    ASSERT_EQ(mkfifo(path, 0700), 0);
    RpcClient client;
    const kpl::test::Stopwatch watch;
    EXPECT_FALSE(client.Connect("Stale", nullptr, 100));
    EXPECT_GE(watch.ElapsedMs(), 100);
    EXPECT_LT(watch.ElapsedMs(), 5000);
    unlink(path);
}

TEST_F(RpcClientTest, TimedConnectGivesUpOnAServerThatNeverOpensItsEnds) {
    char path[256];
    ASSERT_TRUE(kpl::ipc::GetPipeServerRootPath("Deaf", path, sizeof(path)));
    ASSERT_EQ(mkfifo(path, 0700), 0);
    const int reader = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    RpcClient client;
    EXPECT_FALSE(client.Connect("Deaf", nullptr, 100));
    EXPECT_EQ(m_directory.Entries(), std::vector<std::string>{"DeafRoot"});
    close(reader);
    unlink(path);
}

TEST_F(RpcClientTest, DisconnectReleasesAConnectThatWaits) {
    char path[256];
    ASSERT_TRUE(kpl::ipc::GetPipeServerRootPath("Deaf", path, sizeof(path)));
    ASSERT_EQ(mkfifo(path, 0700), 0);
    const int reader = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    RpcClient client;
    std::thread connect([&] { EXPECT_FALSE(client.Connect("Deaf", nullptr)); });
    // Its connection's FIFOs show that it waits for the server to open them.
    EXPECT_TRUE(WaitUntil([&] { return m_directory.Entries().size() == 3; }));
    client.Disconnect();
    connect.join();
    close(reader);
    unlink(path);
}

TEST_F(RpcClientTest, DisconnectReleasesAConnectThatWaitsForTheRootFifo) {
    char path[256];
    ASSERT_TRUE(kpl::ipc::GetPipeServerRootPath("Stale", path, sizeof(path)));
    ASSERT_EQ(mkfifo(path, 0700), 0);
    RpcClient client;
    kpl::tools::EnableDumpLog(true, false);
    std::thread connect([&] { EXPECT_FALSE(client.Connect("Stale", nullptr)); });
    EXPECT_TRUE(
        m_log.WaitFor("IpcClientPipeImpl::Connect(): Open root pipe=" + std::string(path) + "\n"));
    client.Disconnect();
    connect.join();
    unlink(path);
}

TEST_F(RpcClientTest, ManyConnectionsLeaveNothingBehind) {
    ScriptedServer server("x");
    RpcClient client;
    const int before = kpl::test::ThreadCount();
    ASSERT_TRUE(client.Connect("x", nullptr));
    client.Disconnect();
    const int threads = kpl::test::SettledThreadCount(before);
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(client.Connect("x", nullptr));
        ASSERT_TRUE(server.AwaitClient());
        client.Disconnect();
    }
    EXPECT_EQ(kpl::test::SettledThreadCount(threads), threads);
}

// --- Calls ---

TEST_F(RpcClientTest, InvokeWithoutAConnectionIsFalseAndKeepsTheCommand) {
    RpcClient client;
    ASSERT_TRUE(client.GetCommandMuxer()->Push(1));
    EXPECT_FALSE(client.Invoke("f"));
    EXPECT_FALSE(client.Invoke("f", 1000));
    EXPECT_TRUE(client.GetCommandMuxer()->IsValidCommand());
}

TEST_F(ConnectedRpcClientTest, InvokeRefusesANullOrEmptyName) {
    EXPECT_FALSE(client->Invoke(nullptr));
    EXPECT_FALSE(client->Invoke(""));
    EXPECT_FALSE(client->Invoke(nullptr, 10));
}

TEST_F(ConnectedRpcClientTest, AnInvokeSendsTheArgumentsAndTheNameAndGetsTheResult) {
    auto result = InvokeElsewhere("Add", 7);
    const std::string command = server->ReadCommand();
    char expected[64];
    RpcCommandMuxer muxer(expected, sizeof(expected));
    ASSERT_TRUE(muxer.Push(7));
    const int size = muxer.Finish(RPC_COMMAND_INVOKE, "Add", 0);
    EXPECT_EQ(command, std::string(expected, static_cast<size_t>(size)));
    ASSERT_TRUE(server->Write(ResultBytes(0, 42)));
    EXPECT_EQ(result.get(), 42);
}

TEST_F(ConnectedRpcClientTest, AnInvokeLogsItsSteps) {
    kpl::tools::EnableDumpLog(true, false);
    m_log.Clear();
    auto result = InvokeElsewhere("Add", 7);
    const unsigned int id = server->ReadId();
    ASSERT_TRUE(server->Write(ResultBytes(id, 42)));
    ASSERT_EQ(result.get(), 42);
    EXPECT_TRUE(m_log.Contains("RpcClient::Invoke(): Write command done(Add,40,0).\n"));
    EXPECT_TRUE(m_log.Contains("RpcClient::ThreadProc(): Read command done(28).\n"));
    EXPECT_TRUE(m_log.Contains("RpcClient::ThreadProc(): Demuxed ID(0), Return(42).\n"));
    EXPECT_TRUE(m_log.Contains("RpcClient::Invoke(): Add. Done\n"));
}

TEST_F(ConnectedRpcClientTest, TwoThreadsGetFollowingIdsAndTheirOwnResultsInAnyOrder) {
    auto first = InvokeElsewhere("f", 1);
    const std::string one = server->ReadCommand();
    auto second = InvokeElsewhere("f", 2);
    const std::string two = server->ReadCommand();
    RpcCommandDemuxer a(const_cast<char*>(one.data()), static_cast<int>(one.size()));
    RpcCommandDemuxer b(const_cast<char*>(two.data()), static_cast<int>(two.size()));
    EXPECT_EQ(b.GetId(), a.GetId() + 1);
    ASSERT_TRUE(server->Write(ResultBytes(b.GetId(), 200)));
    EXPECT_EQ(second.get(), 200);
    ASSERT_TRUE(server->Write(ResultBytes(a.GetId(), 100)));
    EXPECT_EQ(first.get(), 100);
}

TEST_F(ConnectedRpcClientTest, IdsGoOnAfterAReconnect) {
    auto result = InvokeElsewhere("f", 1);
    EXPECT_EQ(server->ReadId(), 0U);
    ASSERT_TRUE(server->Write(ResultBytes(0, 0)));
    ASSERT_EQ(result.get(), 0);
    client->Disconnect();
    ASSERT_TRUE(client->Connect("Script", nullptr));
    ASSERT_TRUE(server->AwaitClient());
    result = InvokeElsewhere("f", 1);
    EXPECT_EQ(server->ReadId(), 1U);
    ASSERT_TRUE(server->Write(ResultBytes(1, 5)));
    EXPECT_EQ(result.get(), 5);
}

TEST_F(ConnectedRpcClientTest, ACommandWhoseNameFindsNoRoomIsNotSentAndTakesAnId) {
    const std::string name(16384, 'n');
    EXPECT_FALSE(client->Invoke(name.c_str()));
    auto result = InvokeElsewhere("f", 1);
    EXPECT_EQ(server->ReadId(), 1U);
    ASSERT_TRUE(server->Write(ResultBytes(1, 9)));
    EXPECT_EQ(result.get(), 9);
}

TEST_F(ConnectedRpcClientTest, ACommandSplitAcrossTwoReadsIsKeptUntilTheRestComes) {
    kpl::tools::EnableDumpLog(true, false);
    auto result = InvokeElsewhere("f", 1);
    const std::string bytes = ResultBytes(server->ReadId(), 77);
    ASSERT_TRUE(server->Write(bytes.substr(0, 20)));
    ASSERT_TRUE(m_log.WaitFor("RpcClient::ThreadProc(): Copy corrupt data(length=20).\n"));
    ASSERT_TRUE(server->Write(bytes.substr(20)));
    EXPECT_EQ(result.get(), 77);
}

TEST_F(ConnectedRpcClientTest, AResultAndACallbackInOneReadAreBothHandled) {
    Recorder recorder;
    const unsigned int watched = CallWithCallbacks(recorder.Context());
    auto result = InvokeElsewhere("f", 1);
    const unsigned int id = server->ReadId();
    ASSERT_TRUE(server->Write(CallbackBytes(watched, 0, 5) + ResultBytes(id, 6) +
                              CallbackBytes(watched, 0, 7)));
    EXPECT_EQ(result.get(), 6);
    ASSERT_TRUE(recorder.Await(2));
    EXPECT_EQ(recorder.values, (std::vector<int>{5, 7}));
}

TEST_F(ConnectedRpcClientTest, AResultThatNobodyWaitsForIsDropped) {
    ASSERT_TRUE(server->Write(ResultBytes(1234, 1)));
    auto result = InvokeElsewhere("f", 1);
    ASSERT_TRUE(server->Write(ResultBytes(server->ReadId(), 8)));
    EXPECT_EQ(result.get(), 8);
}

TEST_F(ConnectedRpcClientTest, AResultForAnIdWithoutACallDoesNotReachAThreadThatNeverCalled) {
    // Its context has the id 0 too.
    char* const before = client->GetCommandMuxer()->GetBuffer();
    ASSERT_TRUE(client->GetCommandMuxer()->Push(11));
    // The command of an unknown type behind it shows that the result was dealt with.
    char marker[64];
    RpcCommandMuxer muxer(marker, sizeof(marker));
    const int size = muxer.Finish(RPC_COMMAND_INVOKE, "f", 1);
    ASSERT_TRUE(server->Write(ResultBytes(0, 99) + std::string(marker, static_cast<size_t>(size))));
    ASSERT_TRUE(m_log.WaitFor("RpcClient::ThreadProc(): ??????? Invalud type(10001)\n"));
    auto result = InvokeElsewhere("f", 1);
    ASSERT_TRUE(server->Write(ResultBytes(server->ReadId(), 8)));
    EXPECT_EQ(result.get(), 8);
    int pushed = 0;
    memcpy(&pushed, before + 24, sizeof(pushed));
    EXPECT_EQ(pushed, 11);
}

TEST_F(ConnectedRpcClientTest, AnInvokeFromTheServerIsAnUnknownType) {
    char bytes[64];
    RpcCommandMuxer muxer(bytes, sizeof(bytes));
    const int size = muxer.Finish(RPC_COMMAND_INVOKE, "f", 1);
    ASSERT_TRUE(server->Write(std::string(bytes, static_cast<size_t>(size))));
    EXPECT_TRUE(m_log.WaitFor("RpcClient::ThreadProc(): ??????? Invalud type(10001)\n"));
    EXPECT_TRUE(client->IsAlive());
}

TEST_F(ConnectedRpcClientTest,
       ACommandAbove16384BytesEndsTheReaderAndOnlyDisconnectReleasesItsCall) {
    auto result = InvokeElsewhere("f", 1);
    const std::string large = ResultBytes(server->ReadId(), std::string(17000, 'x').c_str());
    ASSERT_GT(large.size(), 16384U);
    ASSERT_TRUE(server->Write(large));
    EXPECT_TRUE(WaitUntil([&] { return !client->IsAlive(); }));
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    client->Disconnect();
    EXPECT_EQ(result.get(), -1);
}

TEST_F(ConnectedRpcClientTest, ACommandOfExactly16384BytesIsReceived) {
    auto result = InvokeElsewhere("f", 1);
    const unsigned int id = server->ReadId();
    // Header, int parameter, string parameter with its NUL.
    const std::string text(16384 - 16 - 12 - 8 - 1, 'x');
    const std::string bytes = ResultBytes(id, 3, text.c_str());
    ASSERT_EQ(bytes.size(), 16384U);
    ASSERT_TRUE(server->Write(bytes));
    EXPECT_EQ(result.get(), 3);
}

TEST_F(ConnectedRpcClientTest, DisconnectMakesAWaitingInvokeReturnFalse) {
    auto result = InvokeElsewhere("f", 1);
    ASSERT_NE(server->ReadCommand(), "");
    client->Disconnect();
    EXPECT_EQ(result.get(), -1);
}

TEST_F(ConnectedRpcClientTest, AServerThatGoesLeavesUntimedCallsWaitingUntilDisconnect) {
    auto result = InvokeElsewhere("f", 1);
    ASSERT_NE(server->ReadCommand(), "");
    server->CloseConnection();
    EXPECT_TRUE(WaitUntil([&] { return !client->IsAlive(); }));
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_STREQ(client->GetServerName(), "Script");  // It still counts as connected.
    client->Disconnect();
    EXPECT_EQ(result.get(), -1);
}

TEST_F(ConnectedRpcClientTest, AServerThatGoesEndsTimedCallsAtOnce) {
    auto result = InvokeElsewhere("f", 1, 60000);
    ASSERT_NE(server->ReadCommand(), "");
    const kpl::test::Stopwatch watch;
    server->CloseConnection();
    EXPECT_EQ(result.get(), -1);
    EXPECT_FALSE(client->Invoke("f", 60000));
    EXPECT_LT(watch.ElapsedMs(), 20000);
}

TEST_F(ConnectedRpcClientTest, ATimedInvokeGivesUpInTimeAndItsLateResultIsDropped) {
    ASSERT_TRUE(client->GetCommandMuxer()->Push(1));
    const kpl::test::Stopwatch watch;
    EXPECT_FALSE(client->Invoke("slow", 50));
    EXPECT_GE(watch.ElapsedMs(), 50);
    const unsigned int late = server->ReadId();
    // The next command is being built when the late result arrives.
    ASSERT_TRUE(client->GetCommandMuxer()->Push(123));
    ASSERT_TRUE(server->Write(ResultBytes(late, 666)));
    auto other = InvokeElsewhere("f", 1);
    ASSERT_TRUE(server->Write(ResultBytes(server->ReadId(), 1)));
    ASSERT_EQ(other.get(), 1);
    std::thread answer([&] {
        const std::string command = server->ReadCommand();
        RpcCommandDemuxer demuxer(const_cast<char*>(command.data()),
                                  static_cast<int>(command.size()));
        EXPECT_EQ(demuxer.Get<int>(0), 123);
        EXPECT_TRUE(server->Write(ResultBytes(demuxer.GetId(), 7)));
    });
    EXPECT_TRUE(client->Invoke("next", 10000));
    EXPECT_EQ(client->GetCommandDemuxer()->Get<int>(0), 7);
    answer.join();
}

TEST_F(ConnectedRpcClientTest, ATimedInvokeBoundsItsWriteToAServerThatNeverReads) {
    const std::string text(3000, 'x');
    const kpl::test::Stopwatch watch;
    for (int i = 0; i < 40; ++i) {  // More than a FIFO holds.
        ASSERT_TRUE(client->GetCommandMuxer()->Push(text.c_str()));
        EXPECT_FALSE(client->Invoke("f", 5));
    }
    EXPECT_LT(watch.ElapsedMs(), 20000);
    // Whole commands only: once it reads, the server finds no broken one.
    EXPECT_TRUE(client->IsAlive());
    for (int i = 0; i < 10; ++i) {
        const std::string command = server->ReadCommand();
        RpcCommandDemuxer demuxer(const_cast<char*>(command.data()),
                                  static_cast<int>(command.size()));
        ASSERT_TRUE(demuxer.IsValidCommand());
    }
}

TEST_F(ConnectedRpcClientTest, AHalfWrittenCommandEndsTheConnection) {
    // One page of the FIFO, then four at a time: the last ones find room for a part.
    ASSERT_TRUE(client->GetCommandMuxer()->Push(std::string(3000, 'x').c_str()));
    bool sent = client->Invoke("f", 5);
    const std::string text(16000, 'x');
    for (int i = 0; i < 10 && client->IsAlive(); ++i) {
        ASSERT_TRUE(client->GetCommandMuxer()->Push(text.c_str()));
        sent = client->Invoke("f", 5);
    }
    EXPECT_FALSE(sent);
    EXPECT_FALSE(client->IsAlive());
    EXPECT_FALSE(client->Invoke("f", 60000));  // At once.
}

TEST_F(ConnectedRpcClientTest, ATimedInvokeIsNotHeldUpByAnotherOnesStuckWrite) {
    std::vector<std::thread> stuck;
    for (int i = 0; i < 6; ++i) {
        stuck.emplace_back([this] {
            const std::string text(16000, 'x');
            EXPECT_TRUE(client->GetCommandMuxer()->Push(text.c_str()));
            EXPECT_FALSE(client->Invoke("f"));
        });
    }
    EXPECT_TRUE(WaitUntil([&] { return !client->Invoke("probe", 20); }));
    const kpl::test::Stopwatch watch;
    EXPECT_FALSE(client->Invoke("f", 50));
    EXPECT_LT(watch.ElapsedMs(), 5000);
    client->Disconnect();
    for (std::thread& thread : stuck) {
        thread.join();
    }
}

// --- Contexts ---

TEST_F(RpcClientTest, EveryThreadHasItsOwnContext) {
    RpcClient client;
    RpcClient::CallContext* const mine = client.GetCallContext();
    EXPECT_EQ(client.GetCallContext(), mine);
    EXPECT_EQ(client.GetCommandMuxer(), mine->GetMuxer());
    EXPECT_EQ(client.GetCommandDemuxer(), mine->GetDemuxer());
    std::thread([&] { EXPECT_NE(client.GetCallContext(), mine); }).join();
}

TEST_F(RpcClientTest, AContextBelongsToOneClient) {
    RpcClient a;
    RpcClient b;
    EXPECT_NE(a.GetCallContext(), b.GetCallContext());
}

TEST_F(ConnectedRpcClientTest, AContextIsFoundByTheIdOfItsCall) {
    EXPECT_EQ(client->GetCallContext(0U), nullptr);  // Nobody has called.
    const unsigned int id = CallWithCallbacks(RpcCallbackContext());
    EXPECT_EQ(client->GetCallContext(id), client->GetCallContext());
    EXPECT_EQ(client->GetCallContext(id + 1), nullptr);
    EXPECT_EQ(client->GetCallContext()->GetId(), id);
    EXPECT_EQ(client->GetCallContext()->GetFunctionName(), "Watch");
}

TEST_F(RpcClientTest, AFreshThreadStartsWithoutTheCommandOfADeadOne) {
    // Threads one after the other usually get the same id.
    RpcClient client;
    for (int i = 0; i < 20; ++i) {
        std::thread([&] {
            EXPECT_FALSE(client.GetCommandMuxer()->IsValidCommand());
            EXPECT_TRUE(client.GetCommandMuxer()->Push(i));
        }).join();
    }
}

TEST_F(ConnectedRpcClientTest, AThreadCanReadItsResultAfterAnotherOneDisconnected) {
    CallWithCallbacks(RpcCallbackContext());
    RpcCommandDemuxer* const result = client->GetCommandDemuxer();
    std::thread([this] { client->Disconnect(); }).join();
    EXPECT_TRUE(result->IsValidCommand());
    EXPECT_EQ(result->Get<int>(0), 0);
}

TEST_F(ConnectedRpcClientTest, ACommandBegunBeforeAReconnectIsSentWhole) {
    RpcCommandMuxer* const muxer = client->GetCommandMuxer();
    ASSERT_TRUE(muxer->Push(1));
    std::thread([this] {
        client->Disconnect();
        EXPECT_TRUE(client->Connect("Script", nullptr));
    }).join();
    ASSERT_TRUE(server->AwaitClient());
    EXPECT_EQ(client->GetCommandMuxer(), muxer);
    ASSERT_TRUE(muxer->Push(2));
    std::thread answer([this] {
        const std::string command = server->ReadCommand();
        RpcCommandDemuxer demuxer(const_cast<char*>(command.data()),
                                  static_cast<int>(command.size()));
        EXPECT_EQ(demuxer.Get<int>(0), 1);
        EXPECT_EQ(demuxer.Get<int>(1), 2);
        EXPECT_TRUE(server->Write(ResultBytes(demuxer.GetId(), 3)));
    });
    EXPECT_TRUE(client->Invoke("f", 10000));
    answer.join();
}

TEST_F(ConnectedRpcClientTest, ACommandWhoseConnectionHasEndedIsGoneAfterItsInvoke) {
    ASSERT_TRUE(client->GetCommandMuxer()->Push(1));
    std::thread([this] { client->Disconnect(); }).join();
    EXPECT_FALSE(client->Invoke("f", 10000));
    EXPECT_FALSE(client->GetCommandMuxer()->IsValidCommand());
}

TEST_F(ConnectedRpcClientTest, RemoveAllCachedCallContextEndsTheCallsInFlight) {
    auto result = InvokeElsewhere("f", 1);
    const unsigned int id = server->ReadId();
    client->RemoveAllCachedCallContext();
    EXPECT_EQ(result.get(), -1);
    ASSERT_TRUE(server->Write(ResultBytes(id, 1)));  // Finds nobody.
    result = InvokeElsewhere("f", 2);
    ASSERT_TRUE(server->Write(ResultBytes(server->ReadId(), 4)));
    EXPECT_EQ(result.get(), 4);
}

TEST_F(ConnectedRpcClientTest, DisconnectFindsTheConnectionOfACallThatWasForgottenToo) {
    for (int round = 0; round < 200 && !HasFailure(); ++round) {
        auto first = InvokeElsewhere("Wait", 1);
        (void)server->ReadId();
        auto second = InvokeElsewhere("Wait", 2);  // waits while the first one receives
        (void)server->ReadId();
        client->RemoveAllCachedCallContext();
        client->Disconnect();
        EXPECT_EQ(m_directory.Entries(), std::vector<std::string>{"ScriptRoot"});
        EXPECT_EQ(first.get(), -1);
        EXPECT_EQ(second.get(), -1);
        ASSERT_TRUE(client->Connect("Script", nullptr));
        ASSERT_TRUE(server->AwaitClient());
    }
}

TEST_F(ConnectedRpcClientTest, AContextLogsItsEnd) {
    client->GetCallContext();
    kpl::tools::EnableDumpLog(true, false);
    client->Disconnect();
    EXPECT_EQ(m_log.Count("RpcClient::CallContext::~CallContext(): ...\n"), 1);
}

// --- Callbacks ---

TEST_F(ConnectedRpcClientTest, CallbacksRunInTheOrderOfTheirArrivalWithTheirArguments) {
    Recorder recorder;
    kpl::tools::EnableDumpLog(true, false);
    const unsigned int id = CallWithCallbacks(recorder.Context());
    EXPECT_TRUE(m_log.Contains("RpcClient::Invoke(): m_CallbackMap[0] already set!\n"));
    std::string bytes;
    for (int i = 0; i < 100; ++i) {
        bytes += CallbackBytes(id, 0, i);
    }
    ASSERT_TRUE(server->Write(bytes));
    ASSERT_TRUE(recorder.Await(100));
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(recorder.values[static_cast<size_t>(i)], i);
    }
    EXPECT_TRUE(m_log.Contains(
        "RpcClient::CallbackHandler::Execute(): Callback, Demuxed ID(0), Index(0).\n"));
    EXPECT_TRUE(m_log.WaitFor("RpcClient::CallbackHandler::Execute(): Callback Done.\n"));
}

TEST_F(ConnectedRpcClientTest, TheIndexCountsTheCallbackParametersOnly) {
    Recorder first;
    Recorder second;
    unsigned int id = 0;
    std::thread answer([&] {
        id = server->ReadId();
        EXPECT_TRUE(server->Write(ResultBytes(id, 0)));
    });
    RpcCommandMuxer* const muxer = client->GetCommandMuxer();
    ASSERT_TRUE(muxer->Push(1) && muxer->Push(first.Context()) && muxer->Push("between") &&
                muxer->Push(second.Context()));
    ASSERT_TRUE(client->Invoke("Watch"));
    answer.join();
    ASSERT_TRUE(server->Write(CallbackBytes(id, 1, 22) + CallbackBytes(id, 0, 11)));
    ASSERT_TRUE(first.Await(1) && second.Await(1));
    EXPECT_EQ(first.values, std::vector<int>{11});
    EXPECT_EQ(second.values, std::vector<int>{22});
}

TEST_F(ConnectedRpcClientTest, ACallbackThatNobodyAskedForIsSkipped) {
    ASSERT_TRUE(server->Write(CallbackBytes(77, 0, 1)));
    EXPECT_TRUE(
        m_log.WaitFor("RpcClient::CallbackHandler::Execute(): ????? Cannot find callback list! "
                      "ID(77). Skip this callback\n"));
    EXPECT_TRUE(
        m_log.Contains("RpcClient::CallbackHandler::Execute(): ????? Cannot find callback list! "
                       "ID(77), Context((nil))\n"));
}

TEST_F(ConnectedRpcClientTest, ACallbackThatComesBeforeItsResultWaitsUntilTheInvokeHasFinished) {
    Recorder recorder;
    auto done = std::async(std::launch::async, [&] {
        EXPECT_TRUE(client->GetCommandMuxer()->Push(recorder.Context()));
        return client->Invoke("Watch");
    });
    const unsigned int id = server->ReadId();
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 5)));
    ASSERT_TRUE(m_log.WaitFor(WaitingLine(id)));
    EXPECT_FALSE(recorder.called.Wait(0));
    ASSERT_TRUE(server->Write(ResultBytes(id, 0)));
    EXPECT_TRUE(done.get());
    EXPECT_TRUE(recorder.Await(1));
}

TEST_F(ConnectedRpcClientTest, AWaitingCallbackSeesTheEndOfItsCallAlsoIfTheNextOneFollowsAtOnce) {
    constexpr size_t kRounds = 50;
    Recorder recorder;
    std::thread caller([&] {
        for (size_t call = 0; call < 2 * kRounds && !HasFailure(); ++call) {
            EXPECT_TRUE(client->GetCommandMuxer()->Push(recorder.Context()));
            EXPECT_TRUE(client->Invoke("Watch"));
        }
    });
    for (size_t round = 1; round <= kRounds && !HasFailure(); ++round) {
        const unsigned int id = server->ReadId();
        EXPECT_TRUE(server->Write(CallbackBytes(id, 0, 5)));
        EXPECT_TRUE(m_log.WaitFor(WaitingLine(id)));
        EXPECT_TRUE(server->Write(ResultBytes(id, 0)));
        const unsigned int next = server->ReadId();
        EXPECT_TRUE(recorder.Await(round)) << "it waits for the end of call " << next;
        EXPECT_TRUE(server->Write(ResultBytes(next, 0)));
    }
    caller.join();
}

TEST_F(ConnectedRpcClientTest, DisconnectReleasesACallbackThatWaitsForItsInvoke) {
    Recorder recorder;
    auto done = std::async(std::launch::async, [&] {
        EXPECT_TRUE(client->GetCommandMuxer()->Push(recorder.Context()));
        return client->Invoke("Watch");
    });
    const unsigned int id = server->ReadId();
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 5)));
    client->Disconnect();
    EXPECT_FALSE(done.get());
    client.reset();  // Joins the callback thread.
    EXPECT_FALSE(recorder.called.Wait(0));
}

TEST_F(ConnectedRpcClientTest, AnIndexOutsideTheListIsReportedAndTheNextCallbackRuns) {
    Recorder recorder;
    const unsigned int id = CallWithCallbacks(recorder.Context());
    ASSERT_TRUE(server->Write(CallbackBytes(id, -1, 1) + CallbackBytes(id, 1, 1) +
                              CallbackBytes(id, 0, 9)));
    ASSERT_TRUE(recorder.Await(1));
    EXPECT_EQ(recorder.values, std::vector<int>{9});
    EXPECT_TRUE(
        m_log.Contains("RpcClient::CallbackHandler::Execute(): ????? Out of boundary. ID(0), "
                       "Index(-1), List size(1).\n"));
    EXPECT_TRUE(
        m_log.Contains("RpcClient::CallbackHandler::Execute(): ????? Out of boundary. ID(0), "
                       "Index(1), List size(1).\n"));
}

TEST_F(ConnectedRpcClientTest, ACallbackWithANullProxyOrFunctionIsReported) {
    const unsigned int id = CallWithCallbacks(RpcCallbackContext());
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 1)));
    EXPECT_TRUE(
        m_log.WaitFor("RpcClient::CallbackHandler::Execute(): ????? Invalid callback "
                      "proxy((nil), (nil)). ID(0).\n"));
}

// Asks the server from inside a callback.
struct Asker {
    static void Run(void* proxy, RpcCommandDemuxer* command) {
        auto* self = static_cast<Asker*>(proxy);
        const int argument = command->Get<int>(1);
        EXPECT_TRUE(self->client->GetCommandMuxer()->Push(argument));
        self->answer = self->client->Invoke("Ask", 10000)
                           ? self->client->GetCommandDemuxer()->Get<int>(0)
                           : -1;
        self->done.Set();
    }
    RpcClient* client;
    int answer = 0;
    CEvent done{false};
};

TEST_F(ConnectedRpcClientTest, ACallbackMayInvokeOnTheSameClient) {
    Asker asker{client.get()};
    const unsigned int id = CallWithCallbacks(RpcCallbackContext(&asker, &Asker::Run));
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 31)));
    const std::string command = server->ReadCommand();
    RpcCommandDemuxer demuxer(const_cast<char*>(command.data()), static_cast<int>(command.size()));
    EXPECT_EQ(demuxer.Get<int>(0), 31);
    ASSERT_TRUE(server->Write(ResultBytes(demuxer.GetId(), 62)));
    ASSERT_TRUE(asker.done.Wait(10000));
    EXPECT_EQ(asker.answer, 62);
}

TEST_F(ConnectedRpcClientTest, ACallbackMayDisconnect) {
    struct Leaver {
        static void Run(void* proxy, RpcCommandDemuxer*) {
            auto* self = static_cast<Leaver*>(proxy);
            self->client->Disconnect();
            self->done.Set();
        }
        RpcClient* client;
        CEvent done{false};
    } leaver{client.get()};
    const unsigned int id = CallWithCallbacks(RpcCallbackContext(&leaver, &Leaver::Run));
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 1)));
    EXPECT_TRUE(leaver.done.Wait(10000));
    EXPECT_EQ(server->ReadCommand(), "");
}

// Connects from inside a callback, when the connection has ended meanwhile.
struct Reconnecter {
    static void Run(void* proxy, RpcCommandDemuxer*) {
        auto* self = static_cast<Reconnecter*>(proxy);
        self->inside.Set();
        EXPECT_TRUE(WaitUntil([&] { return !self->client->IsAlive(); }));
        self->connected = self->client->Connect("Script", nullptr);
    }

    RpcClient* client;
    CEvent inside{false};
    std::atomic<bool> connected{false};
};

TEST_F(ConnectedRpcClientTest, ACallbackCannotConnectAClientThatIsBeingDeleted) {
    Reconnecter reconnecter{client.get()};
    const unsigned int id = CallWithCallbacks(RpcCallbackContext(&reconnecter, &Reconnecter::Run));
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 1)));
    ASSERT_TRUE(reconnecter.inside.Wait(10000));
    client.reset();
    EXPECT_FALSE(reconnecter.connected);
}

TEST_F(ConnectedRpcClientTest, WhatIsKeptForACallLivesUntilTheConnectionEnds) {
    auto recorder = std::make_shared<Recorder>();
    const std::weak_ptr<Recorder> watch = recorder;
    client->KeepForCall(recorder);
    const unsigned int id = CallWithCallbacks(recorder->Context());
    recorder.reset();
    ASSERT_FALSE(watch.expired());
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0, 3)));
    ASSERT_TRUE(watch.lock()->Await(1));
    client->Disconnect();
    client.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(ConnectedRpcClientTest, WhatIsKeptMayUseTheClientWhenItIsReleased) {
    struct User {
        explicit User(RpcClient* itsClient) : client(itsClient) {}
        ~User() {
            client->Disconnect();
            client->RemoveAllCachedCallbackFunctions();
        }
        RpcClient* client;
    };
    Recorder recorder;
    client->KeepForCall(std::make_shared<User>(client.get()));
    CallWithCallbacks(recorder.Context());
    client->Disconnect();
    EXPECT_FALSE(client->IsAlive());
}

TEST_F(ConnectedRpcClientTest, WhatIsKeptForACallThatFailsIsReleased) {
    auto kept = std::make_shared<int>(1);
    client->KeepForCall(kept);
    EXPECT_FALSE(client->Invoke("f", 10));
    EXPECT_EQ(kept.use_count(), 1);
}

TEST_F(ConnectedRpcClientTest, CallbacksThatStillWaitAreDroppedWithTheClient) {
    struct Blocker {
        static void Run(void* proxy, RpcCommandDemuxer*) {
            auto* self = static_cast<Blocker*>(proxy);
            ++self->calls;
            self->entered.Set();
            self->go.Wait(10000);
        }
        std::atomic<int> calls{0};
        CEvent entered{false};
        CEvent go{false};
    } blocker;
    const unsigned int id = CallWithCallbacks(RpcCallbackContext(&blocker, &Blocker::Run));
    ASSERT_TRUE(server->Write(CallbackBytes(id, 0) + CallbackBytes(id, 0) + CallbackBytes(id, 0)));
    ASSERT_TRUE(blocker.entered.Wait(10000));
    client->Disconnect();  // Does not wait for it.
    auto destroyed = std::async(std::launch::async, [this] { client.reset(); });
    EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    blocker.go.Set();
    destroyed.get();
    EXPECT_EQ(blocker.calls, 1);
}

// --- Two processes ---

// A server that knows nothing but the published bytes: it answers one call with its first argument
// plus one, and calls its callback back.
int ServeOneCallWithoutTheLibrary(const std::string& directory) {
    if (mkfifo((directory + "/RawRoot").c_str(), 0700) != 0) {
        return 1;
    }
    const int root = open((directory + "/RawRoot").c_str(), O_RDWR | O_CLOEXEC);
    int id = 0;
    kpl::test::RawConnection connection = kpl::test::RawAccept(root, directory, "Raw", &id);
    uint32_t words[16] = {};
    // Header, an int, a callback context, the name "One".
    const size_t size = 16 + 12 + 16 + 12;
    if (!kpl::test::ReadAll(connection.readFd, words, size) || words[0] != 10001 ||
        words[2] != size || words[3] != 3 || words[4] != 2 || words[7] != 60 ||
        memcmp(&words[13], "One", 4) != 0) {
        return 2;
    }
    const uint32_t callback[] = {10003, words[1], 40, 2, 2, 4, 0, 2, 4, 500};
    const uint32_t result[] = {10002, words[1], 28, 1, 2, 4, words[6] + 1};
    const bool written = kpl::test::WriteAll(connection.writeFd, callback, sizeof(callback)) &&
                         kpl::test::WriteAll(connection.writeFd, result, sizeof(result));
    char end = 0;
    const bool left = read(connection.readFd, &end, 1) == 0;
    connection.Close();
    unlink((directory + "/RawRoot").c_str());
    return written && left ? 0 : 3;
}

TEST_F(RpcClientTest, CallsAServerThatSpeaksThePublishedBytesWithoutTheLibrary) {
    kpl::test::ChildProcess server(
        [this] { return ServeOneCallWithoutTheLibrary(m_directory.Path()); });
    ASSERT_TRUE(WaitUntil([this] { return !m_directory.Entries().empty(); }));
    RpcClient client;
    Recorder recorder;
    ASSERT_TRUE(client.Connect("Raw", nullptr, 10000));
    ASSERT_TRUE(client.GetCommandMuxer()->Push(41) &&
                client.GetCommandMuxer()->Push(recorder.Context()));
    ASSERT_TRUE(client.Invoke("One", 10000));
    EXPECT_EQ(client.GetCommandDemuxer()->Get<int>(0), 42);
    EXPECT_TRUE(recorder.Await(1));
    EXPECT_EQ(recorder.values, std::vector<int>{500});
    client.Disconnect();
    EXPECT_EQ(server.Wait(), 0);
}

}  // namespace
