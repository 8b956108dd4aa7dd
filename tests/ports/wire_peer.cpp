// One end of a conversation between two builds of the library. Everything that can travel is sent
// and compared; what differs is printed.
//
//   wire_peer serve ROOT          serves until SIGTERM
//   wire_peer call ROOT ROUNDS    five calls of different kinds a round; 0 when all were right
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <string>

#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/Process.h"

namespace {

using namespace kpl::rpc;

constexpr int kWatches = 3;
constexpr int kRecords = 20;

std::string Describe(bool a, int b, long c, char d, unsigned char e, long long f,
                     unsigned long long g, short h, unsigned short i, unsigned int j,
                     unsigned long k, double l, float m, const std::string& n) {
    char text[512];
    snprintf(text, sizeof(text), "%d %d %ld %d %d %lld %llu %d %d %u %lu %.17g %.9g %s", a, b, c, d,
             e, f, g, h, i, j, k, l, static_cast<double>(m), n.c_str());
    return text;
}

// What a reader can see of a list.
std::string Describe(const EpgDataList& list) {
    std::string text = std::to_string(list.count);
    for (int i = 0; i < list.count; ++i) {
        const EpgData record = list.items[i];
        for (const uint32_t word : record.head) {
            text += ' ' + std::to_string(word);
        }
        for (const EpgText& entry : record.text) {
            const char* const characters = entry;
            text += characters == nullptr ? " null" : " '" + std::string(characters) + "'";
        }
        for (const uint32_t word : record.tail) {
            text += ' ' + std::to_string(word);
        }
    }
    return text;
}

// A list whose numbers and texts depend on `seed`. One at a time.
EpgDataList MakeList(int seed) {
    static EpgData records[kRecords];
    static std::string texts[kRecords];
    for (int i = 0; i < kRecords; ++i) {
        const auto number = static_cast<uint32_t>(seed + i);
        texts[i] = "programme " + std::to_string(number);
        const char* const text = texts[i].c_str();
        records[i] = {{number, ~number},
                      {text, i % 2 == 0 ? nullptr : "", nullptr, text + 3},
                      {1, 2, 3, 4, 5, number * 2654435761U}};
    }
    return {kRecords, records};
}

void BindAll(RpcFunctionTable* table) {
    table->Bind("Scalars", [](bool a, int b, long c, char d, unsigned char e, long long f,
                              unsigned long long g, short h, unsigned short i, unsigned int j,
                              unsigned long k, double l, float m, const std::string& n) {
        return Describe(a, b, c, d, e, f, g, h, i, j, k, l, m, n);
    });
    table->Bind("GiveList", [](int seed) { return MakeList(seed); });
    table->Bind("TakeList", [](const EpgDataList& list) { return Describe(list); });
    table->Bind("Reverse", [](const RpcArray& array) {
        static char bytes[4096];
        const int size = array.GetTotalSizeInBytes();
        for (int i = 0; i < size; ++i) {
            bytes[i] = static_cast<char*>(array.GetData())[size - 1 - i];
        }
        return RpcArray(bytes, array.GetElementCounts(), size);
    });
    table->Bind("Watch", [](const RpcRemoteCallback& callback, int seed) {
        for (int i = 0; i < kWatches; ++i) {
            callback(i, 1LL << (30 + i), "watch " + std::to_string(seed), -0.5);
        }
    });
}

int Serve() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    RpcFunctionTable table;
    BindAll(&table);
    RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    RpcServer server;
    const bool started = server.Start("Wire", nullptr);
    if (started) {
        puts("ready");
        fflush(stdout);
        int signal = 0;
        sigwait(&stop, &signal);
        server.Stop();
    }
    RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    return started ? 0 : 1;
}

bool Check(const char* what, const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        fprintf(stderr, "%s: '%s' instead of '%s'\n", what, actual.c_str(), expected.c_str());
    }
    return expected == actual;
}

bool CallScalars(RpcClient& client, int round) {
    const bool a = round % 2 == 0;
    const long c = -round - 1000000000L;
    const auto e = static_cast<unsigned char>(round);
    const long long f = -1LL - (1LL << 62) + round;
    const unsigned long long g = ~0ULL - static_cast<unsigned>(round);
    const auto h = static_cast<short>(-round);
    const auto i = static_cast<unsigned short>(round);
    const unsigned int j = ~0U - static_cast<unsigned>(round);
    const unsigned long k = 4000000000UL + static_cast<unsigned>(round % 1000);
    const double l = 0.1 * round;
    const float m = -0.5F;
    const std::string n(static_cast<size_t>(round % 300), 'n');
    const auto answer = Call<std::string>(client, "Scalars", a, round, c, 'd', e, f, g, h, i, j, k,
                                          l, m, n.c_str());
    return Check("Scalars", Describe(a, round, c, 'd', e, f, g, h, i, j, k, l, m, n),
                 answer.value_or("no answer"));
}

bool CallLists(RpcClient& client, int round) {
    const auto given = Call<EpgDataList>(client, "GiveList", round);
    const std::string description = given ? Describe(*given) : "no answer";
    const auto taken = Call<std::string>(client, "TakeList", MakeList(round));
    const std::string expected = Describe(MakeList(round));
    return Check("GiveList", expected, description) &&
           Check("TakeList", expected, taken.value_or("no answer"));
}

bool CallArray(RpcClient& client, int round) {
    short elements[100];
    for (int i = 0; i < 100; ++i) {
        elements[i] = static_cast<short>(round + i);
    }
    std::string expected(reinterpret_cast<const char*>(elements), sizeof(elements));
    expected.assign(expected.rbegin(), expected.rend());
    const auto answer =
        Call<RpcArray>(client, "Reverse", RpcArray(elements, 100, sizeof(elements)));
    if (!answer || answer->GetElementCounts() != 100) {
        return Check("Reverse", "100 elements", "none or another number");
    }
    return Check("Reverse", expected,
                 std::string(static_cast<const char*>(answer->GetData()),
                             static_cast<size_t>(answer->GetTotalSizeInBytes())));
}

bool CallWatch(RpcClient& client, int round) {
    static std::atomic<int> heard;
    static std::atomic<int> wrong;
    heard = 0;
    const auto watch = [round](int i, long long big, const std::string& text, double half) {
        const bool right = big == 1LL << (30 + i) && text == "watch " + std::to_string(round) &&
                           half == -0.5 && i == heard;
        wrong += right ? 0 : 1;
        ++heard;
    };
    const bool called = Call<void>(client, "Watch", watch, round);
    const bool all = called && kpl::test::WaitUntil([] { return heard == kWatches; });
    return Check("Watch", "3 right callbacks",
                 all && wrong == 0 ? "3 right callbacks" : "missing or wrong ones");
}

int CallAll(int rounds) {
    RpcClient client;
    if (!client.Connect("Wire", nullptr, 10000)) {
        fputs("no connection\n", stderr);
        return 2;
    }
    puts("connected");
    fflush(stdout);
    for (int round = 0; round < rounds; ++round) {
        if (!CallScalars(client, round) || !CallLists(client, round) || !CallArray(client, round) ||
            !CallWatch(client, round)) {
            fprintf(stderr, "in round %d\n", round);
            return 1;
        }
    }
    printf("%d rounds\n", rounds);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && strcmp(argv[1], "serve") == 0) {
        kpl::ipc::SetPipeRootPath(argv[2]);
        return Serve();
    }
    if (argc == 4 && strcmp(argv[1], "call") == 0) {
        kpl::ipc::SetPipeRootPath(argv[2]);
        return CallAll(atoi(argv[3]));
    }
    fputs("usage: wire_peer serve ROOT | wire_peer call ROOT ROUNDS\n", stderr);
    return 2;
}
