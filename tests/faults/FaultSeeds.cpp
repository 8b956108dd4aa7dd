// Runs a workload under faults from one seed after the other. For each seed: no crash, no report of
// a sanitizer, no hang, nothing left, and afterwards the same server serves again.
//
//   kpl_fault_seeds rpc|tcp [--first N] [--count N] [--jobs N]
//   KPL_FAULT_SEED=7 kpl_fault_seeds rpc        only that one, with the library's log and the list
//                                               of faults
//
// Seeds run in batches, each in a process of its own, where leaked memory is looked for at the end.
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "tests/faults/FaultWorkloads.h"

namespace {

using kpl::test::FaultPlan;

constexpr int kBatch = 50;
constexpr int kHangSeconds = 60;  // of one seed

bool logs = false;

struct Options {
    std::string workload;
    uint64_t first = 1;
    uint64_t count = 200;
    int jobs = 2;
};

// Shared with the batch's process.
struct Batch {
    uint64_t first = 0;
    uint64_t count = 0;
    std::atomic<uint64_t> current{0};
    std::atomic<int64_t> currentSince{0};
    std::atomic<int> faults{0};
    std::atomic<bool> failed{false};
};

int64_t NowSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

// Rare, frequent, and so frequent that little works; every third seed also has delays.
FaultPlan PlanOf(uint64_t seed) {
    static constexpr int kRates[] = {3, 10, 30, 100};
    FaultPlan plan;
    plan.seed = seed;
    plan.faultsPerMille = kRates[seed / 2 % 4];
    plan.delaysPerMille = seed % 3 == 0 ? 20 : 0;
    return plan;
}

std::string RunSeed(const std::string& workload, uint64_t seed) {
    const FaultPlan plan = PlanOf(seed);
    return workload == "rpc" ? kpl::test::RunRpcWorkload(plan) : kpl::test::RunTcpWorkload(plan);
}

void PrintFailure(const std::string& workload, uint64_t seed, const std::string& problem) {
    printf("FAILED: %s; again with: KPL_FAULT_SEED=%llu kpl_fault_seeds %s\n", problem.c_str(),
           static_cast<unsigned long long>(seed), workload.c_str());
}

int RunBatch(const std::string& workload, Batch* batch) {
    for (uint64_t seed = batch->first; seed < batch->first + batch->count; ++seed) {
        batch->current = seed;
        batch->currentSince = NowSeconds();
        const std::string problem = RunSeed(workload, seed);
        batch->faults += kpl::test::FaultCount();
        if (!problem.empty()) {
            PrintFailure(workload, seed, problem + " (" + kpl::test::FaultList() + ")");
            batch->failed = true;
        }
    }
    batch->current = 0;
    return 0;
}

pid_t Launch(const std::string& workload, Batch* batch) {
    fflush(nullptr);
    batch->currentSince = NowSeconds();
    const pid_t pid = fork();
    if (pid == 0) {
        exit(RunBatch(workload, batch));  // not _exit: leaks are looked for at the exit
    }
    return pid;
}

void KillHanging(const std::map<pid_t, Batch*>& running) {
    for (const auto& [pid, batch] : running) {
        if (NowSeconds() - batch->currentSince > kHangSeconds) {
            kill(pid, SIGABRT);
        }
    }
}

void NoteEnd(const std::string& workload, Batch* batch, int status) {
    if (status == 0) {
        return;
    }
    const uint64_t seed = batch->current;
    if (seed != 0) {
        const bool hung = NowSeconds() - batch->currentSince > kHangSeconds;
        PrintFailure(workload, seed, hung ? "it hangs" : "it fell over");
    } else {
        printf("FAILED: %s, a report at the end of seeds %llu to %llu\n", workload.c_str(),
               static_cast<unsigned long long>(batch->first),
               static_cast<unsigned long long>(batch->first + batch->count - 1));
    }
    batch->failed = true;
}

std::vector<Batch*> MakeBatches(const Options& options) {
    const size_t count = static_cast<size_t>((options.count + kBatch - 1) / kBatch);
    void* const memory = mmap(nullptr, count * sizeof(Batch), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        exit(2);
    }
    std::vector<Batch*> batches;
    for (size_t i = 0; i < count; ++i) {
        Batch* const batch = new (static_cast<Batch*>(memory) + i) Batch;
        batch->first = options.first + i * kBatch;
        batch->count = std::min<uint64_t>(kBatch, options.first + options.count - batch->first);
        batches.push_back(batch);
    }
    return batches;
}

int RunAll(const Options& options) {
    const std::vector<Batch*> batches = MakeBatches(options);
    std::map<pid_t, Batch*> running;
    size_t next = 0;
    while (next < batches.size() || !running.empty()) {
        while (next < batches.size() && static_cast<int>(running.size()) < options.jobs) {
            Batch* const batch = batches[next++];
            running[Launch(options.workload, batch)] = batch;
        }
        int status = 0;
        const pid_t pid = waitpid(-1, &status, WNOHANG);
        if (pid > 0) {
            NoteEnd(options.workload, running[pid], status);
            running.erase(pid);
            continue;
        }
        KillHanging(running);
        usleep(10000);  // allow-sleep: the poll interval
    }
    const auto failed = std::count_if(batches.begin(), batches.end(),
                                      [](const Batch* batch) { return batch->failed.load(); });
    long long faults = 0;
    for (const Batch* batch : batches) {
        faults += batch->faults;
    }
    printf("%s: seeds %llu to %llu, %lld faults, %lld batches of %zu failed\n",
           options.workload.c_str(), static_cast<unsigned long long>(options.first),
           static_cast<unsigned long long>(options.first + options.count - 1), faults,
           static_cast<long long>(failed), batches.size());
    // As many faults as seeds at least, or the wrappers are not in place.
    return failed == 0 && faults >= static_cast<long long>(options.count) ? 0 : 1;
}

int RunOne(const std::string& workload, uint64_t seed) {
    logs = true;
    alarm(kHangSeconds);
    const std::string problem = RunSeed(workload, seed);
    printf("faults: %s\n", kpl::test::FaultList().c_str());
    if (!problem.empty()) {
        PrintFailure(workload, seed, problem);
    }
    return problem.empty() ? 0 : 1;
}

Options ParseOptions(int argc, char** argv) {
    Options options;
    options.workload = argc > 1 ? argv[1] : "";
    bool good = options.workload == "rpc" || options.workload == "tcp";
    for (int i = 2; i < argc; i += 2) {
        const std::string name = argv[i];
        const uint64_t value = i + 1 < argc ? strtoull(argv[i + 1], nullptr, 10) : 0;
        good = good && value > 0;
        if (name == "--first") {
            options.first = value;
        } else if (name == "--count") {
            options.count = value;
        } else if (name == "--jobs") {
            options.jobs = static_cast<int>(value);
        } else {
            good = false;
        }
    }
    if (!good) {
        fputs("usage: kpl_fault_seeds rpc|tcp [--first N] [--count N] [--jobs N]\n", stderr);
        exit(2);
    }
    return options;
}

}  // namespace

// In the place of the library's own, which prints everything.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

int __android_log_print(int, const char*, const char* format, ...) {
    if (logs) {
        va_list arguments;
        va_start(arguments, format);
        vfprintf(stderr, format, arguments);
        va_end(arguments);
    }
    return 0;
}

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    signal(SIGPIPE, SIG_DFL);
    const Options options = ParseOptions(argc, argv);
    const char* const seed = getenv("KPL_FAULT_SEED");
    return seed != nullptr ? RunOne(options.workload, strtoull(seed, nullptr, 10))
                           : RunAll(options);
}
