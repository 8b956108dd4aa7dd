// Requests per second of an echo protocol on the library's TCP server, beside an epoll loop that
// does nothing but echo, and what others are built on.
//
//   tcp_bench [rounds]            with 1, 32 and 256 connections
//   tcp_bench growth [rounds]     with up to 2000 connections; what memory one takes
//
// Each turn has a new server, in a process of its own.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bench/net/EchoClient.h"
#include "bench/net/ServerProcess.h"
#include "bench/net/TcpServers.h"
#include "bench/support/Contest.h"
#include "bench/support/Machine.h"

namespace {

using kpl::bench::Contest;
using kpl::bench::EchoClient;
using kpl::bench::ServerProcess;
using kpl::bench::TcpServer;

constexpr double kTurnSeconds = 0.25;
constexpr double kWarmUpSeconds = 0.05;
constexpr int kManyConnections = 2000;

struct Contender {
    const char* name;
    TcpServer* serve;
};

const std::vector<Contender> kAll = {{"ours", kpl::bench::ServeWithFrame},
                                     {"raw: epoll", kpl::bench::ServeWithEpoll},
                                     {"asio", kpl::bench::ServeWithAsio},
                                     {"libuv", kpl::bench::ServeWithUv}};

double RequestsPerSecond(TcpServer* serve, int connections) {
    const ServerProcess server(serve);
    EchoClient client(server.Port(), connections);
    client.Run(kWarmUpSeconds);
    return client.Run(kTurnSeconds);
}

void CompareRates(const char* work, const std::vector<Contender>& contenders,
                  const std::vector<int>& steps, int rounds) {
    for (const int connections : steps) {
        Contest contest(work, "requests/s", std::to_string(connections));
        for (const Contender& contender : contenders) {
            contest.Add(contender.name, [serve = contender.serve, connections] {
                return RequestsPerSecond(serve, connections);
            });
        }
        contest.Run(rounds);
    }
}

// Each connection has been served.
double KiBPerConnection(TcpServer* serve) {
    const ServerProcess server(serve);
    EchoClient first(server.Port(), 1);
    first.Run(kWarmUpSeconds);
    const double before = server.ResidentKiB();
    EchoClient client(server.Port(), kManyConnections);
    client.Run(kWarmUpSeconds);
    return (server.ResidentKiB() - before) / kManyConnections;
}

void CompareMemory(int rounds) {
    Contest contest("TCP echo, memory per connection", "KiB", std::to_string(kManyConnections));
    for (const Contender& contender : kAll) {
        contest.Add(contender.name, [serve = contender.serve] { return KiBPerConnection(serve); });
    }
    contest.Run(rounds);
}

// The servers inherit it.
void AllowManyDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < kManyConnections + 100) {
        fprintf(stderr, "tcp_bench: needs %d descriptors\n", kManyConnections + 100);
        exit(1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const bool isGrowth = argc > 1 && strcmp(argv[1], "growth") == 0;
    const char* const rounds = argc > 1 + isGrowth ? argv[1 + isGrowth] : nullptr;
    AllowManyDescriptors();
    if (isGrowth) {
        const int count = std::max(rounds != nullptr ? atoi(rounds) : 3, 1);
        kpl::bench::StayOnOneCore();
        CompareRates("TCP echo, connections", {kAll[0], kAll[1], kAll[2]},
                     {1, 10, 100, 500, 1000, kManyConnections}, count);
        CompareMemory(count);
        return 0;
    }
    const int count = std::max(rounds != nullptr ? atoi(rounds) : 7, 1);
    CompareRates("TCP echo, 64 bytes, free", kAll, {1, 32, 256}, count);
    kpl::bench::StayOnOneCore();
    CompareRates("TCP echo, 64 bytes, pinned", kAll, {1, 32, 256}, count);
    return 0;
}
