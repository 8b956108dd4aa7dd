#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/faults/FaultWorkloads.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kpl::test {

namespace {

constexpr const char* kName = "Faulty";
constexpr int kLimitMs = 200;  // of each step under faults
constexpr int kFreshOpenMs = 1000;
constexpr int kFreshAttempts = 3;
constexpr int kFreshMs = 10000;  // of those without
constexpr int kClients = 2;
constexpr size_t kBigText = 12000;  // more than a FIFO writes at once

bool Add(rpc::RpcClient* client, long limitMs) {
    const std::optional<int> sum = rpc::Call<int>(*client, limitMs, "Add", 19, 23);
    return sum && *sum == 42;
}

bool Echo(rpc::RpcClient* client, long limitMs) {
    const std::string text(kBigText, 'x');
    const std::optional<std::string> echo =
        rpc::Call<std::string>(*client, limitMs, "Echo", text.c_str());
    return echo && *echo == text;
}

bool Watch(rpc::RpcClient* client, long limitMs) {
    auto called = std::make_shared<os::CEvent>(false);
    const std::optional<int> result =
        rpc::Call<int>(*client, limitMs, "Watch", 7, [called](int) { called->Set(); });
    return result && called->Wait(limitMs);
}

// Whatever comes of it.
void UseUnderFaults(int turn) {
    rpc::RpcClient client;
    for (int round = 0; round < 2; ++round) {
        if (client.Connect(kName, nullptr, kLimitMs)) {
            (void)Add(&client, kLimitMs);
            (void)((turn + round) % 2 == 0 ? Echo(&client, kLimitMs) : Watch(&client, kLimitMs));
            (void)Add(&client, kLimitMs);
        }
        client.Disconnect();
    }
}

std::string UseFresh() {
    rpc::RpcClient client;
    bool connected = false;
    // One that the server gave up is not told, so it tries again.
    for (int i = 0; i < kFreshAttempts && !connected; ++i) {
        connected = client.Connect(kName, nullptr, kFreshMs);
    }
    if (!connected) {
        return "a fresh client does not connect";
    }
    if (!Add(&client, kFreshMs) || !Echo(&client, kFreshMs) || !Watch(&client, kFreshMs)) {
        return "a fresh client is not served";
    }
    return "";
}

std::string ServeUnderFaults(const FaultPlan& plan) {
    StartFaults(plan);
    rpc::RpcServer server;
    server.SetOpenTimeout(kLimitMs);
    server.SetWriteTimeout(kLimitMs);
    const bool started = server.Start(kName, nullptr);
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients && started; ++i) {
        clients.emplace_back([i] { UseUnderFaults(i); });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    // Every other run stops under faults too.
    std::string problem;
    if (plan.seed % 2 == 0) {
        StopFaults();
        // On a busy machine a client takes longer than that to open its side; but each stale
        // announcement that is still to be read takes all of it.
        server.SetOpenTimeout(kFreshOpenMs);
        server.SetWriteTimeout(kFreshMs);
        problem = started ? UseFresh() : "";
    }
    server.Stop();
    StopFaults();
    return problem;
}

}  // namespace

std::string RunRpcWorkload(const FaultPlan& plan) {
    const TempDir dir;
    ipc::SetPipeRootPath(dir.c_str());
    rpc::RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    table.Bind("Echo", [](const std::string& text) { return text; });
    table.Bind("Watch", [](int value, rpc::RpcRemoteCallback callback) {
        callback(value);
        return value;
    });
    rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    const int threads = ThreadCount();
    const int descriptors = OpenDescriptorCount();
    std::string problem = ServeUnderFaults(plan);
    rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    if (problem.empty() && OpenDescriptorCount() != descriptors) {
        problem = "descriptors are left: " + std::to_string(OpenDescriptorCount() - descriptors);
    }
    if (problem.empty() && !WaitUntil([&] { return ThreadCount() <= threads; })) {
        problem = "threads are left";
    }
    if (problem.empty() && !dir.Entries().empty()) {
        problem = "a FIFO is left: " + dir.Entries().front();
    }
    return problem;
}

}  // namespace kpl::test
