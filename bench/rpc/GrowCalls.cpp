#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/rpc/CallingThreads.h"
#include "bench/rpc/PeerServer.h"
#include "bench/rpc/Works.h"
#include "bench/support/Contest.h"

namespace kpl::bench {

namespace {

using Adders = std::vector<std::unique_ptr<Adder>>;

std::vector<Adder*> All(const Adders& adders) {
    std::vector<Adder*> all;
    for (const auto& adder : adders) {
        all.push_back(adder.get());
    }
    return all;
}

Adders Clients(const PeerServer& server, int count) {
    Adders clients;
    for (int i = 0; i < count; ++i) {
        clients.push_back(server.Connect());
        (void)clients.back()->Add(1, 1);
    }
    return clients;
}

Adders Pairs(const PeerServer& server, int count) {
    Adders pairs;
    for (int i = 0; i < count; ++i) {
        pairs.push_back(server.ConnectPair(i));
    }
    return pairs;
}

double ResidentKib(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    double all = 0;
    double resident = 0;
    file >> all >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

// How much more that process has with `count` more clients, for each. The server or this one.
double KibPerClient(const PeerServer& server, pid_t process, int count) {
    const Adders first = Clients(server, 1);
    const double before = ResidentKib(process);
    const Adders clients = Clients(server, count);
    return (ResidentKib(process) - before) / count;
}

}  // namespace

void GrowClients(int rounds) {
    for (const int count : {1, 2, 4, 8, 16, 32, 64}) {
        const PeerServer ours(kOurs);
        const Adders clients = Clients(ours, count);
        const PeerServer raw = PeerServer::OfFifoPairs(count);
        const Adders pairs = Pairs(raw, count);
        Contest contest("calls per second, clients", "calls/s", std::to_string(count));
        contest.Add("ours", [&] { return CallsPerSecond(All(clients)); });
        contest.Add("raw: FIFO pairs", [&] { return CallsPerSecond(All(pairs)); });
        contest.Run(rounds);
    }
}

void GrowThreads(int rounds) {
    const PeerServer ours(kOurs);
    const std::unique_ptr<Adder> client = ours.Connect();
    for (const int count : {1, 2, 4, 8, 16}) {
        const PeerServer raw = PeerServer::OfFifoPairs(count);
        const Adders pairs = Pairs(raw, count);
        const std::vector<Adder*> threads(static_cast<size_t>(count), client.get());
        Contest contest("calls per second, threads", "calls/s", std::to_string(count));
        contest.Add("ours", [&] { return CallsPerSecond(threads); });
        contest.Add("raw: FIFO pairs", [&] { return CallsPerSecond(All(pairs)); });
        contest.Run(rounds);
    }
}

// A process for each turn: what one has had, it keeps.
void GrowMemory(int rounds) {
    for (const int count : {1, 4, 16, 64}) {
        Contest server("memory per client, server", "KiB", std::to_string(count));
        server.Add("ours", [count] {
            const PeerServer ours(kOurs);
            return ValueApart([&] { return KibPerClient(ours, ours.Id(), count); });
        });
        server.Run(rounds);
        Contest client("memory per client, client", "KiB", std::to_string(count));
        client.Add("ours", [count] {
            const PeerServer ours(kOurs);
            return ValueApart([&] { return KibPerClient(ours, getpid(), count); });
        });
        client.Run(rounds);
    }
}

}  // namespace kpl::bench
