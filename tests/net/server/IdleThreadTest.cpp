// What a server thread costs whose connections are idle: it polls about twice a millisecond. A
// program of its own, because it replaces malloc and operator new.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "kpl/os/CEvent.h"
#include "tests/net/NetTestSupport.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/rpc/AllocationCounter.h"

namespace kpl::net::server {
namespace {

using test::allocations;
using test::ConnectedPair;
using test::LineThread;
using test::Peer;
using test::Script;

constexpr long kMeasuredMs = 2000;

// What a thread has used so far.
struct Usage {
    double cpuMs = 0;
    long waits = 0;
};

Usage UsageOf(int tid) {
    const std::string task = "/proc/self/task/" + std::to_string(tid);
    Usage usage;
    double ns = 0;
    std::ifstream(task + "/schedstat") >> ns;
    usage.cpuMs = ns / 1e6;
    std::ifstream status(task + "/status");
    std::string word;
    while (status >> word && word != "voluntary_ctxt_switches:") {
    }
    status >> usage.waits;
    return usage;
}

class IdleThreadTest : public ::testing::TestWithParam<int> {};

TEST_P(IdleThreadTest, PollsTwiceAMillisecondAtMostAndAllocatesNothing) {
    Script script;
    std::atomic<int> tid{0};
    script.onExecute = [&](CServerProtocolProcessor*) {
        tid = static_cast<int>(syscall(SYS_gettid));
    };
    LineThread thread(&script);
    std::vector<Peer> peers;
    for (int i = 0; i < GetParam(); ++i) {
        ConnectedPair pair;
        ASSERT_TRUE(thread.AddSocket(pair.served, new CSocket(pair.served), nullptr));
        ASSERT_TRUE(pair.peer.Send("ping\n"));
        ASSERT_EQ(pair.peer.Read(6), ">ping\n");
        peers.push_back(std::move(pair.peer));
    }
    os::CEvent never(false);
    never.Wait(50);  // until the last request is done
    const Usage before = UsageOf(tid);
    const int allocated = allocations;
    never.Wait(kMeasuredMs);
    EXPECT_EQ(allocations, allocated);
    const Usage after = UsageOf(tid);
    const double share = (after.cpuMs - before.cpuMs) / kMeasuredMs;
    const long polls = (after.waits - before.waits) * 1000 / kMeasuredMs;
    printf("an idle server thread of %d connections: %.2f %% of a core, %ld polls a second\n",
           GetParam(), share * 100, polls);
    EXPECT_GT(polls, 100) << "a busy machine may make them fewer";
    EXPECT_LE(polls, 2050) << "half a millisecond each";
    EXPECT_LT(share, 0.3);
}

INSTANTIATE_TEST_SUITE_P(Connections, IdleThreadTest, ::testing::Values(1, 32));

}  // namespace
}  // namespace kpl::net::server
