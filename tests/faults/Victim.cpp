#include "tests/faults/Victim.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Process.h"

namespace kpl::test {

namespace {

// For the table of results; a call that is not listed appears by its number.
const std::map<uint64_t, const char*>& CallNames() {
#define KPL_CALL(name) \
    { SYS_##name, #name }
    static const std::map<uint64_t, const char*> names = {
        KPL_CALL(brk),
        KPL_CALL(clock_nanosleep),
        KPL_CALL(clone3),
        KPL_CALL(close),
        KPL_CALL(eventfd2),
        KPL_CALL(exit),
        KPL_CALL(exit_group),
        KPL_CALL(futex),
        KPL_CALL(getpid),
        KPL_CALL(gettid),
        KPL_CALL(getrandom),
        KPL_CALL(madvise),
        KPL_CALL(mknodat),
        KPL_CALL(mmap),
        KPL_CALL(mprotect),
        KPL_CALL(munmap),
        KPL_CALL(newfstatat),
        KPL_CALL(openat),
        KPL_CALL(ppoll),
        KPL_CALL(read),
        KPL_CALL(rseq),
        KPL_CALL(rt_sigpending),
        KPL_CALL(rt_sigprocmask),
        KPL_CALL(rt_sigtimedwait),
        KPL_CALL(sched_yield),
        KPL_CALL(set_robust_list),
        KPL_CALL(unlinkat),
        KPL_CALL(write),
#ifdef SYS_poll
        KPL_CALL(poll),
#endif
#ifdef SYS_mknod
        KPL_CALL(mknod),
#endif
#ifdef SYS_unlink
        KPL_CALL(unlink),
#endif
    };
#undef KPL_CALL
    return names;
}

std::string CallName(uint64_t number) {
    const auto found = CallNames().find(number);
    return found != CallNames().end() ? found->second : "call " + std::to_string(number);
}

// PTRACE_SYSCALL and others, with data as a number.
long Trace(__ptrace_request request, pid_t tid, long data) {
    return ptrace(request, tid, nullptr, reinterpret_cast<void*>(data));
}

[[noreturn]] void Fatal(const char* what) {
    perror(what);
    abort();
}

}  // namespace

Victim::Victim(const std::atomic<Phase>* phase, const std::function<int()>& body) : m_phase(phase) {
    int go[2] = {};
    if (pipe(go) != 0) {
        Fatal("pipe");
    }
    fflush(nullptr);
    m_pid = fork();
    if (m_pid < 0) {
        Fatal("fork");
    }
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setpgid(0, 0);
        close(go[1]);
        char byte = 0;
        (void)!read(go[0], &byte, 1);
        close(go[0]);
        _exit(body());
    }
    setpgid(m_pid, m_pid);  // also here: its threads are waited for by the number of the group
    constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    if (Trace(PTRACE_SEIZE, m_pid, kOptions) != 0 || Trace(PTRACE_INTERRUPT, m_pid, 0) != 0) {
        Fatal("ptrace");
    }
    close(go[0]);
    close(go[1]);
    (void)Known(m_pid);
    pid_t tid = -1;
    (void)WaitForThread(&tid);
}

Victim::~Victim() {
    if (!m_ended) {
        Kill();
    }
}

Victim::Thread& Victim::Known(pid_t tid) {
    Thread& thread = m_threads[tid];
    if (thread.number == 0) {
        thread.number = ++m_threadCount;
    }
    return thread;
}

// Waits until a thread stops or ends. False when the process has ended.
bool Victim::WaitForThread(pid_t* tid) {
    int status = 0;
    do {
        *tid = waitpid(-m_pid, &status, __WALL);
    } while (*tid < 0 && errno == EINTR);
    if (*tid < 0) {
        m_ended = true;
    } else {
        Note(*tid, status);
    }
    return !m_ended;
}

void Victim::Note(pid_t tid, int status) {
    m_syscallStop = false;
    if (WIFEXITED(status) || WIFSIGNALED(status)) {
        m_threads.erase(tid);
        m_gone.insert(tid);
        // One that ends inside its call has no other end of that call.
        m_pointExited = m_pointExited || tid == m_inPoint;
        if (tid == m_pid) {
            m_ended = true;
            m_result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return;
    }
    Thread& thread = Known(tid);
    thread.stopped = true;
    thread.signal = 0;
    const int event = status >> 16;
    m_syscallStop = WSTOPSIG(status) == (SIGTRAP | 0x80);
    if (event == PTRACE_EVENT_CLONE) {
        // The new thread may not have been seen yet; or it has come and gone already.
        unsigned long child = 0;
        ptrace(PTRACE_GETEVENTMSG, tid, nullptr, &child);
        if (m_gone.count(static_cast<pid_t>(child)) == 0) {
            (void)Known(static_cast<pid_t>(child));
        }
    } else if (event == 0 && !m_syscallStop) {
        thread.signal = WSTOPSIG(status);
    }
}

void Victim::Resume(pid_t tid) {
    const auto found = m_threads.find(tid);
    if (found != m_threads.end() && found->second.stopped) {
        found->second.stopped = false;
        Trace(PTRACE_SYSCALL, tid, found->second.signal);
    }
}

bool Victim::RunTo(const Point& point) {
    pid_t tid = m_pid;
    do {
        Resume(tid);
        if (!WaitForThread(&tid)) {
            return false;
        }
    } while (!IsAtPoint(tid, point));
    return true;
}

bool Victim::IsAtPoint(pid_t tid, const Point& point) {
    if (m_pointExited) {
        return true;
    }
    if (!m_syscallStop) {
        return false;
    }
    Thread& thread = m_threads[tid];
    thread.inCall = !thread.inCall;
    if (!thread.inCall) {
        return tid == m_inPoint;
    }
    const Phase phase = *m_phase;
    const int call = ++m_calls[static_cast<size_t>(phase)];
    if (phase != point.phase || call != point.call || m_inPoint != -1) {
        return false;
    }
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, tid, reinterpret_cast<void*>(sizeof(info)), &info);
    m_where = CallName(info.entry.nr) + " by thread " + std::to_string(thread.number);
    m_inPoint = tid;
    return !point.after;
}

void Victim::Kill() {
    kill(m_pid, SIGKILL);
    pid_t tid = -1;
    while (WaitForThread(&tid)) {
        Resume(tid);
    }
}

void Victim::Hold() {
    for (auto& entry : m_threads) {
        if (!entry.second.stopped) {
            Trace(PTRACE_INTERRUPT, entry.first, 0);
        }
    }
    const auto running = [this] {
        for (const auto& entry : m_threads) {
            if (!entry.second.stopped) {
                return true;
            }
        }
        return false;
    };
    pid_t tid = -1;
    while (running() && WaitForThread(&tid)) {
    }
}

void Victim::LetGo() {
    for (const auto& entry : m_threads) {
        if (entry.second.stopped) {
            Trace(PTRACE_DETACH, entry.first, entry.second.signal);
        }
    }
    m_threads.clear();
}

int Victim::WaitForEnd(long timeoutMs) {
    const bool ended = m_ended || WaitUntil(
                                      [this] {
                                          int status = 0;
                                          if (waitpid(m_pid, &status, WNOHANG) != m_pid) {
                                              return false;
                                          }
                                          Note(m_pid, status);
                                          return m_ended;
                                      },
                                      timeoutMs);
    return ended ? m_result : -1;
}

}  // namespace kpl::test
