// The round trip of a typed call between two processes, beside a raw FIFO ping-pong of the same
// sizes; then what several threads get out of one client.
//
//   call_bench [rounds]
//
// The contenders take turns within every round, so that whatever disturbs the machine disturbs all
// of them; the medians over the rounds are compared.
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/rpc/PingPong.h"
#include "bench/support/Machine.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"

namespace {

using kpl::bench::FifoPair;
using kpl::bench::HandedOverPingPong;
using kpl::bench::PingPong;
using kpl::bench::PrintMachine;
using kpl::bench::Sizes;
using kpl::rpc::Call;

constexpr int kTripsPerTurn = 2000;

// Restricts this thread, and those that it starts from now on, to the first core it may use.
void PinToOneCore() {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof(allowed), &allowed);
    size_t core = 0;
    while (core + 1 < CPU_SETSIZE && !CPU_ISSET(core, &allowed)) {
        ++core;
    }
    CPU_ZERO(&allowed);
    CPU_SET(core, &allowed);
    sched_setaffinity(0, sizeof(allowed), &allowed);
}

// --- The other processes ---

// What the bench's children share; removed at the end.
class Site {
public:
    Site() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kpl-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr || pipe(m_end) != 0) {
            abort();
        }
        m_root = pattern;
    }
    ~Site() {
        close(m_end[1]);  // The children see it and end.
        for (const pid_t child : m_children) {
            waitpid(child, nullptr, 0);
        }
        std::filesystem::remove_all(m_root);
    }
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    // A directory of that name in the site.
    std::string Directory(const std::string& name) const {
        const std::filesystem::path path = m_root / name;
        std::filesystem::create_directory(path);
        return path.string();
    }

    // A child that runs `body`. Before any thread exists.
    void Fork(bool pinned, const std::function<void()>& body) {
        const pid_t child = fork();
        if (child == 0) {
            close(m_end[1]);
            if (pinned) {
                PinToOneCore();
            }
            body();
            _exit(0);
        }
        m_children.push_back(child);
    }

    // Returns when the bench ends. In a child.
    void AwaitEnd() const {
        char byte = 0;
        (void)!read(m_end[0], &byte, 1);
    }

private:
    std::filesystem::path m_root;
    int m_end[2] = {-1, -1};
    std::vector<pid_t> m_children;
};

void ServeCalls(const Site& site, const std::string& directory) {
    kpl::ipc::SetPipeRootPath(directory.c_str());
    kpl::rpc::RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    kpl::rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    kpl::rpc::RpcServer server;
    server.Start("Calculator", nullptr);
    site.AwaitEnd();
    server.Stop();
    kpl::rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
}

// The directories of one way to run.
struct Stage {
    Stage(Site* site, const std::string& name, bool isPinned, Sizes sizes)
        : title(name),
          pinned(isPinned),
          raw(site->Directory(name + "-raw")),
          handedOver(site->Directory(name + "-handed-over")),
          calls(site->Directory(name + "-calls")) {
        FifoPair::Make(raw);
        FifoPair::Make(handedOver);
        site->Fork(pinned, [&] { kpl::bench::ServePingPong(raw, sizes); });
        site->Fork(pinned, [&] { kpl::bench::ServePingPong(handedOver, sizes); });
        site->Fork(pinned, [&] { ServeCalls(*site, calls); });
    }

    std::string title;
    bool pinned;
    std::string raw;
    std::string handedOver;
    std::string calls;
};

// --- The round trips ---

struct Contender {
    const char* name;
    std::function<bool()> roundTrip;
    std::vector<double> ns;  // per round trip, one a round
};

double TakeTurn(const Contender& contender) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTripsPerTurn; ++i) {
        if (!contender.roundTrip()) {
            fprintf(stderr, "%s: a round trip failed\n", contender.name);
            exit(1);
        }
    }
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
    return took.count() / kTripsPerTurn;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void Compare(const char* title, int rounds, std::vector<Contender> contenders) {
    for (const Contender& contender : contenders) {
        (void)TakeTurn(contender);  // warm-up
    }
    for (int round = 0; round < rounds; ++round) {
        for (Contender& contender : contenders) {
            contender.ns.push_back(TakeTurn(contender));
        }
    }
    printf("\n%s, median (best) of %d rounds of %d round trips each\n", title, rounds,
           kTripsPerTurn);
    const double base = Median(contenders.front().ns);
    for (const Contender& contender : contenders) {
        printf("  %-44s %9.0f ns (%9.0f) %7.2f x\n", contender.name, Median(contender.ns),
               *std::min_element(contender.ns.begin(), contender.ns.end()),
               Median(contender.ns) / base);
    }
}

// The server's process may still be starting.
bool ConnectToCalculator(kpl::rpc::RpcClient* client) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (client->Connect("Calculator", nullptr, 10000)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    fprintf(stderr, "cannot connect\n");
    return false;
}

// --- Several threads ---

void MeasureThroughput(kpl::rpc::RpcClient* client, int threadCount) {
    std::atomic<bool> stop{false};
    std::atomic<long> calls{0};
    std::vector<std::thread> threads;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            long done = 0;
            for (; !stop; ++done) {
                if (Call<int>(*client, "Add", static_cast<int>(done), 1) != done + 1) {
                    fprintf(stderr, "a call failed\n");
                    exit(1);
                }
            }
            calls += done;
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    printf("  %2d %s %9.0f calls/s\n", threadCount, threadCount == 1 ? "thread " : "threads",
           static_cast<double>(calls) / took.count());
}

void Run(const Stage& stage, int rounds, Sizes sizes) {
    if (stage.pinned) {
        PinToOneCore();
    }
    kpl::ipc::SetPipeRootPath(stage.calls.c_str());
    kpl::rpc::RpcClient client;
    if (!ConnectToCalculator(&client)) {
        exit(1);
    }
    PingPong raw(stage.raw, sizes);
    HandedOverPingPong handedOver(stage.handedOver, sizes);
    int i = 0;
    Compare(stage.title.c_str(), rounds,
            {{"FIFO ping-pong, blocking read and write", [&raw] { return raw.RoundTrip(); }, {}},
             {"the same, replies handed over by a thread",
              [&handedOver] { return handedOver.RoundTrip(); },
              {}},
             {"Call<int>(client, \"Add\", a, b)",
              [&client, &i] {
                  ++i;
                  return Call<int>(client, "Add", i, 1) == i + 1;
              },
              {}}});
    if (!stage.pinned) {
        printf("\n%s, threads that call on one client\n", stage.title.c_str());
        for (const int threads : {1, 2, 4, 8}) {
            MeasureThroughput(&client, threads);
        }
    }
}

// What Call<int>(client, "Add", a, b) and its result put on the wire.
Sizes SizesOfAdd() {
    char buffer[128];
    kpl::rpc::RpcCommandMuxer muxer(buffer, sizeof(buffer));
    (void)(muxer.Push(1) && muxer.Push(2));
    const int request = muxer.Finish(kpl::rpc::RPC_COMMAND_INVOKE, "Add", 1);
    (void)muxer.Push(3);
    return {request, muxer.Finish(kpl::rpc::RPC_COMMAND_RESULT, nullptr, 1)};
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 20;
    if (rounds < 1) {
        fprintf(stderr, "usage: call_bench [rounds]\n");
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const Sizes sizes = SizesOfAdd();
    PrintMachine();
    printf("%d bytes there, %d bytes back, over FIFOs\n", sizes.request, sizes.reply);
    fflush(stdout);
    Site site;
    const Stage free(&site, "free", false, sizes);
    const Stage pinned(&site, "both processes on one core", true, sizes);
    Run(free, rounds, sizes);
    Run(pinned, rounds, sizes);
    return 0;
}
