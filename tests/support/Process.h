// Processes and what they hold: for tests with more than one process, and tests of leaks.
#ifndef KPL_TESTS_SUPPORT_PROCESS_H_
#define KPL_TESTS_SUPPORT_PROCESS_H_

#include <sys/types.h>

#include <functional>

namespace kpl::test {

// A forked child that runs `body` and exits with what it returns. Fork before any thread exists.
// Still running at the end, it is killed.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<int()>& body);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return m_pid; }
    void Kill(int signal);

    // Waits for the end. Returns the exit code, 128 + n after signal n, -1 after `timeoutMs`.
    int Wait(long timeoutMs = 30000);

private:
    pid_t m_pid;
    bool m_reaped = false;
    int m_result = -1;
};

int OpenDescriptorCount();
int ThreadCount();

// The same, for after a thread was joined. An emulator keeps such a thread for a moment as one of
// its own: only there this waits until no more than `expected` are left.
int SettledThreadCount(int expected);

// Waits until `condition` holds, looking every millisecond; false after `timeoutMs`.
bool WaitUntil(const std::function<bool()>& condition, long timeoutMs = 10000);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_PROCESS_H_
