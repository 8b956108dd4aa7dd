// A process that can be stopped before or after any of its system calls, in all of its threads.
#ifndef KPL_TESTS_FAULTS_VICTIM_H_
#define KPL_TESTS_FAULTS_VICTIM_H_

#include <sys/types.h>

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "tests/faults/Phase.h"

namespace kpl::test {

// The system call number `call`, counted from 1 over all threads, of one phase.
struct Point {
    Phase phase = Phase::Setup;
    int call = 0;
    bool after = false;  // it has returned, instead of: it is about to begin
};

// Traces a forked child (ptrace): use it on one thread only, and fork before any thread exists. The
// child is killed with its tracer.
class Victim {
public:
    // `phase` is in memory that both processes share; the child, or whoever drives it, sets it.
    Victim(const std::atomic<Phase>* phase, const std::function<int()>& body);
    ~Victim();
    Victim(const Victim&) = delete;
    Victim& operator=(const Victim&) = delete;

    // Lets it run up to `point`. False if it ended before.
    bool RunTo(const Point& point);

    // At a point: ends it with SIGKILL, or stops all its threads until LetGo.
    void Kill();
    void Hold();
    void LetGo();

    // After LetGo, or when RunTo was false: the exit code, 128 + n after signal n, -1 if it still
    // runs after `timeoutMs`.
    int WaitForEnd(long timeoutMs);

    // How many system calls each phase had so far.
    const std::array<int, kPhases>& Calls() const { return m_calls; }

    // The system call of the point, and which thread made it: "openat by thread 2". Threads count
    // from 1, the main thread, in the order of their creation.
    std::string Where() const { return m_where; }

private:
    struct Thread {
        int number = 0;
        bool stopped = false;
        bool inCall = false;
        int signal = 0;  // to be delivered when it goes on
    };

    bool WaitForThread(pid_t* tid);
    void Note(pid_t tid, int status);
    bool IsAtPoint(pid_t tid, const Point& point);
    Thread& Known(pid_t tid);
    void Resume(pid_t tid);

    const std::atomic<Phase>* m_phase;
    pid_t m_pid = -1;
    bool m_ended = false;
    int m_result = -1;
    std::map<pid_t, Thread> m_threads;
    std::set<pid_t> m_gone;  // threads that have ended
    int m_threadCount = 0;
    std::array<int, kPhases> m_calls{};
    pid_t m_inPoint = -1;  // the thread inside the call after which we stop
    bool m_pointExited = false;
    bool m_syscallStop = false;  // what WaitForThread has seen
    std::string m_where;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_FAULTS_VICTIM_H_
