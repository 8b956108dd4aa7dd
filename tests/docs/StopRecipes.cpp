#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "OwnLog.h"
#include "Recipes.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"

using kpl::os::CEvent;
using kpl::rpc::Call;
using kpl::rpc::RpcClient;
using kpl::rpc::RpcExecutorManager;
using kpl::rpc::RpcFunctionTable;
using kpl::rpc::RpcServer;

namespace {

// A whole server process; says that it is ready through a pipe.
[[noreturn]] void RunCalculator(int ready) {
    RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    RpcServer server;
    alarm(300);  // whatever happens to its parent
    const char started = server.Start("Calculator", nullptr) ? 'y' : 'n';
    (void)!write(ready, &started, 1);
    for (;;) {
        pause();
    }
}

pid_t StartCalculator() {
    int ready[2] = {-1, -1};
    if (pipe(ready) != 0) {
        return -1;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(ready[0]);
        RunCalculator(ready[1]);
    }
    close(ready[1]);
    char started = 'n';
    (void)!read(ready[0], &started, 1);
    close(ready[0]);
    return child;
}

void Kill(pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

// Calls, and if that fails connects anew and calls once more.
std::optional<int> AddSafely(RpcClient& client, int a, int b) {
    std::optional<int> sum = Call<int>(client, 10000, "Add", a, b);
    if (!sum) {
        client.Disconnect();
        if (client.Connect("Calculator", nullptr, 10000)) {
            sum = Call<int>(client, 10000, "Add", a, b);
        }
    }
    return sum;
}

}  // namespace

void SurviveACrash() {
    const pid_t first = StartCalculator();
    // The second one waits with its start, as a process that a supervisor starts again.
    int go[2] = {-1, -1};
    (void)!pipe(go);
    const pid_t second = fork();
    if (second == 0) {
        char begin = 0;
        (void)!read(go[0], &begin, 1);
        RunCalculator(-1);
    }

    RpcClient client;
    client.Connect("Calculator", nullptr, 10000);
    printf("%d\n", AddSafely(client, 1, 2).value_or(0));
    Kill(first);
    (void)!write(go[1], "g", 1);
    printf("%d\n", AddSafely(client, 3, 4).value_or(0));
    client.Disconnect();
    Kill(second);
    close(go[0]);
    close(go[1]);
}

void Stop() {
    RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    RpcServer server;
    server.Start("Calculator", nullptr);
    RpcClient client;
    client.Connect("Calculator", nullptr, 10000);

    client.Disconnect();  // waiting calls return false; nothing of the connection is left
    server.Stop();        // joins the threads, removes the FIFO
    RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);  // before the table goes

    printf("%s\n", Call<int>(client, "Add", 1, 2) ? "served" : "not connected");
    printf("%s\n", client.Connect("Calculator", nullptr, 10000) ? "connected" : "no such server");
}

void FindWhatHangs() {
    CEvent released(false);
    CEvent entered(false);
    RpcFunctionTable table;
    table.Bind("Stuck", [&entered, &released] {
        entered.Set();
        released.Wait(60000);
    });
    RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    RpcServer server;
    server.Start("Calculator", nullptr);
    kpl::os::CThread caller(
        [](void*) {
            RpcClient client;
            client.Connect("Calculator", nullptr, 10000);
            Call<void>(client, 60000, "Stuck");
        },
        nullptr);
    caller.Run(0);
    entered.Wait(10000);

    PrintMessagesWith("Stop waits", &released);  // and only then does the function go on
    server.Stop();
    caller.Exit(true);
    RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
}
