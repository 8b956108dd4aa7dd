#include "tests/faults/Workload.h"

#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "kpl/ipc/PipePath.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/Process.h"

// The library's log is of no interest here.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace kpl::test {

namespace {

using rpc::RpcClient;

// A number, so that a result of the wrong call would be noticed.
bool CallAdd(RpcClient* client) {
    const std::optional<int> sum = rpc::Call<int>(*client, kCallLimitMs, "Add", 19, 23);
    return sum && *sum == 42;
}

bool BeCalledBack(RpcClient* client) {
    // Shared: the lambda lives as long as the connection.
    auto called = std::make_shared<os::CEvent>(false);
    const std::optional<int> result =
        rpc::Call<int>(*client, kCallLimitMs, "Watch", 7, [called](int value) {
            if (value == 8) {
                called->Set();
            }
        });
    return result && called->Wait(kCallLimitMs);
}

bool ConnectAndUse(RpcClient* client, const char* name, long connectLimitMs) {
    return client->Connect(name, nullptr, connectLimitMs) && CallAdd(client) &&
           BeCalledBack(client);
}

void Enter(Board* board, Phase phase) {
    board->phase = phase;
}

int MsSince(std::chrono::steady_clock::time_point begin) {
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::steady_clock::now() - begin)
                                .count());
}

int OpenDescriptorCountOf(pid_t process) {
    int entries = 0;
    std::error_code ignored;
    const std::string directory = "/proc/" + std::to_string(process) + "/fd";
    for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
        (void)entry;
        ++entries;
    }
    return entries;
}

// The steps of the client of a phased server. Another thread may end them: then they fail.
class Steps {
public:
    Steps(Board* board, const char* name, RpcClient* client, int serverControl)
        : m_board(board),
          m_name(name),
          m_client(client),
          m_serverControl(serverControl),
          m_thread([this] { Run(); }) {}
    ~Steps() { m_thread.join(); }

    // Disconnects, repeatedly, because a step may be about to connect. Returns how long the longest
    // disconnect took, -1 if the steps do not end.
    int End() {
        m_end = true;
        int longest = 0;
        const bool ended = WaitUntil([&] {
            const auto begin = std::chrono::steady_clock::now();
            m_client->Disconnect();
            longest = std::max(longest, MsSince(begin));
            return m_done.load();
        });
        return ended ? longest : -1;
    }

private:
    void Run() {
        (void)WaitUntil([this] { return m_end || m_board->serverIsReady; });
        m_descriptors = OpenDescriptorCountOf(m_board->serverPid);
        const bool served =
            Step(Phase::Connect,
                 [this] { return m_client->Connect(m_name, nullptr, kCallLimitMs); }) &&
            Step(Phase::Call, [this] { return CallAdd(m_client); }) &&
            Step(Phase::Callback, [this] { return BeCalledBack(m_client); }) &&
            Step(Phase::Disconnect, [this] { return Leave(); }) &&
            Step(Phase::Setup, [this] { return ConnectAndUse(m_client, m_name, kCallLimitMs); });
        if (served) {
            (void)Step(Phase::Stop, [this] { return write(m_serverControl, "s", 1) == 1; });
        }
        m_done = true;
    }

    template <typename Body>
    bool Step(Phase phase, Body body) {
        if (m_end) {
            return false;
        }
        Enter(m_board, phase);
        return body();
    }

    // With all that the server does then.
    bool Leave() {
        m_client->Disconnect();
        (void)WaitUntil(
            [this] { return m_end || OpenDescriptorCountOf(m_board->serverPid) <= m_descriptors; },
            1000);
        return true;
    }

    Board* m_board;
    const char* m_name;
    RpcClient* m_client;
    int m_serverControl;
    int m_descriptors = 0;  // the server's, without a client
    std::atomic<bool> m_end{false};
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

}  // namespace

Board* NewBoard() {
    void* const memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) Board;
}

int RunServer(Board* board, const char* name, int control, bool phased) {
    const int descriptors = OpenDescriptorCount();
    {
        rpc::RpcFunctionTable table;
        table.Bind("Add", [](int a, int b) { return a + b; });
        table.Bind("Watch", [](int value, rpc::RpcRemoteCallback callback) {
            callback(value + 1);
            return value;
        });
        rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
        {
            rpc::RpcServer server;
            if (phased) {
                Enter(board, Phase::Start);
            }
            if (!server.Start(name, nullptr)) {
                return kNotStarted;
            }
            board->serverPid = getpid();
            board->serverIsReady = true;
            char byte = 0;
            (void)!read(control, &byte, 1);
            server.Stop();
        }
        Enter(board, Phase::Setup);
        rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    }
    if (!WaitUntil([] { return ThreadCount() == 1; }, 5000)) {
        return kThreadsLeft;
    }
    return OpenDescriptorCount() <= descriptors ? kDone : kFilesLeft;
}

int RunPhasedClient(Board* board, const char* name) {
    bool served = false;
    {
        RpcClient client;
        Enter(board, Phase::Connect);
        served = client.Connect(name, nullptr, kCallLimitMs);
        Enter(board, Phase::Call);
        served = served && CallAdd(&client);
        Enter(board, Phase::Callback);
        served = served && BeCalledBack(&client);
        Enter(board, Phase::Disconnect);
        client.Disconnect();
        Enter(board, Phase::Stop);
    }
    Enter(board, Phase::Setup);
    return served ? kDone : kNotServed;
}

int RunPeer(const char* name, long connectLimitMs) {
    RpcClient client;
    return ConnectAndUse(&client, name, connectLimitMs) ? kDone : kNotServed;
}

int RunOrderedClient(Board* board, const char* name, int orders, int answers, int serverControl) {
    RpcClient client;
    Steps steps(board, name, &client, serverControl);
    char order = 0;
    while (read(orders, &order, 1) == 1 && order != kOrderEnd) {
        int answer = -1;
        if (order == kOrderDisconnect) {
            answer = steps.End();
        } else {
            const char* const server = order == kOrderSpare ? kSpareName : name;
            const auto begin = std::chrono::steady_clock::now();
            if (ConnectAndUse(&client, server, kCallLimitMs)) {
                answer = MsSince(begin);
            }
            client.Disconnect();
        }
        (void)!write(answers, &answer, sizeof(answer));
    }
    return kDone;
}

}  // namespace kpl::test
