#include <signal.h>
#include <stdio.h>

#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"

int main(int argc, char** argv) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);  // in all threads; sigwait below takes them

    kpl::ipc::SetPipeRootPath(argc > 1 ? argv[1] : "/tmp");
    kpl::rpc::RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    kpl::rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    kpl::rpc::RpcServer server;
    const bool started = server.Start("Calculator", nullptr);
    if (started) {
        puts("calculator_server: ready");
        fflush(stdout);
        int signal = 0;
        sigwait(&stop, &signal);
        server.Stop();
    } else {
        fputs("calculator_server: cannot make its FIFO\n", stderr);
    }
    kpl::rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    return started ? 0 : 1;
}
