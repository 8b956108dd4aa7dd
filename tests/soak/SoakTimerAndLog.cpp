// Timers that are started anew again and again, and a log that rotates in the working directory,
// until SIGTERM or SIGINT.
#include <signal.h>
#include <stdio.h>
#include <time.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "kpl/tools/DebugLog.h"
#include "kpl/tools/TimerObject.h"

// The messages are for the files alone.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

constexpr timespec kPause{0, 10000000};  // 10 ms
constexpr int kMessagesEachTime = 20;
constexpr int kRoundsToRestart = 50;

std::atomic<long> ticks{0};

void Tick(void*, int tick) {
    ++ticks;
    kpl::tools::DumpDbgMsg("tick %d\n", tick);
}

void Start(std::vector<std::unique_ptr<kpl::tools::TimerObject>>* timers) {
    unsigned int intervalMs = 5;
    for (const auto& timer : *timers) {
        timer->Start(intervalMs, &Tick, nullptr, 0, true, 0);
        intervalMs += 2;
    }
}

}  // namespace

int main() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    kpl::tools::EnableDumpLog(true, true);
    std::vector<std::unique_ptr<kpl::tools::TimerObject>> timers(4);
    for (auto& timer : timers) {
        timer = std::make_unique<kpl::tools::TimerObject>();
    }
    const std::string text(2000, '.');
    printf("soak_timer_and_log: ready\n");
    fflush(stdout);
    for (long round = 0; sigtimedwait(&stop, nullptr, &kPause) < 0; ++round) {
        if (round % kRoundsToRestart == 0) {
            Start(&timers);
        }
        for (int i = 0; i < kMessagesEachTime; ++i) {
            kpl::tools::DumpDbgMsg("round %ld, message %d %s\n", round, i, text.c_str());
        }
    }
    timers.clear();
    printf("soak_timer_and_log: %ld ticks\n", ticks.load());
    return 0;
}
