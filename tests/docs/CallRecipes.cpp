#include <stdio.h>

#include <string>
#include <tuple>

#include "Recipes.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"

using kpl::rpc::Call;
using kpl::rpc::RpcClient;
using kpl::rpc::RpcExecutorManager;
using kpl::rpc::RpcFunctionTable;
using kpl::rpc::RpcRemoteCallback;
using kpl::rpc::RpcServer;

namespace {

void BindTexts(RpcFunctionTable* table) {
    table->Bind("Greet", [](const std::string& name) { return "Hello, " + name + "!"; });
    // Several values: the result, and two more behind it.
    table->Bind("Divide", [](int a, int b) {
        return b != 0 ? std::tuple(true, a / b, a % b) : std::tuple(false, 0, 0);
    });
    table->Bind("Forget", [] {});  // no result: the caller learns that it has run
}

// A server for the recipes that are about something else.
class Service {
public:
    explicit Service(RpcFunctionTable* table) : m_table(table) {
        RpcExecutorManager::GetInstance()->RegisterExecutor(m_table);
        m_server.Start("Texts", nullptr);
    }
    ~Service() {
        m_server.Stop();
        RpcExecutorManager::GetInstance()->UnregisterExecutor(m_table);
    }

private:
    RpcFunctionTable* m_table;
    RpcServer m_server;
};

}  // namespace

void Serve() {
    RpcFunctionTable table;
    BindTexts(&table);
    RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    RpcServer server;
    if (server.Start("Texts", nullptr)) {
        puts("serving");
    }
    server.Stop();
    RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
}

void CallFunctions() {
    RpcFunctionTable table;
    BindTexts(&table);
    const Service service(&table);

    RpcClient client;
    if (!client.Connect("Texts", nullptr, 10000)) {
        puts("there is no such server");
        return;
    }
    const auto greeting = Call<std::string>(client, "Greet", "Ada");
    puts(greeting ? greeting->c_str() : "no answer");

    const auto result = Call<std::tuple<bool, int, int>>(client, "Divide", 19, 5);
    if (result) {
        const auto [done, quotient, remainder] = *result;
        printf("%s: %d, remainder %d\n", done ? "done" : "refused", quotient, remainder);
    }
    if (Call<void>(client, "Forget")) {
        puts("it has run");
    }
    if (!Call<int>(client, "Greet", "Ada")) {
        puts("its result is no int");
    }
}

void CallBack() {
    RpcFunctionTable table;
    table.Bind("Count", [](int to, const RpcRemoteCallback& tell) {
        for (int i = 1; i <= to; ++i) {
            tell(i, i == to);  // sends and goes on; false once the client has gone
        }
    });
    const Service service(&table);

    RpcClient client;
    kpl::os::CEvent last(false);
    client.Connect("Texts", nullptr, 10000);
    // Runs on the client's callback thread, after Call has returned.
    Call<void>(client, "Count", 3, [&last](int number, bool isLast) {
        printf("%d%s\n", number, isLast ? ", the last" : "");
        if (isLast) {
            last.Set();
        }
    });
    last.Wait(10000);
    client.Disconnect();
}

void TimeOut() {
    kpl::os::CEvent released(false);
    RpcFunctionTable table;
    table.Bind("Slow", [&released] { return released.Wait(60000) ? 1 : 0; });
    table.Bind("Quick", [] { return 2; });
    const Service service(&table);

    RpcClient client;
    client.Connect("Texts", nullptr, 10000);
    if (!Call<int>(client, 100, "Slow")) {  // at most 100 ms
        puts(client.IsAlive() ? "too slow, but the server is there" : "the server has gone");
    }
    released.Set();
    // The late answer is dropped; the connection is as good as before.
    printf("%d\n", Call<int>(client, 10000, "Quick").value_or(0));
}
