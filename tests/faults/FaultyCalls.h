// System calls that fail, come short, are interrupted or are late, by chance from a seed.
//
// A program that has this linked in with the wrappers of tests/faults/CMakeLists.txt gives the
// library's calls a fault where the chance says so. The decision about a call is computed from the
// seed, the kind of call and how many calls of that kind there were before. So a seed gives each
// kind the same sequence of faults in every run; which thread's call meets the n-th of them is up
// to the scheduler. A run of one thread repeats exactly. One of several threads usually finds the
// same again, and if not, then within a few runs of its seed.
//
// Only what can happen is made to happen: writes to a FIFO come short above PIPE_BUF only, event
// descriptors that exist do not fail, an announcement is not read in parts, nothing fails that
// gives something back (close, unlink, join).
#ifndef KPL_TESTS_FAULTS_FAULTYCALLS_H_
#define KPL_TESTS_FAULTS_FAULTYCALLS_H_

#include <stdint.h>

#include <string>

namespace kpl::test {

struct FaultPlan {
    uint64_t seed = 0;
    int faultsPerMille = 0;
    int delaysPerMille = 0;
};

void StartFaults(const FaultPlan& plan);
void StopFaults();

// The calls that can have a fault.
enum class FaultKind {
    Open,
    Read,
    Write,
    Poll,
    Accept,
    Send,
    Recv,
    Connect,
    Mknod,
    Thread,      // pthread_create
    Descriptor,  // eventfd, socket, epoll_create1, timerfd_create
    Memory,      // strdup, new (std::nothrow)
    Wake,        // a condition's wait returns for no reason
    Watch,       // epoll_ctl that adds
    Arrival,     // epoll_wait
    Clock,       // AllFail only: a timerfd_settime for later than at once sets 1000 s
    Delay,
};

// While one exists, all calls of one kind fail with `error`, after the first `skip`. One at a time;
// for tests of a certain fault.
class AllFail {
public:
    AllFail(FaultKind kind, int error, int skip = 0);
    ~AllFail();
    AllFail(const AllFail&) = delete;
    AllFail& operator=(const AllFail&) = delete;

    // How many have failed.
    int Count() const;
};

// Stops the first call of one kind, before it is made, until it goes out of scope or is told. One
// at a time.
class Halt {
public:
    explicit Halt(FaultKind kind);
    ~Halt() { GoOn(); }
    Halt(const Halt&) = delete;
    Halt& operator=(const Halt&) = delete;

    // Whether a thread stands there.
    bool IsReached() const;
    void GoOn();
};

// What has been injected since the last StartFaults.
int FaultCount();
std::string FaultList();  // "open 2, ppoll 1"

// Whether accept failed with an error that ends a TCP server's accepting.
bool HadFatalAcceptError();

// While one exists, the calls of its thread have no faults: for the peers of the library.
class Spared {
public:
    Spared();
    ~Spared();
    Spared(const Spared&) = delete;
    Spared& operator=(const Spared&) = delete;

private:
    bool m_before;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_FAULTS_FAULTYCALLS_H_
