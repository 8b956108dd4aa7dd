#include "tests/faults/Workload.h"

#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

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

// Waits until no FIFO of a connection is left: by then the server has noticed a client's end.
void AwaitConnectionsGone(const char* name) {
    char path[256] = {};
    (void)ipc::GetPipeServerRootPath(name, path, sizeof(path));
    std::string directory = path;
    directory.erase(directory.rfind('/'));
    const auto count = [&] {
        int entries = 0;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
            (void)entry;
            ++entries;
        }
        return entries;
    };
    (void)WaitUntil([&] { return count() <= 1; }, 1000);
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

    // Disconnects, repeatedly, because a step may be about to connect.
    void End() {
        m_end = true;
        (void)WaitUntil([this] {
            m_client->Disconnect();
            return m_done.load();
        });
    }

private:
    void Run() {
        (void)WaitUntil([this] { return m_end || m_board->serverIsReady; });
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

    bool Leave() {
        m_client->Disconnect();
        AwaitConnectionsGone(m_name);
        return true;
    }

    Board* m_board;
    const char* m_name;
    RpcClient* m_client;
    int m_serverControl;
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
        bool done = true;
        if (order == kOrderDisconnect) {
            steps.End();
        } else {
            const char* const server = order == kOrderSpare ? kSpareName : name;
            done = ConnectAndUse(&client, server, kCallLimitMs);
            client.Disconnect();
        }
        const char answer = done ? 1 : 0;
        (void)!write(answers, &answer, 1);
    }
    return kDone;
}

}  // namespace kpl::test
