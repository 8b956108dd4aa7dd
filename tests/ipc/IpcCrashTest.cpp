// One side of a connection is killed at any instant; the other side must go on serving others, and
// stop when it is told to.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/ipc/IpcServerPipeImpl.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/Process.h"

namespace {

using kpl::ipc::IpcClientPipeImpl;
using kpl::ipc::IpcServerPipeImpl;
using kpl::test::ChildProcess;
using kpl::test::EchoObserver;
using kpl::test::EchoWorks;
using kpl::test::IpcTest;
using kpl::test::kPromptMs;
using kpl::test::MsOf;
using kpl::test::RawAccept;
using kpl::test::RawConnect;
using kpl::test::RawConnection;
using kpl::test::WaitUntil;
using kpl::test::WatchedThread;
using Messages = std::vector<std::string>;

// A child process that waits for the word, does its part, says so, and then hangs around until it
// is killed.
class Puppet {
public:
    explicit Puppet(const std::function<void()>& part) {
        EXPECT_EQ(pipe2(m_go, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(m_done, O_CLOEXEC), 0);
        m_child = std::make_unique<ChildProcess>([&]() -> int {
            close(m_go[1]);
            close(m_done[0]);
            char byte = 0;
            if (read(m_go[0], &byte, 1) != 1) {
                return 1;
            }
            part();
            (void)!write(m_done[1], "x", 1);
            for (;;) {
                pause();
            }
        });
        close(m_go[0]);
        close(m_done[1]);
    }
    ~Puppet() {
        close(m_go[1]);
        close(m_done[0]);
    }
    Puppet(const Puppet&) = delete;
    Puppet& operator=(const Puppet&) = delete;

    void Go() const { EXPECT_EQ(write(m_go[1], "x", 1), 1); }
    bool WaitUntilDone() const {
        char byte = 0;
        pollfd done{m_done[0], POLLIN, 0};
        return poll(&done, 1, 30000) == 1 && read(m_done[0], &byte, 1) == 1;
    }
    void Kill() {
        m_child->Kill(SIGKILL);
        EXPECT_EQ(m_child->Wait(), 128 + SIGKILL);
    }

private:
    int m_go[2] = {};
    int m_done[2] = {};
    std::unique_ptr<ChildProcess> m_child;
};

class IpcCrashTest : public IpcTest {
protected:
    std::string RootPath() const { return Path("FooRoot"); }

    static bool ConnectAndEcho(long timeoutMs = 10000) {
        IpcClientPipeImpl client;
        return client.Connect("Foo", nullptr, timeoutMs) &&
               EchoWorks(client.GetStreamer(), "hello");
    }
};

TEST_F(IpcCrashTest, AfterAClientKilledAtAnyStepTheNextOneIsServedAndStopIsPrompt) {
    std::vector<std::unique_ptr<Puppet>> clients;
    for (int steps = 0; steps <= kpl::test::kAllRawSteps; ++steps) {
        clients.push_back(std::make_unique<Puppet>(
            [this, steps] { (void)RawConnect(Dir().Path(), "Foo", 100 + steps, steps); }));
    }
    EchoObserver observer;
    IpcServerPipeImpl server;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    ASSERT_TRUE(server.Start("Foo", nullptr));
    int offered = 0;
    for (size_t steps = 0; steps < clients.size(); ++steps) {
        const bool announces = steps >= 2;
        const bool opens = steps >= 5;
        observer.openTimeoutMs = opens ? 20000 : 100;
        clients[steps]->Go();
        ASSERT_TRUE(clients[steps]->WaitUntilDone());
        clients[steps]->Kill();
        offered += announces ? 1 : 0;
        ASSERT_TRUE(WaitUntil([&] { return observer.offered == offered; }));
        observer.openTimeoutMs = 20000;
        EXPECT_TRUE(ConnectAndEcho());
        ++offered;
    }
    EXPECT_LT(MsOf([&] { EXPECT_TRUE(server.Stop()); }), kPromptMs);
    EXPECT_TRUE(WaitUntil([&] { return observer.ended == observer.accepted; }));
}

// The observer waits without a limit for a client that will never come.
TEST_F(IpcCrashTest, StopIsPromptWhileTheClientBeingAwaitedIsDead) {
    for (const int steps : {2, 3, 4}) {
        Puppet client([this, steps] { (void)RawConnect(Dir().Path(), "Foo", 100, steps); });
        EchoObserver observer;
        IpcServerPipeImpl server;
        ASSERT_TRUE(server.RegisterObserver(&observer));
        ASSERT_TRUE(server.Start("Foo", nullptr));
        client.Go();
        ASSERT_TRUE(client.WaitUntilDone());
        client.Kill();
        ASSERT_TRUE(WaitUntil([&] { return observer.offered == 1; }));
        EXPECT_LT(MsOf([&] { EXPECT_TRUE(server.Stop()); }), kPromptMs);
    }
}

// A server in a process of its own, so that this one has no threads and may fork. It ends when its
// input does, and then says whether anything was left.
class ServerProcess {
public:
    explicit ServerProcess(const kpl::test::TempDir& dir)
        : m_puppetInput(), m_child([this, &dir] { return Run(dir); }) {
        close(m_puppetInput.ends[0]);
    }
    int Stop() {
        close(m_puppetInput.ends[1]);
        return m_child.Wait();
    }

private:
    struct Pipe {
        Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
        int ends[2] = {};
    };

    int Run(const kpl::test::TempDir& dir) const {
        close(m_puppetInput.ends[1]);
        const int descriptors = kpl::test::OpenDescriptorCount();
        EchoObserver observer(1000);
        {
            IpcServerPipeImpl server;
            if (!server.RegisterObserver(&observer) || !server.Start("Foo", nullptr)) {
                return 1;
            }
            char byte = 0;
            (void)!read(m_puppetInput.ends[0], &byte, 1);
            if (MsOf([&] { (void)server.Stop(); }) >= kPromptMs) {
                return 2;
            }
        }
        if (!WaitUntil([&] { return observer.ended == observer.accepted; })) {
            return 3;
        }
        if (!WaitUntil([&] { return kpl::test::OpenDescriptorCount() <= descriptors; })) {
            return 4;
        }
        return WaitUntil([&] { return dir.Entries().empty(); }) ? 0 : 5;
    }

    Pipe m_puppetInput;
    ChildProcess m_child;
};

// Runs `body` in a traced child and kills that before its system call number `calls`. Returns false
// when the child ended before.
bool KillBeforeSystemCall(int calls, const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        body();
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    // Each system call stops twice, when it begins and when it ends.
    for (int stops = 0; stops < 2 * calls - 1 && !WIFEXITED(status); ++stops) {
        EXPECT_EQ(ptrace(PTRACE_SYSCALL, child, nullptr, nullptr), 0);
        EXPECT_EQ(waitpid(child, &status, 0), child);
    }
    if (WIFEXITED(status)) {
        return false;
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return true;
}

TEST_F(IpcCrashTest, AClientOfTheLibraryKilledBeforeAnyOfItsSystemCallsStopsNobody) {
    ServerProcess server(Dir());
    ASSERT_TRUE(WaitUntil([&] { return Exists("FooRoot"); }));
    int calls = 1;
    while (KillBeforeSystemCall(calls, [] {
        IpcClientPipeImpl client;
        srand48(getpid());
        if (client.Connect("Foo", nullptr, 5000)) {
            (void)EchoWorks(client.GetStreamer(), "hello");
        }
        client.Disconnect();
    })) {
        // On a busy machine it may come too late for an observer that gives it a second.
        ASSERT_TRUE(ConnectAndEcho() || ConnectAndEcho() || ConnectAndEcho())
            << "after a kill before system call " << calls;
        ++calls;
    }
    EXPECT_GT(calls, 20) << "a connection takes more system calls than that";
    EXPECT_EQ(server.Stop(), 0);
}

TEST_F(IpcCrashTest, AfterAServerKilledAtAnyStepTheClientCanAlwaysBeEnded) {
    std::vector<std::unique_ptr<Puppet>> servers;
    for (int steps = 0; steps <= 4; ++steps) {
        servers.push_back(std::make_unique<Puppet>([this, steps] {
            const int root = open(RootPath().c_str(), O_RDONLY);
            int id = -1;
            if (steps > 0) {
                (void)RawAccept(root, Dir().Path(), "Foo", &id, steps);
            }
        }));
    }
    for (size_t steps = 0; steps < servers.size(); ++steps) {
        ASSERT_EQ(mkfifo(RootPath().c_str(), 0700), 0);
        IpcClientPipeImpl client;
        bool connected = false;
        servers[steps]->Go();
        WatchedThread connecting([&] { connected = client.Connect("Foo", nullptr); });
        ASSERT_TRUE(servers[steps]->WaitUntilDone());
        if (steps == 4) {
            connecting.Join();
        }
        servers[steps]->Kill();
        EXPECT_LT(MsOf([&] {
                      client.CancelConnect();
                      connecting.Join();
                      client.Disconnect();
                  }),
                  kPromptMs);
        EXPECT_EQ(connected, steps == 4);
        EXPECT_EQ(Dir().Entries(), (Messages{"FooRoot"}));
        unlink(RootPath().c_str());
    }
}

TEST_F(IpcCrashTest, AClientOfAKilledServerReadsTheEndAndANewServerTakesTheNameOver) {
    for (int round = 0; round < 5; ++round) {
        Puppet first([] {
            auto* observer = new EchoObserver;
            auto* server = new IpcServerPipeImpl;
            server->RegisterObserver(observer);
            server->Start("Foo", nullptr);
        });
        first.Go();
        ASSERT_TRUE(first.WaitUntilDone());
        IpcClientPipeImpl client;
        ASSERT_TRUE(client.Connect("Foo", nullptr, 10000));
        EXPECT_TRUE(EchoWorks(client.GetStreamer(), "hello"));
        first.Kill();
        char buf[16];
        EXPECT_EQ(client.GetStreamer()->Read(buf, sizeof(buf), 0), 0);
        EXPECT_EQ(client.GetStreamer()->Write("abc", 3), -1);
        client.Disconnect();
        EXPECT_EQ(Dir().Entries(), (Messages{"FooRoot"})) << "stale";
        {
            ServerProcess second(Dir());
            EXPECT_TRUE(ConnectAndEcho() || ConnectAndEcho());
            EXPECT_EQ(second.Stop(), 0);
        }
    }
}

TEST_F(IpcCrashTest, AServerKilledWhileItsClientsComeAndGoLeavesNoClientBehind) {
    for (int round = 0; round < 20; ++round) {
        Puppet server([] {
            auto* observer = new EchoObserver;
            auto* pipe = new IpcServerPipeImpl;
            pipe->RegisterObserver(observer);
            pipe->Start("Foo", nullptr);
        });
        server.Go();
        ASSERT_TRUE(server.WaitUntilDone());
        ChildProcess client([]() -> int {
            srand48(getpid());
            while (ConnectAndEcho(200)) {
            }
            return 0;
        });
        const timespec pause{0, 1000000 + round * 333333};
        nanosleep(&pause, nullptr);  // allow-sleep: the kill meets another moment each time
        server.Kill();
        EXPECT_EQ(client.Wait(), 0);
        unlink(RootPath().c_str());
    }
}

}  // namespace
