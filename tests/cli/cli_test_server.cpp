// A server for the tests of kpl-rpc: cli_test_server DIRECTORY NAME. Ends on SIGTERM and SIGINT.
#include <math.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <limits>
#include <memory>
#include <string>
#include <tuple>

#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"

// The library's log.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using kpl::rpc::RpcArray;
using kpl::rpc::RpcRemoteCallback;

using Scalars = std::tuple<bool, short, unsigned short, int, unsigned int, long, unsigned long,
                           long long, unsigned long long, char, unsigned char, double, float>;

Scalars Largest() {
    return {true,
            std::numeric_limits<short>::max(),
            std::numeric_limits<unsigned short>::max(),
            std::numeric_limits<int>::max(),
            std::numeric_limits<unsigned int>::max(),
            2147483647L,
            4294967295UL,
            std::numeric_limits<long long>::max(),
            std::numeric_limits<unsigned long long>::max(),
            'A',
            '\xFF',
            0.1,
            0.1F};
}

// The texts lie elsewhere in every call, so their pointers are never the same.
class Guide {
public:
    EpgDataList List() {
        m_room.push_back(std::make_unique<char[]>(64));
        char* const title = m_room.back().get();
        strcpy(title, "News");
        strcpy(title + 8, "");
        m_record = {};
        m_record.head[0] = 1;
        m_record.head[1] = 2;
        m_record.text[0] = title;
        m_record.text[2] = title + 8;
        m_record.tail[5] = 8;
        return {1, &m_record};
    }

private:
    std::vector<std::unique_ptr<char[]>> m_room;
    EpgData m_record;
};

void BindValues(kpl::rpc::RpcFunctionTable* table) {
    table->Bind("Largest", Largest);
    table->Bind("Scalars",
                [](bool a, short b, unsigned short c, int d, unsigned int e, long f,
                   unsigned long g, long long h, unsigned long long i, char j, unsigned char k,
                   double l, float m) { return Scalars(a, b, c, d, e, f, g, h, i, j, k, l, m); });
    table->Bind("Odd", [] {
        const double infinity = std::numeric_limits<double>::infinity();
        return std::tuple<double, double, float, double>(NAN, infinity, -HUGE_VALF, -0.0);
    });
    table->Bind("Text", [](const std::string& text) { return text; });
    table->Bind("Array", [](const RpcArray& array) {
        return std::tuple<int, RpcArray>(array.GetElementCounts(), array);
    });
    table->Bind("List", [guide = std::make_shared<Guide>()] { return guide->List(); });
}

void BindDeeds(kpl::rpc::RpcFunctionTable* table) {
    table->Bind("Count", [count = 0]() mutable { return ++count; });
    table->Bind("Add", [](int a, int b) { return a + b; });
    table->Bind("Notify", [](int times, const RpcRemoteCallback& callback) {
        for (int i = 1; i <= times; ++i) {
            callback(i, std::string("event"));
        }
        return times;
    });
    table->Bind("Hang", [] {
        for (;;) {
            pause();
        }
        return 0;
    });
    table->Bind("Die", [] {
        _exit(9);
        return 0;
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    kpl::ipc::SetPipeRootPath(argv[1]);
    kpl::rpc::RpcFunctionTable table;
    BindValues(&table);
    BindDeeds(&table);
    kpl::rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    kpl::rpc::RpcServer server;
    if (!server.Start(argv[2], nullptr)) {
        return 1;
    }
    puts("ready");
    fflush(stdout);
    int signal = 0;
    sigwait(&stop, &signal);
    server.Stop();
    kpl::rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    return 0;
}
