// Stops a client or a server before and after every system call of a connection's life, by SIGKILL
// and by letting all its threads stand still for a while, and looks at what the other side does:
// it serves a new peer within a second (after a connect that was cut short, plus the server's time
// limit for a client to open its side), stops within a second, and leaves nothing that the next
// server of that name does not remove.
//
//   kpl_kill_matrix [--full] [--jobs N] [--csv FILE] [--markdown FILE]
//   kpl_kill_matrix --only client,kill,connect,12,before
//
// Which system calls a run makes depends a little on how its threads meet, so a point is "call 12
// of the connect phase", counted over all threads. Points that a run does not reach are tried
// up to four times more.
//
// Many cases run at once; most of their time is waiting. One that was only too slow is run again by
// itself, up to three times, and has to be in time then.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "tests/faults/Case.h"

namespace {

using namespace kpl::test;

constexpr int kQuickStallMs = 2000;
constexpr int kFullStallMs = 10000;
constexpr int kQuickStalls = 40;  // of each kind and side
constexpr unsigned int kCaseLimitSeconds = 90;
constexpr int kAttempts = 5;
constexpr int kSlowAttempts = 3;

struct Options {
    bool full = false;
    int jobs = 32;
    std::string csv;
    std::string markdown;
    std::string only;
};

struct Case {
    CaseSpec spec;
    CaseResult* result = nullptr;
    int attempts = 0;
};

// Forks before the case's own process has used the library.
pid_t Launch(const Case& item, int stallMs) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(kCaseLimitSeconds);
        RunCase(item.spec, stallMs, item.result);
        _exit(0);
    }
    return pid;
}

void NoteEnd(Case* item, int status) {
    if (status != 0) {
        item->result->verdict = Verdict::Bad;
        snprintf(item->result->problem, sizeof(item->result->problem), "the case %s",
                 WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "hangs" : "fell over");
    }
}

bool IsToBeRepeated(const Case& item, Verdict verdict, int attempts) {
    return item.result->verdict == verdict && item.attempts < attempts;
}

// Runs those of `cases` that have not run, or did not reach their point, `jobs` at a time.
void RunAll(std::vector<Case>* cases, int jobs, int stallMs) {
    std::map<pid_t, Case*> running;
    size_t next = 0;
    std::vector<Case*> queue;
    for (Case& item : *cases) {
        queue.push_back(&item);
    }
    while (next < queue.size() || !running.empty()) {
        while (next < queue.size() && static_cast<int>(running.size()) < jobs) {
            Case* const item = queue[next++];
            ++item->attempts;
            *item->result = CaseResult();
            running[Launch(*item, stallMs)] = item;
        }
        int status = 0;
        const pid_t pid = waitpid(-1, &status, 0);
        const auto ended = running.find(pid);
        if (ended == running.end()) {
            continue;
        }
        NoteEnd(ended->second, status);
        if (IsToBeRepeated(*ended->second, Verdict::NotReached, kAttempts)) {
            queue.push_back(ended->second);
        }
        running.erase(ended);
    }
}

std::string Describe(const CaseSpec& spec) {
    return std::string(kSideNames[static_cast<int>(spec.side)]) + "," +
           kFaultNames[static_cast<int>(spec.fault)] + "," +
           kPhaseNames[static_cast<int>(spec.point.phase)] + "," + std::to_string(spec.point.call) +
           "," + (spec.point.after ? "after" : "before");
}

void RepeatSlow(std::vector<Case>* cases, int stallMs) {
    for (Case& item : *cases) {
        for (int i = 0; i < kSlowAttempts && item.result->verdict == Verdict::Slow; ++i) {
            printf("again by itself: %s: %s\n", Describe(item.spec).c_str(), item.result->problem);
            std::vector<Case> one{item};
            one.front().attempts = 0;
            RunAll(&one, 1, stallMs);
        }
    }
}

// The most that several runs had.
std::array<int, kPhases> CountPoints(Side side) {
    std::array<int, kPhases> most{};
    for (int run = 0; run < 5; ++run) {
        int result[2] = {};
        std::array<int, kPhases> calls{};
        if (pipe(result) != 0) {
            abort();
        }
        const pid_t pid = fork();
        if (pid == 0) {
            alarm(kCaseLimitSeconds);
            calls = CountCalls(side);
            (void)!write(result[1], calls.data(), sizeof(calls));
            _exit(0);
        }
        close(result[1]);
        (void)!read(result[0], calls.data(), sizeof(calls));
        close(result[0]);
        waitpid(pid, nullptr, 0);
        for (size_t i = 0; i < most.size(); ++i) {
            most[i] = std::max(most[i], calls[i]);
        }
    }
    return most;
}

std::vector<CaseSpec> Specs(Side side, Fault fault) {
    std::vector<CaseSpec> specs;
    const std::array<int, kPhases> points = CountPoints(side);
    for (int phase = 1; phase < kPhases; ++phase) {
        for (int call = 1; call <= points[static_cast<size_t>(phase)]; ++call) {
            for (const bool after : {false, true}) {
                specs.push_back({side, fault, {static_cast<Phase>(phase), call, after}});
            }
        }
    }
    return specs;
}

// Every n-th, so that about `count` are left.
std::vector<CaseSpec> Sample(const std::vector<CaseSpec>& specs, int count) {
    const size_t step = std::max<size_t>(1, specs.size() / static_cast<size_t>(count));
    std::vector<CaseSpec> sample;
    for (size_t i = 0; i < specs.size(); i += step) {
        sample.push_back(specs[i]);
    }
    return sample;
}

std::vector<CaseSpec> AllSpecs(bool full) {
    std::vector<CaseSpec> all;
    const auto add = [&](Side side, Fault fault) {
        std::vector<CaseSpec> specs = Specs(side, fault);
        if (specs.empty()) {
            fprintf(stderr, "kpl_kill_matrix: the %s cannot be traced\n",
                    kSideNames[static_cast<int>(side)]);
            exit(2);
        }
        if (!full && fault != Fault::Kill) {
            specs = Sample(specs, kQuickStalls);
        }
        all.insert(all.end(), specs.begin(), specs.end());
    };
    add(Side::Client, Fault::Stall);  // the long ones first
    add(Side::Client, Fault::StallStop);
    add(Side::Server, Fault::Stall);
    add(Side::Client, Fault::Kill);
    add(Side::Server, Fault::Kill);
    return all;
}

const char* VerdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::Good:
            return "good";
        case Verdict::NotReached:
            return "not reached";
        case Verdict::Slow:
            return "slow";
        default:
            return "BAD";
    }
}

void WriteCsv(const std::string& path, const std::vector<Case>& cases) {
    FILE* const file = path.empty() ? nullptr : fopen(path.c_str(), "w");
    if (file == nullptr) {
        return;
    }
    fputs("victim,fault,phase,call,edge,system call,verdict,served ms,stopped ms,left,problem\n",
          file);
    for (const Case& item : cases) {
        const CaseResult& result = *item.result;
        fprintf(file, "%s,%s,%s,%d,%d,%s,%s\n", Describe(item.spec).c_str(), result.where,
                VerdictName(result.verdict), result.servedMs, result.endedMs, result.left,
                result.problem);
    }
    fclose(file);
}

struct Row {
    int count[5] = {};
    int servedMs = -1;  // the longest
    int endedMs = -1;
    int left = 0;
};

std::string Summary(const std::vector<Case>& cases) {
    std::map<std::string, Row> rows;
    for (const Case& item : cases) {
        Row& row = rows[std::string(kSideNames[static_cast<int>(item.spec.side)]) + " | " +
                        kFaultNames[static_cast<int>(item.spec.fault)] + " | " +
                        std::to_string(static_cast<int>(item.spec.point.phase)) + " " +
                        kPhaseNames[static_cast<int>(item.spec.point.phase)]];
        ++row.count[static_cast<int>(item.result->verdict)];
        row.servedMs = std::max(row.servedMs, item.result->servedMs);
        row.endedMs = std::max(row.endedMs, item.result->endedMs);
        row.left += item.result->left[0] != '\0' ? 1 : 0;
    }
    std::string text =
        "| victim | fault | phase | good | not reached | slow | bad | served, at most | "
        "stopped, at most | with names left |\n"
        "|---|---|---|---|---|---|---|---|---|---|\n";
    for (const auto& [name, row] : rows) {
        char line[300];
        snprintf(line, sizeof(line), "| %s | %d | %d | %d | %d | %d ms | %d ms | %d |\n",
                 name.c_str(), row.count[static_cast<int>(Verdict::Good)],
                 row.count[static_cast<int>(Verdict::NotReached)],
                 row.count[static_cast<int>(Verdict::Slow)],
                 row.count[static_cast<int>(Verdict::Bad)] +
                     row.count[static_cast<int>(Verdict::NotRun)],
                 row.servedMs, row.endedMs, row.left);
        text += line;
    }
    return text;
}

// "client,kill,connect,12,before"; exits when it is not such a text.
CaseSpec Parse(const std::string& text) {
    for (const Side side : {Side::Client, Side::Server}) {
        for (const Fault fault : {Fault::Kill, Fault::Stall, Fault::StallStop}) {
            for (int phase = 1; phase < kPhases; ++phase) {
                for (int call = 1; call < 1000; ++call) {
                    for (const bool after : {false, true}) {
                        const CaseSpec spec{side, fault, {static_cast<Phase>(phase), call, after}};
                        if (Describe(spec) == text) {
                            return spec;
                        }
                    }
                }
            }
        }
    }
    fprintf(stderr, "kpl_kill_matrix: no such case: %s\n", text.c_str());
    exit(2);
}

Options ParseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        const char* const value = i + 1 < argc ? argv[i + 1] : "";
        if (name == "--full") {
            options.full = true;
            continue;
        }
        ++i;
        if (name == "--jobs" && atoi(value) > 0) {
            options.jobs = atoi(value);
        } else if (name == "--csv") {
            options.csv = value;
        } else if (name == "--markdown") {
            options.markdown = value;
        } else if (name == "--only") {
            options.only = value;
        } else {
            fprintf(stderr, "kpl_kill_matrix: unknown argument %s\n", name.c_str());
            exit(2);
        }
    }
    return options;
}

int Report(const Options& options, const std::vector<Case>& cases) {
    WriteCsv(options.csv, cases);
    const std::string summary = Summary(cases);
    FILE* const file = options.markdown.empty() ? nullptr : fopen(options.markdown.c_str(), "w");
    if (file != nullptr) {
        fputs(summary.c_str(), file);
        fclose(file);
    }
    fputs(summary.c_str(), stdout);
    int bad = 0;
    int reached = 0;
    for (const Case& item : cases) {
        const Verdict verdict = item.result->verdict;
        reached += verdict != Verdict::NotReached ? 1 : 0;
        if (verdict != Verdict::Good && verdict != Verdict::NotReached) {
            ++bad;
            printf("%s: --only %s (%s): %s\n", VerdictName(verdict), Describe(item.spec).c_str(),
                   item.result->where, item.result->problem);
        }
    }
    printf("%zu cases, %d reached their point, %d failed\n", cases.size(), reached, bad);
    // The last points of a phase are reached now and then; but most points must be.
    return bad == 0 && reached * 3 >= static_cast<int>(cases.size()) * 2 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    signal(SIGPIPE, SIG_IGN);
    const Options options = ParseOptions(argc, argv);
    const int stallMs = options.full ? kFullStallMs : kQuickStallMs;
    const std::vector<CaseSpec> specs =
        options.only.empty() ? AllSpecs(options.full) : std::vector<CaseSpec>{Parse(options.only)};
    void* const memory = mmap(nullptr, specs.size() * sizeof(CaseResult), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return 2;
    }
    auto* const results = static_cast<CaseResult*>(memory);
    std::vector<Case> cases;
    for (size_t i = 0; i < specs.size(); ++i) {
        cases.push_back({specs[i], new (&results[i]) CaseResult, 0});
    }
    printf("%zu cases\n", cases.size());
    RunAll(&cases, options.jobs, stallMs);
    RepeatSlow(&cases, stallMs);
    return Report(options, cases);
}
