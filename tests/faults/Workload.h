// The processes of a case: a server, a client, a peer that comes later. All are forked, before the
// process of the case has used the library.
#ifndef KPL_TESTS_FAULTS_WORKLOAD_H_
#define KPL_TESTS_FAULTS_WORKLOAD_H_

#include <atomic>

#include "tests/faults/Phase.h"

namespace kpl::test {

// The time limits of the clients' connects and calls, and the server's limit for one that has
// announced itself and does not open: the library's default.
constexpr long kCallLimitMs = 2000;
constexpr long kStatedOpenLimitMs = 5000;

// What the processes of a case share.
struct Board {
    std::atomic<Phase> phase{Phase::Setup};
    std::atomic<bool> serverIsReady{false};
    std::atomic<int> serverPid{-1};  // once it is ready
};

// The exit codes of the processes.
enum ExitCode { kDone = 0, kNotServed = 10, kNotStarted = 11, kThreadsLeft = 12, kFilesLeft = 13 };

// Makes Board, in memory that forked processes share.
Board* NewBoard();

// Serves `name` until it can read from `control`, then stops. `phased`: it sets Start itself.
int RunServer(Board* board, const char* name, int control, bool phased);

// Connects, calls, is called back, disconnects, ends; with the phases.
int RunPhasedClient(Board* board, const char* name);

// The same once, without phases: a new peer. Connects within `connectLimitMs`.
int RunPeer(const char* name, long connectLimitMs);

// The client of a server that is to be stopped at a point: as RunPhasedClient, then connects once
// more and lets the server stop by writing to `serverControl`. Meanwhile, and afterwards, it obeys
// the orders that it reads; it answers each with the
// milliseconds that it took, or -1 if it failed.
enum Order : char {
    kOrderDisconnect = 'd',  // whatever it is doing; the time is that of the disconnect alone
    kOrderNewServer = 'n',   // be served under the same name
    kOrderSpare = 's',       // be served by the server named kSpareName
    kOrderEnd = 'e',
};
constexpr const char* kSpareName = "Spare";
int RunOrderedClient(Board* board, const char* name, int orders, int answers, int serverControl);

}  // namespace kpl::test

#endif  // KPL_TESTS_FAULTS_WORKLOAD_H_
