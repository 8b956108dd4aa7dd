// What the sockets and threads of a TCP server do when a certain call fails, or stands still.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <string>

#include "kpl/net/CSocket.h"
#include "tests/faults/FaultyCalls.h"
#include "tests/net/NetTestSupport.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/ThreadState.h"

namespace kpl::test {
namespace {

using net::CSocket;

const std::string kProcStart = "CServerThread::ThreadProc(): Start....\n";
const std::string kProcDone = "CServerThread::ThreadProc(): Done.....\n";

bool IsOpenDescriptor(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

// A call that has the number, but has not been made yet, keeps it from becoming another's.
void ExpectNumberIsKept(int fd, FaultKind kind, const std::function<void(CSocket*)>& call) {
    CSocket socket(fd);
    Halt halt(kind);
    Running calling([&] { call(&socket); });
    ASSERT_TRUE(WaitUntil([&] { return halt.IsReached(); }));
    Running disconnecting([&] { socket.Disconnect(); });
    EXPECT_TRUE(WaitUntil([&] { return !socket.IsOpen(); }));
    EXPECT_FALSE(disconnecting.EndsWithin(50));
    EXPECT_TRUE(IsOpenDescriptor(fd));
    halt.GoOn();
    EXPECT_TRUE(calling.EndsWithin(kCeilingMs));
    EXPECT_TRUE(disconnecting.EndsWithin(kCeilingMs));
    EXPECT_FALSE(IsOpenDescriptor(fd));
}

TEST(TcpFaultTest, ASocketKeepsItsNumberUntilASendHasLeft) {
    const LogCapture log;
    const ConnectedPair pair;
    int sent = 0;
    ExpectNumberIsKept(pair.served, FaultKind::Send,
                       [&](CSocket* socket) { sent = socket->Write("a", 1, 0); });
    EXPECT_EQ(sent, -1);
    EXPECT_EQ(pair.peer.Read(1), "");
}

TEST(TcpFaultTest, ASocketKeepsItsNumberUntilAReceiveHasLeft) {
    const LogCapture log;
    const ConnectedPair pair;
    char byte = 0;
    int received = 0;
    ExpectNumberIsKept(pair.served, FaultKind::Recv,
                       [&](CSocket* socket) { received = socket->Read(&byte, 1, 0); });
    EXPECT_EQ(received, -5);
}

TEST(TcpFaultTest, ASocketKeepsItsNumberUntilAWaitForDataHasLeft) {
    const LogCapture log;
    const ConnectedPair pair;
    ExpectNumberIsKept(pair.served, FaultKind::Poll, [](CSocket* socket) {
        EXPECT_TRUE(socket->IsDataAvailable(0)) << "the end";
    });
}

TEST(TcpFaultTest, ASocketWithoutAPeerKeepsItsNumberToo) {
    const LogCapture log;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    char byte = 0;
    ExpectNumberIsKept(fd, FaultKind::Recv,
                       [&](CSocket* socket) { EXPECT_LE(socket->Read(&byte, 1, 0), 0); });
}

// A server thread and its connections. What is to fail is set before it.
class ServerThreadFaultTest : public ::testing::Test {
protected:
    void AddConnection(const ConnectedPair& pair) {
        ASSERT_TRUE(thread.AddSocket(pair.served, new CSocket(pair.served), nullptr));
    }

    static bool IsServed(const ConnectedPair& pair) {
        return pair.peer.Send("ping\n") && pair.peer.Read(6) == ">ping\n";
    }

    // Without ticks: until somebody wakes it.
    void WaitUntilAsleep() const {
        const std::atomic<int> tid{log.ThreadOf(kProcStart)};
        ASSERT_TRUE(test::WaitUntilAsleep(tid, [] { return false; }));
    }

    const LogCapture log;
    Script script;
    LineThread thread{&script};
};

TEST_F(ServerThreadFaultTest, ReleaseSocketWakesTheThread) {
    const AllFail noTicks(FaultKind::Clock, 0);
    const ConnectedPair pair;
    AddConnection(pair);
    WaitUntilAsleep();
    EXPECT_GT(noTicks.Count(), 0);
    thread.ReleaseSocket(pair.served);
    EXPECT_TRUE(log.WaitFor(kProcDone));
}

TEST_F(ServerThreadFaultTest, StopWakesTheThread) {
    const AllFail noTicks(FaultKind::Clock, 0);
    const ConnectedPair pair;
    AddConnection(pair);
    WaitUntilAsleep();
    thread.Stop();
    EXPECT_TRUE(log.WaitFor(kProcDone));
}

TEST_F(ServerThreadFaultTest, StopAllThreadsWakesThemAll) {
    const AllFail noTicks(FaultKind::Clock, 0);
    script.maxPerThread = 1;
    LineManager manager(&script);
    const ConnectedPair pairs[2];
    for (const ConnectedPair& pair : pairs) {
        ASSERT_TRUE(manager.Dispatch(pair.served, new CSocket(pair.served)));
        WaitUntilAsleep();
    }
    Running stopping([&] { manager.StopAllThreads(); });
    EXPECT_TRUE(stopping.EndsWithin(kCeilingMs));
    EXPECT_EQ(log.Count(kProcDone), 2);
}

// The user's limit of watches is reached.
TEST_F(ServerThreadFaultTest, AThreadThatCanWatchNothingServesAndStops) {
    const AllFail noWatch(FaultKind::Watch, ENOSPC);
    const ConnectedPair pair;
    const int before = OpenDescriptorCount();
    AddConnection(pair);
    EXPECT_EQ(OpenDescriptorCount(), before) << "it keeps none that it cannot use";
    EXPECT_TRUE(IsServed(pair));
    thread.Stop();
    EXPECT_TRUE(log.WaitFor(kProcDone));
}

TEST_F(ServerThreadFaultTest, AThreadThatCanWatchNoConnectionServesAndStops) {
    const AllFail noWatch(FaultKind::Watch, ENOSPC, 1);  // but its clock
    const ConnectedPair pairs[2];
    for (const ConnectedPair& pair : pairs) {
        AddConnection(pair);
    }
    EXPECT_EQ(noWatch.Count(), 2);
    EXPECT_TRUE(IsServed(pairs[1]));
    EXPECT_TRUE(IsServed(pairs[0]));
    thread.Stop();
    EXPECT_TRUE(log.WaitFor(kProcDone));
}

TEST_F(ServerThreadFaultTest, AThreadThatCannotHaveAClockServesAndKeepsNoDescriptor) {
    const ConnectedPair pair;
    const int before = OpenDescriptorCount();
    const AllFail oneLeft(FaultKind::Descriptor, EMFILE, 1);
    AddConnection(pair);
    EXPECT_EQ(oneLeft.Count(), 1);
    EXPECT_EQ(OpenDescriptorCount(), before);
    EXPECT_TRUE(IsServed(pair));
    thread.Stop();
    EXPECT_TRUE(log.WaitFor(kProcDone));
}

TEST_F(ServerThreadFaultTest, AThreadWhoseDescriptorSomebodyHasClosedServesAndDoesNotSpin) {
    const AllFail closed(FaultKind::Arrival, EBADF);
    const ConnectedPair pair;
    AddConnection(pair);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(IsServed(pair));
    }
    EXPECT_EQ(closed.Count(), 1);
}

TEST_F(ServerThreadFaultTest, ASignalDuringTheWaitForArrivalsChangesNothing) {
    const AllFail interrupted(FaultKind::Arrival, EINTR);
    const ConnectedPair pair;
    AddConnection(pair);
    EXPECT_TRUE(IsServed(pair));
    EXPECT_TRUE(WaitUntil([&] { return interrupted.Count() > 1; })) << "it is asked again";
}

}  // namespace
}  // namespace kpl::test
