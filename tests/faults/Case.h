// One run of the kill matrix: a client or a server is stopped at a point, and what the other side
// does then is looked at.
#ifndef KPL_TESTS_FAULTS_CASE_H_
#define KPL_TESTS_FAULTS_CASE_H_

#include "tests/faults/Victim.h"

namespace kpl::test {

enum class Side { Client, Server };
enum class Fault {
    Kill,       // SIGKILL
    Stall,      // all its threads stand still for a while, then go on
    StallStop,  // clients only: the server is stopped at once meanwhile, and serves nobody else
};

constexpr const char* kSideNames[] = {"client", "server"};
constexpr const char* kFaultNames[] = {"kill", "stall", "stall+stop"};

struct CaseSpec {
    Side side = Side::Client;
    Fault fault = Fault::Kill;
    Point point;
};

enum class Verdict {
    NotRun,
    Good,
    NotReached,  // the run had fewer system calls than the one that was counted
    Slow,        // everything came about, but not in time
    Bad,
};

// Plain, because it lies in memory that processes share.
struct CaseResult {
    Verdict verdict = Verdict::NotRun;
    char where[64] = {};
    char left[128] = {};     // names in the FIFO directory before the next server starts
    char problem[160] = {};  // of the first thing that was not as it should be
    int servedMs = -1;       // until a new peer was served
    int endedMs = -1;        // until the other side had stopped
};

// In a process of its own, which it may leave with children and threads.
void RunCase(const CaseSpec& spec, int stallMs, CaseResult* result);

// The system calls of each phase of an undisturbed run.
std::array<int, kPhases> CountCalls(Side side);

}  // namespace kpl::test

#endif  // KPL_TESTS_FAULTS_CASE_H_
