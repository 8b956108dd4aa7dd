#include <time.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "bench/rpc/CallingThreads.h"
#include "bench/rpc/PeerServer.h"
#include "bench/rpc/Works.h"
#include "bench/support/Contest.h"
#include "bench/support/Machine.h"

namespace kpl::bench {

namespace {

constexpr size_t kTripsPerTurn = 1000;

double NowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double TripNs(Adder* adder, int number) {
    const double begin = NowNs();
    const int sum = adder->Add(number, 1);
    const double took = NowNs() - begin;
    if (sum != number + 1) {
        Fail("call_bench", "an addition");
    }
    return took;
}

double MedianTripNs(Adder* adder) {
    std::vector<double> trips;
    for (size_t i = 0; i < kTripsPerTurn; ++i) {
        trips.push_back(TripNs(adder, static_cast<int>(i)));
    }
    std::nth_element(trips.begin(), trips.begin() + kTripsPerTurn / 2, trips.end());
    return trips[kTripsPerTurn / 2];
}

void CompareCalls(const char* work, int rounds) {
    Contest contest(work, "ns");
    std::vector<std::unique_ptr<PeerServer>> servers;
    for (const Peer* peer : Peers()) {
        servers.push_back(std::make_unique<PeerServer>(*peer));
        const std::shared_ptr<Adder> adder = servers.back()->Connect();
        contest.Add(peer->name, [adder] { return MedianTripNs(adder.get()); });
    }
    contest.Run(rounds);
}

}  // namespace

void ComparePinnedCalls(int rounds) {
    StayOnOneCore();
    CompareCalls("call, pinned", rounds);
}

void CompareFreeCalls(int rounds) {
    CompareCalls("call, free", rounds);
}

void CompareTwoThreads(int rounds) {
    StayOnOneCore();
    const PeerServer ours(kOurs);
    const std::unique_ptr<Adder> client = ours.Connect();
    const PeerServer raw = PeerServer::OfFifoPairs(2);
    const std::unique_ptr<Adder> first = raw.ConnectPair(0);
    const std::unique_ptr<Adder> second = raw.ConnectPair(1);
    const PeerServer grpc(kGrpc);
    const std::unique_ptr<Adder> stub = grpc.Connect();
    Contest contest("two calling threads, pinned", "calls/s");
    contest.Add("ours", [&] { return CallsPerSecond({client.get(), client.get()}); });
    contest.Add("raw: two FIFO pairs", [&] { return CallsPerSecond({first.get(), second.get()}); });
    contest.Add(kGrpc.name, [&] { return CallsPerSecond({stub.get(), stub.get()}); });
    contest.Run(rounds);
}

}  // namespace kpl::bench
