#include "kpl/net/server/CSocketServer.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "tests/net/NetTestSupport.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/VirtualSlot.h"

namespace kpl::net::server {
namespace {

using test::LogCapture;
using test::MsOf;
using test::Peer;
using test::Running;
using test::SlotOf;
using test::WaitUntil;

using Messages = std::vector<std::string>;

std::string Message(const std::string& text) {
    return "CSocketServer::" + text + "\n";
}

std::string ClosedMessage(int fd) {
    return "CSocket::Close(): Done(" + std::to_string(fd) + ")\n";
}

const std::string kWaiting = Message("Accept(): Wait for connection....");
const std::string kRefused = Message("Accept(): ??????????????? Fail to create client socket");

std::string AcceptFailed(int error) {
    return Message("Accept(): ??????????????? Fail to accept(Err=" + std::to_string(error) + ")");
}

class Observer : public IServerObserver {
public:
    ~Observer() override {
        for (const CSocket* client : taken) {
            delete client;
        }
    }
    bool ClientAccepted(CSocket* client) override {
        if (take) {
            taken.push_back(client);
        }
        const bool result = take;
        ++accepted;
        return result;
    }
    void ServerClosed() override { ++closed; }
    void StartToAccept() override { ++started; }

    std::atomic<bool> take{false};
    std::vector<CSocket*> taken;  // accept thread
    std::atomic<int> accepted{0};
    std::atomic<int> closed{0};
    std::atomic<int> started{0};
};

// Whose factory is the test's.
class FactoryServer : public CSocketServer {
public:
    explicit FactoryServer(std::function<CSocket*(int)> factory)
        : CSocketServer(0), m_factory(std::move(factory)) {}
    ~FactoryServer() override { Stop(); }
    CSocket* CreateClientSocket(int fd) override { return m_factory(fd); }

private:
    std::function<CSocket*(int)> m_factory;
};

class CSocketServerTest : public test::NetTest {};

TEST_F(CSocketServerTest, SlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&CSocketServer::Execute), 0);
    EXPECT_EQ(SlotOf(&CSocketServer::OnCommandDone), 1);
    EXPECT_EQ(SlotOf(&CSocketServer::CreateClientSocket), 4);  // behind the destructors
    EXPECT_EQ(SlotOf(&IServerObserver::ClientAccepted), 2);    // behind the destructors
    EXPECT_EQ(SlotOf(&IServerObserver::ServerClosed), 3);
    EXPECT_EQ(SlotOf(&IServerObserver::StartToAccept), 4);
}

TEST_F(CSocketServerTest, LogsARunFromItsStartToItsEnd) {
    const LogCapture log;
    int clientFd = -1;
    {
        FactoryServer server([&](int fd) {
            clientFd = fd;
            return new CSocket(fd);
        });
        ASSERT_TRUE(server.Run());
        ASSERT_TRUE(log.WaitFor(kWaiting));
        const Peer peer = Peer::ConnectTo(server.GetListeningPort());
        ASSERT_TRUE(WaitUntil([&] { return log.Count(kWaiting) == 2; }));
        server.Stop();
    }
    const std::string done = "Accept(): Wait for connection done(Ret=";
    EXPECT_EQ(log.Messages(),
              (Messages{Message("Stop(): ....."), Message("Stop(): Done....."),
                        Message("BindAndListen(): Max pending connection(128)....."),
                        Message("BindAndListen(): Done....."), kWaiting,
                        Message(done + std::to_string(clientFd) + ")(Err=0)...."), kWaiting,
                        Message("Stop(): ....."), ClosedMessage(clientFd),
                        Message(done + "-1)(Err=" + std::to_string(EINVAL) + ")...."),
                        AcceptFailed(EINVAL), Message("Stop(): Done....."),
                        Message("Stop(): ....."), Message("Stop(): Done....."),
                        Message("~CSocketServer(): ....."), Message("Stop(): ....."),
                        Message("Stop(): Done....."), Message("~CSocketServer(): Done.....")}));
}

TEST_F(CSocketServerTest, TellsTheObserverOfStartClientsAndEnd) {
    Observer observer;  // outlives the server
    CSocketServer server(0);
    observer.take = true;
    server.SetObserver(&observer);
    ASSERT_TRUE(server.Run());
    EXPECT_EQ(observer.started, 1);
    const Peer peer = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(WaitUntil([&] { return observer.accepted == 1; }));
    EXPECT_EQ(observer.closed, 0);
    EXPECT_TRUE(server.Stop());
    EXPECT_EQ(observer.closed, 1);
    ASSERT_EQ(observer.taken.size(), 1U);
    EXPECT_EQ(observer.taken[0]->Write("hello", 5, 0), 5) << "the server has kept nothing of it";
    EXPECT_EQ(peer.Read(5), "hello");
}

TEST_F(CSocketServerTest, KeepsAndReleasesClientsThatNobodyTakesOver) {
    Observer observer;  // outlives the server
    CSocketServer server(0);
    server.SetObserver(&observer);
    ASSERT_TRUE(server.Run());
    const Peer first = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(WaitUntil([&] { return observer.accepted == 1; }));
    EXPECT_TRUE(WaitUntil([&] {
        server.ReleaseAllClients();
        char byte = 0;
        return recv(first.Fd(), &byte, 1, MSG_DONTWAIT) == 0;
    }));
    const Peer second = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(WaitUntil([&] { return observer.accepted == 2; }));
    server.Stop();
    EXPECT_TRUE(second.HasEnded());
}

TEST_F(CSocketServerTest, WithoutAnObserverClientsAreKeptToo) {
    const LogCapture log;
    CSocketServer server(0);
    ASSERT_TRUE(server.Run());
    const Peer peer = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(WaitUntil([&] { return log.Count(kWaiting) == 2; }));
    server.Stop();
    EXPECT_TRUE(peer.HasEnded());
}

TEST_F(CSocketServerTest, APortInUseIsLoggedAndNoStartIsSent) {
    CSocketServer first(0);
    ASSERT_TRUE(first.Run());
    Observer observer;
    CSocketServer second(static_cast<unsigned int>(first.GetListeningPort()));
    second.SetObserver(&observer);
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_FALSE(second.Run());
    EXPECT_EQ(log.Messages(), Messages{Message("Bind(): ??????????????? Fail to bind(-1-" +
                                               std::to_string(EADDRINUSE) + ")")});
    EXPECT_EQ(observer.started, 0);
    EXPECT_EQ(second.GetListeningPort(), -1);
    second.Stop();
    EXPECT_EQ(observer.closed, 1) << "a run had been begun";
    first.Stop();
    EXPECT_TRUE(second.Run()) << "it can be tried again";
}

TEST_F(CSocketServerTest, WithoutADescriptorRunIsFalse) {
    CSocketServer server(0);
    const LogCapture log(LogCapture::Debug::Off);
    const test::NoDescriptors none;
    EXPECT_FALSE(server.Run());
    EXPECT_EQ(log.Messages(), Messages{Message("Bind(): ????????????? Fail to open socket")});
}

TEST_F(CSocketServerTest, StopOfAServerThatNeverRanSendsNoServerClosed) {
    Observer observer;  // outlives the server
    CSocketServer server(0);
    server.SetObserver(&observer);
    const LogCapture log;
    EXPECT_TRUE(server.Stop());
    EXPECT_EQ(log.Messages(), (Messages{Message("Stop(): ....."), Message("Stop(): Done.....")}));
    EXPECT_EQ(observer.closed, 0);
}

TEST_F(CSocketServerTest, StopTwiceSendsServerClosedOnce) {
    Observer observer;  // outlives the server
    CSocketServer server(0);
    server.SetObserver(&observer);
    ASSERT_TRUE(server.Run());
    server.Stop();
    server.Stop();
    EXPECT_EQ(observer.closed, 1);
}

TEST_F(CSocketServerTest, OtherCommandsAreIgnored) {
    CSocketServer server(0);
    EXPECT_FALSE(server.Execute(1));
    EXPECT_FALSE(server.Execute(-1));
    EXPECT_FALSE(server.Execute(0)) << "without a listening socket";
}

TEST_F(CSocketServerTest, KnowsItsPorts) {
    CSocketServer chosen(0);
    EXPECT_EQ(chosen.GetPort(), 0);
    EXPECT_EQ(chosen.GetListeningPort(), -1);
    ASSERT_TRUE(chosen.Run());
    EXPECT_GT(chosen.GetListeningPort(), 0);
    EXPECT_EQ(chosen.GetPort(), 0);
    const int port = chosen.GetListeningPort();
    chosen.Stop();
    EXPECT_EQ(chosen.GetListeningPort(), -1);
    CSocketServer given(static_cast<unsigned int>(port));
    EXPECT_EQ(given.GetPort(), port);
    ASSERT_TRUE(given.Run());
    EXPECT_EQ(given.GetListeningPort(), port);
}

TEST_F(CSocketServerTest, StepsCanBeTakenOneByOne) {
    CSocketServer server(0);
    EXPECT_FALSE(server.Accept());
    ASSERT_TRUE(server.BindAndListen());
    const Peer first = Peer::ConnectTo(server.GetListeningPort());
    EXPECT_TRUE(server.Accept());
    const Peer second = Peer::ConnectTo(server.GetListeningPort());
    EXPECT_TRUE(server.Execute(0)) << "without a queue nothing is posted";
    const LogCapture log;
    ASSERT_TRUE(server.BindAndListen()) << "closes the earlier one";
    EXPECT_TRUE(log.Contains(Message("Stop(): .....")));
    EXPECT_TRUE(first.HasEnded());
    EXPECT_TRUE(second.HasEnded());
}

TEST_F(CSocketServerTest, RunAgainReplacesTheRun) {
    Observer observer;  // outlives the server
    CSocketServer server(0);
    server.SetObserver(&observer);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(server.Run());
        EXPECT_EQ(observer.closed, i);
        ASSERT_TRUE(Peer::ConnectTo(server.GetListeningPort()).IsOpen());
    }
}

TEST_F(CSocketServerTest, ThePortCanBeHadAgainAtOnce) {
    // The side that closes first keeps the connection's addresses for a while.
    int port = 0;
    {
        const LogCapture log;
        CSocketServer server(0);
        ASSERT_TRUE(server.Run());
        port = server.GetListeningPort();
        const Peer peer = Peer::ConnectTo(port);
        ASSERT_TRUE(WaitUntil([&] { return log.Count(kWaiting) == 2; }));
        server.Stop();
        EXPECT_TRUE(peer.HasEnded());
    }
    CSocketServer again(static_cast<unsigned int>(port));
    EXPECT_TRUE(again.Run());
}

TEST_F(CSocketServerTest, ARefusedClientIsClosedAndTheNextIsAccepted) {
    const LogCapture log(LogCapture::Debug::Off);
    std::atomic<int> calls{0};
    Observer observer;
    FactoryServer server([&](int fd) { return ++calls == 1 ? nullptr : new CSocket(fd); });
    server.SetObserver(&observer);
    ASSERT_TRUE(server.Run());
    const Peer refused = Peer::ConnectTo(server.GetListeningPort());
    EXPECT_TRUE(refused.HasEnded());
    EXPECT_EQ(log.Messages(), Messages{kRefused});
    const Peer accepted = Peer::ConnectTo(server.GetListeningPort());
    EXPECT_TRUE(WaitUntil([&] { return observer.accepted == 1; }));
}

TEST_F(CSocketServerTest, ADescriptorThatTheFactoryHasClosedIsNotClosedAgain) {
    // By then the number belongs to somebody else.
    int pipe[2] = {};
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    std::atomic<int> number{-1};
    FactoryServer server([&](int fd) -> CSocket* {
        EXPECT_EQ(dup3(pipe[0], fd, O_CLOEXEC), fd);
        number = fd;
        return nullptr;
    });
    ASSERT_TRUE(server.Run());
    const Peer peer = Peer::ConnectTo(server.GetListeningPort());
    EXPECT_TRUE(peer.HasEnded());
    server.Stop();
    EXPECT_NE(fcntl(number, F_GETFD), -1);
    for (const int fd : {pipe[0], pipe[1], number.load()}) {
        close(fd);
    }
}

TEST_F(CSocketServerTest, AcceptedDescriptorsAreCloseOnExec) {
    std::atomic<int> flags{-1};
    FactoryServer server([&](int fd) {
        flags = fcntl(fd, F_GETFD);
        return new CSocket(fd);
    });
    ASSERT_TRUE(server.Run());
    const Peer peer = Peer::ConnectTo(server.GetListeningPort());
    EXPECT_TRUE(WaitUntil([&] { return flags == FD_CLOEXEC; }));
}

TEST_F(CSocketServerTest, OutOfDescriptorsTheLoopGoesOnButDoesNotSpin) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of virtual calls needs a descriptor of its own";
#endif
    const LogCapture log;
    Observer observer;  // outlives the server
    CSocketServer server(0);
    server.SetObserver(&observer);
    ASSERT_TRUE(server.Run());
    const int port = server.GetListeningPort();
    const Peer first = Peer::Unconnected();  // gets the descriptor that accept has set aside
    const Peer second = Peer::Unconnected();
    ASSERT_TRUE(log.WaitFor(kWaiting));
    // Only then has accept set one aside.
    ASSERT_TRUE(first.Connect(port));
    ASSERT_TRUE(WaitUntil([&] { return log.Count(kWaiting) == 2; }));
    {
        const test::NoDescriptors none;
        ASSERT_TRUE(second.Connect(port));
        ASSERT_TRUE(WaitUntil([&] { return log.Count(AcceptFailed(EMFILE)) >= 2; }) ||
                    observer.accepted == 2);
        const int before = log.Count(AcceptFailed(EMFILE));
        EXPECT_GE(MsOf([&] {
                      EXPECT_TRUE(WaitUntil(
                          [&] { return log.Count(AcceptFailed(EMFILE)) >= before + 10; }));
                  }),
                  80)
            << "ten attempts, ten milliseconds each";
    }
    EXPECT_TRUE(WaitUntil([&] { return observer.accepted == 2; }));
}

TEST_F(CSocketServerTest, AnyOtherErrorEndsTheLoopAndTheServerStaysUntilItIsStopped) {
    const int listener = dup(STDERR_FILENO);  // the number that the listening socket gets
    close(listener);
    const LogCapture log;
    Observer observer;  // outlives the server
    CSocketServer server(0);
    server.SetObserver(&observer);
    ASSERT_TRUE(server.Run());
    ASSERT_TRUE(log.WaitFor(kWaiting));
    ASSERT_EQ(shutdown(listener, SHUT_RDWR), 0);
    ASSERT_TRUE(log.WaitFor(AcceptFailed(EINVAL)));
    EXPECT_FALSE(WaitUntil([&] { return log.Count(kWaiting) > 1; }, 100));
    EXPECT_EQ(observer.closed, 0);
    server.Stop();
    EXPECT_EQ(log.Count(kWaiting), 1);
    EXPECT_EQ(observer.closed, 1);
}

TEST_F(CSocketServerTest, ASignalDoesNotEndTheLoop) {
    const LogCapture log;
    Observer observer;  // outlives the server
    CSocketServer server(0);
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &before);
    ASSERT_TRUE(server.BindAndListen());
    {
        Running accepting([&] { EXPECT_TRUE(server.Accept()); });
        for (int i = 0; i < 20; ++i) {
            ASSERT_TRUE(accepting.WaitUntilBlocked());
            pthread_kill(accepting.Handle(), SIGUSR1);
        }
        EXPECT_FALSE(accepting.EndsWithin(10));
        EXPECT_TRUE(Peer::ConnectTo(server.GetListeningPort()).IsOpen());
        EXPECT_TRUE(accepting.EndsWithin(test::kCeilingMs));
    }
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(log.Count(kWaiting), 1);
}

TEST_F(CSocketServerTest, AClientThatIsAcceptedDuringTheStopIsReleasedToo) {
    test::LogCapture log;
    os::CEvent inFactory(false);
    os::CEvent goOn(false);
    FactoryServer server([&](int fd) {
        inFactory.Set();
        goOn.Wait(-1);
        return new CSocket(fd);
    });
    ASSERT_TRUE(server.Run());
    const Peer peer = Peer::ConnectTo(server.GetListeningPort());
    ASSERT_TRUE(inFactory.Wait(test::kCeilingMs));
    log.Clear();
    Running stopping([&] { server.Stop(); });
    ASSERT_TRUE(log.WaitFor(Message("Stop(): .....")));
    EXPECT_FALSE(stopping.EndsWithin(20)) << "it waits for the accept thread";
    goOn.Set();
    EXPECT_TRUE(stopping.EndsWithin(test::kCeilingMs));
    EXPECT_TRUE(peer.HasEnded());
}

}  // namespace
}  // namespace kpl::net::server
