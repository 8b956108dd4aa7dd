#include "kpl/ipc/IpcServerManager.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/tools/DebugLog.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OwnProgram.h"
#include "tests/support/Process.h"

namespace {

using kpl::ipc::IpcClientPipeImpl;
using kpl::ipc::IpcServerManager;
using kpl::test::ChildProcess;
using kpl::test::EchoObserver;
using kpl::test::EchoWorks;
using kpl::test::IpcTest;
using kpl::test::kPromptMs;
using kpl::test::LogCapture;
using kpl::test::MsOf;
using kpl::test::RunsInFreshProcess;
using kpl::test::WaitUntil;
using kpl::test::WatchedThread;
using Messages = std::vector<std::string>;

constexpr const char* kWaitDone = "IpcServerManager::WaitForAllServerStop(): Done....\n";

class IpcServerManagerTest : public IpcTest {
protected:
    static IpcServerManager* Manager() { return IpcServerManager::GetInstance(); }

    static bool ConnectAndEcho(const char* name) {
        IpcClientPipeImpl client;
        return client.Connect(name, nullptr, 10000) && EchoWorks(client.GetStreamer(), "hello");
    }
};

// The messages of the registry itself; those of its servers are the subject of other tests.
Messages OfTheManager(const LogCapture& log) {
    Messages own;
    for (const std::string& message : log.Messages()) {
        if (message.rfind("IpcServerManager::", 0) == 0) {
            own.push_back(message);
        }
    }
    return own;
}

std::string Hex(const void* pointer) {
    char text[32];
    snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

TEST_F(IpcServerManagerTest, ThereIsOneRegistry) {
    EXPECT_EQ(Manager(), Manager());
}

TEST_F(IpcServerManagerTest, AStartedServerServesUntilItIsStoppedMessageByMessage) {
    (void)Manager();
    LogCapture log;
    EXPECT_TRUE(Manager()->StartServer("Foo", 0, this));
    EchoObserver observer;
    EXPECT_TRUE(Manager()->RegisterObserver("Foo", &observer));
    EXPECT_FALSE(Manager()->RegisterObserver("Foo", &observer));
    EXPECT_TRUE(ConnectAndEcho("Foo"));
    EXPECT_TRUE(Manager()->StopServer("Foo"));
    EXPECT_EQ(observer.closed, 1);
    EXPECT_EQ(OfTheManager(log),
              (Messages{"IpcServerManager::StartServer(): Foo(0-" + Hex(this) + ")\n",
                        "IpcServerManager::StopServer(): Foo\n"}));
    EXPECT_TRUE(log.Contains("IpcServerPipeImpl::~IpcServerPipeImpl(): .....\n"));
}

TEST_F(IpcServerManagerTest, StartServerRefusesNullAndEmptyNamesSilently) {
    (void)Manager();
    LogCapture log;
    EXPECT_FALSE(Manager()->StartServer(nullptr, 0, nullptr));
    EXPECT_FALSE(Manager()->StartServer("", 0, nullptr));
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(IpcServerManagerTest, StartServerOfKindOneLogsTheStartLineAndMakesNoServer) {
    (void)Manager();
    LogCapture log;
    EXPECT_FALSE(Manager()->StartServer("Foo", 1, this));
    EXPECT_FALSE(Manager()->StartServer("Foo", -1, this));
    EXPECT_EQ(log.Messages(),
              (Messages{"IpcServerManager::StartServer(): Foo(1-" + Hex(this) + ")\n",
                        "IpcServerManager::StartServer(): Foo(-1-" + Hex(this) + ")\n"}));
    EXPECT_TRUE(Dir().Entries().empty());
    EXPECT_FALSE(Manager()->StopServer("Foo"));
}

TEST_F(IpcServerManagerTest, AServerThatCannotStartIsNotRegistered) {
    EXPECT_FALSE(Manager()->StartServer("no/such/directory", 0, nullptr));
    EXPECT_FALSE(Manager()->StopServer("no/such/directory"));
    EXPECT_FALSE(Manager()->StartServer(std::string(300, 'n').c_str(), 0, nullptr));
}

TEST_F(IpcServerManagerTest, ANameInUseIsRefusedWithoutAMessageAndTheRunningServerStays) {
    ASSERT_TRUE(Manager()->StartServer("Foo", 0, nullptr));
    EchoObserver observer;
    ASSERT_TRUE(Manager()->RegisterObserver("Foo", &observer));
    EXPECT_TRUE(ConnectAndEcho("Foo"));
    {
        // The accept thread is quiet by now: it waits for the next client.
        LogCapture log;
        EXPECT_FALSE(Manager()->StartServer("Foo", 0, this));
        for (const std::string& message : log.Messages()) {
            EXPECT_TRUE(message == "IpcServerManager::StartServer(): Foo(0-" + Hex(this) + ")\n" ||
                        message.rfind("IpcServerPipeImpl::DoAccept", 0) == 0 ||
                        message.rfind("IpcServerPipeImpl::IsShut", 0) == 0 ||
                        message.rfind("IpcServerPipeImpl::Remove", 0) == 0 ||
                        message.rfind("IpcStreamer", 0) == 0)
                << message;
        }
    }
    EXPECT_TRUE(Exists("FooRoot"));
    EXPECT_TRUE(ConnectAndEcho("Foo"));
    EXPECT_EQ(observer.closed, 0);
    EXPECT_TRUE(Manager()->StopServer("Foo"));
}

TEST_F(IpcServerManagerTest, AStoppedNameCanBeStartedAgain) {
    for (int i = 0; i < 3; ++i) {
        EchoObserver observer;
        ASSERT_TRUE(Manager()->StartServer("Foo", 0, nullptr));
        ASSERT_TRUE(Manager()->RegisterObserver("Foo", &observer));
        EXPECT_TRUE(ConnectAndEcho("Foo"));
        EXPECT_TRUE(Manager()->StopServer("Foo"));
    }
}

TEST_F(IpcServerManagerTest, StopServerRefusesNullAndEmptyNamesSilently) {
    (void)Manager();
    LogCapture log;
    EXPECT_FALSE(Manager()->StopServer(nullptr));
    EXPECT_FALSE(Manager()->StopServer(""));
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(IpcServerManagerTest, StopServerOfAnUnknownNameReturnsFalseAndDoesNotSignalTheEvent) {
    if (!RunsInFreshProcess()) {
        return;
    }
    EXPECT_FALSE(Manager()->StopServer("Foo"));
    EXPECT_GE(MsOf([] { Manager()->WaitForAllServerStop(100); }), 99);
}

TEST_F(IpcServerManagerTest, StoppingTheLastServerReleasesAWaiterWithoutLimit) {
    if (!RunsInFreshProcess()) {
        return;
    }
    ASSERT_TRUE(Manager()->StartServer("One", 0, nullptr));
    ASSERT_TRUE(Manager()->StartServer("Two", 0, nullptr));
    WatchedThread waiter([] { Manager()->WaitForAllServerStop(-1); });
    waiter.WaitUntilBlocked();
    EXPECT_TRUE(Manager()->StopServer("One"));
    EXPECT_GE(MsOf([] { Manager()->WaitForAllServerStop(100); }), 99) << "not the last one";
    EXPECT_FALSE(waiter.HasEnded());
    EXPECT_TRUE(Manager()->StopServer("Two"));
    waiter.Join();
}

TEST_F(IpcServerManagerTest, WaitOfZeroBeforeAnyStopReturnsAtOnceWithoutTheEvent) {
    if (!RunsInFreshProcess()) {
        return;
    }
    ASSERT_TRUE(Manager()->StartServer("Foo", 0, nullptr));
    {
        LogCapture log;
        EXPECT_LT(MsOf([] { Manager()->WaitForAllServerStop(0); }), kPromptMs);
        EXPECT_EQ(OfTheManager(log),
                  (Messages{"IpcServerManager::WaitForAllServerStop(): Timeout=0\n", kWaitDone}));
    }
    EXPECT_GE(MsOf([] { Manager()->WaitForAllServerStop(100); }), 99);
    EXPECT_TRUE(Manager()->StopServer("Foo"));
}

TEST_F(IpcServerManagerTest, TheFirstEndOfAllServersIsRememberedForEver) {
    if (!RunsInFreshProcess()) {
        return;
    }
    ASSERT_TRUE(Manager()->StartServer("Foo", 0, nullptr));
    EXPECT_TRUE(Manager()->StopServer("Foo"));
    ASSERT_TRUE(Manager()->StartServer("Foo", 0, nullptr));
    EXPECT_LT(MsOf([] { Manager()->WaitForAllServerStop(-1); }), kPromptMs);
    EXPECT_TRUE(Manager()->StopServer("Foo"));
}

TEST_F(IpcServerManagerTest, StopAllServersStopsThemInTheOrderOfTheirNames) {
    if (!RunsInFreshProcess()) {
        return;
    }
    LogCapture log;
    for (const char* name : {"b", "ab", "a"}) {
        ASSERT_TRUE(Manager()->StartServer(name, 0, nullptr));
    }
    log.Clear();
    Manager()->StopAllServers();
    EXPECT_TRUE(Dir().Entries().empty());
    const Messages own = OfTheManager(log);
    ASSERT_EQ(own.size(), 8U);
    EXPECT_EQ(own.front(), "IpcServerManager::StopAllServers(): ....\n");
    int at = 1;
    for (const char* name : {"a", "ab", "b"}) {
        const std::string begin =
            std::string("IpcServerManager::StopAllServers(): Stop (") + name + ")-(0x";
        const std::string& first = own[static_cast<size_t>(at)];
        EXPECT_EQ(first.substr(0, begin.size()), begin);
        EXPECT_EQ(first.substr(first.size() - 2), ")\n");
        EXPECT_EQ(own[static_cast<size_t>(at) + 1], first.substr(0, first.size() - 1) + ". Done\n");
        at += 2;
    }
    EXPECT_EQ(own.back(), "IpcServerManager::StopAllServers(): Done....\n");
    EXPECT_LT(MsOf([] { Manager()->WaitForAllServerStop(-1); }), kPromptMs);
}

TEST_F(IpcServerManagerTest, StopAllServersWithoutServersSignalsTheEvent) {
    if (!RunsInFreshProcess()) {
        return;
    }
    Manager()->StopAllServers();
    EXPECT_LT(MsOf([] { Manager()->WaitForAllServerStop(-1); }), kPromptMs);
}

TEST_F(IpcServerManagerTest, ObserversOfANameThatIsNotStartedAreRefused) {
    EchoObserver observer;
    EXPECT_FALSE(Manager()->RegisterObserver("Foo", &observer));
    EXPECT_FALSE(Manager()->RegisterObserver(nullptr, &observer));
    EXPECT_FALSE(Manager()->RegisterObserver("", &observer));
    Manager()->UnregisterObserver("Foo", &observer);
    Manager()->UnregisterObserver(nullptr, &observer);
    Manager()->UnregisterObserver("", &observer);
    ASSERT_TRUE(Manager()->StartServer("Foo", 0, nullptr));
    EXPECT_FALSE(Manager()->RegisterObserver("Foo", nullptr));
    Manager()->UnregisterObserver("Foo", nullptr);
    EXPECT_FALSE(Manager()->RegisterObserver("Fo", &observer));
    EXPECT_TRUE(Manager()->StopServer("Foo"));
}

TEST_F(IpcServerManagerTest, AnUnregisteredObserverHearsNothingMore) {
    EchoObserver observer;
    ASSERT_TRUE(Manager()->StartServer("Foo", 0, nullptr));
    ASSERT_TRUE(Manager()->RegisterObserver("Foo", &observer));
    Manager()->UnregisterObserver("Foo", &observer);
    EXPECT_TRUE(Manager()->StopServer("Foo"));
    EXPECT_EQ(observer.closed, 0);
}

TEST_F(IpcServerManagerTest, ManyThreadsStartObserveAndStopServers) {
    std::vector<std::thread> threads;
    std::atomic<int> started{0};
    std::atomic<int> stopped{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const std::string name = t % 2 == 0 ? "Even" : "Odd";
            for (int i = 0; i < 50; ++i) {
                EchoObserver observer;
                started += Manager()->StartServer(name.c_str(), 0, nullptr) ? 1 : 0;
                (void)Manager()->RegisterObserver(name.c_str(), &observer);
                Manager()->WaitForAllServerStop(0);
                Manager()->UnregisterObserver(name.c_str(), &observer);
                stopped += Manager()->StopServer(name.c_str()) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Manager()->StopAllServers();
    EXPECT_GE(started, 1);
    EXPECT_LE(stopped, started);
    EXPECT_TRUE(Dir().Entries().empty());
}

TEST_F(IpcServerManagerTest, AtTheEndOfTheProcessTheServersAreStopped) {
    if (!RunsInFreshProcess()) {
        return;
    }
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    ChildProcess child([&]() -> int {
        dup2(pipes[1], STDERR_FILENO);
        (void)Manager();
        exit(Manager()->StartServer("Foo", 0, nullptr) ? 0 : 1);
    });
    EXPECT_EQ(child.Wait(), 0);
    close(pipes[0]);
    close(pipes[1]);
    EXPECT_TRUE(Dir().Entries().empty());
}

// Construction and destruction, in a process that ends: it prints to the standard error.
TEST_F(IpcServerManagerTest, ConstructionAndDestructionMessageByMessage) {
    if (!RunsInFreshProcess()) {
        return;
    }
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    ChildProcess child([&]() -> int {
        { LogCapture endsTheQuiet; }
        dup2(pipes[1], STDERR_FILENO);
        kpl::tools::EnableDumpLog(true, false);
        (void)Manager();
        exit(0);
    });
    close(pipes[1]);
    std::string text;
    char buf[1024];
    ssize_t got = 0;
    while ((got = read(pipes[0], buf, sizeof(buf))) > 0) {
        text.append(buf, static_cast<size_t>(got));
    }
    close(pipes[0]);
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(text,
              "D/KPL: IpcServerManager::IpcServerManager(): .....\n"
              "D/KPL: IpcServerManager::StopAllServers(): ....\n"
              "D/KPL: IpcServerManager::StopAllServers(): Done....\n"
              "D/KPL: IpcServerManager::~IpcServerManager(): .....\n");
}

}  // namespace
