#include "tests/support/Process.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace kpl::test {

namespace {

int CountEntries(const char* directory) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        (void)entry;
        ++count;
    }
    return count;
}

// A thread that was joined can still be listed for a moment; it is marked as exiting by then.
bool IsExiting(const std::filesystem::path& task) {
    constexpr unsigned int kExiting = 4;
    std::ifstream file(task / "stat");
    // A line, not an iterator, which would throw when the thread vanishes between open and read.
    std::string stat;
    std::getline(file, stat);
    // After the name, which may hold anything: the state, five numbers, the flags.
    const size_t nameEnd = stat.rfind(')');
    unsigned int flags = kExiting;
    if (nameEnd != std::string::npos) {
        sscanf(stat.c_str() + nameEnd + 1, " %*c %*d %*d %*d %*d %*d %u", &flags);
    }
    return (flags & kExiting) != 0;
}

int CountLivingThreads() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        count += IsExiting(task.path()) ? 0 : 1;
    }
    return count;
}

void WaitForEmulator(int threads) {
#ifdef KPL_EMULATED
    (void)WaitUntil([threads] { return CountLivingThreads() <= threads; });
#else
    (void)threads;
#endif
}

bool StartFirstThread() {
    const int before = CountLivingThreads();
    std::thread([] {}).join();
    WaitForEmulator(before);
    return true;
}

}  // namespace

ChildProcess::ChildProcess(const std::function<int()>& body) : m_pid(-1) {
    fflush(nullptr);
    m_pid = fork();
    if (m_pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (m_pid == 0) {
        const int result = body();
        fflush(nullptr);
        _exit(result);
    }
}

ChildProcess::~ChildProcess() {
    if (!m_reaped) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void ChildProcess::Kill(int signal) {
    if (!m_reaped) {
        kill(m_pid, signal);
    }
}

int ChildProcess::Wait(long timeoutMs) {
    const bool ended = m_reaped || WaitUntil(
                                       [this] {
                                           int status = 0;
                                           if (waitpid(m_pid, &status, WNOHANG) != m_pid) {
                                               return false;
                                           }
                                           m_reaped = true;
                                           m_result = WIFEXITED(status) ? WEXITSTATUS(status)
                                                                        : 128 + WTERMSIG(status);
                                           return true;
                                       },
                                       timeoutMs);
    return ended ? m_result : -1;
}

int OpenDescriptorCount() {
    return CountEntries("/proc/self/fd");
}

int ThreadCount() {
    // The thread sanitizer starts a thread of its own together with our first one.
    static const bool started = StartFirstThread();
    (void)started;
    return CountLivingThreads();
}

int SettledThreadCount(int expected) {
    WaitForEmulator(expected);
    return ThreadCount();
}

bool WaitUntil(const std::function<bool()>& condition, long timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return condition();
        }
        const timespec pause{0, 1000000};
        nanosleep(&pause, nullptr);  // allow-sleep: the poll interval of a wait on a state
    }
    return true;
}

}  // namespace kpl::test
