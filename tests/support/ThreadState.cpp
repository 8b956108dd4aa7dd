#include "tests/support/ThreadState.h"

#include <fstream>
#include <string>

#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace kpl::test {

namespace {

constexpr long kWhileMs = 15;

// How often the thread has gone to sleep so far; empty while it does not sleep.
std::string SleepCount(int tid) {
    std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
    bool asleep = false;
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("State:", 0) == 0) {
            asleep = line.find('S', 6) != std::string::npos;
        } else if (asleep && line.rfind("voluntary_ctxt_switches:", 0) == 0) {
            return line;
        }
    }
    return std::string();
}

}  // namespace

bool WaitUntilAsleep(const std::atomic<int>& tid, const std::function<bool()>& hasEnded) {
    std::string sleep;
    Stopwatch since;
    return WaitUntil([&] {
        const std::string now = tid != 0 ? SleepCount(tid) : std::string();
        if (now.empty() || now != sleep) {
            sleep = now;
            since = Stopwatch();
        }
        return hasEnded() || (!sleep.empty() && since.ElapsedMs() > kWhileMs);
    });
}

}  // namespace kpl::test
