#include "bench/rpc/CallingThreads.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace kpl::bench {

namespace {

constexpr std::chrono::milliseconds kTurn{200};

// Until `stop`; returns how many.
long Call(Adder* adder, const std::atomic<bool>& stop) {
    long done = 0;
    for (; !stop.load(std::memory_order_relaxed); ++done) {
        const int number = static_cast<int>(done);
        if (adder->Add(number, 2) != number + 2) {
            Fail("call_bench", "an addition");
        }
    }
    return done;
}

}  // namespace

double CallsPerSecond(const std::vector<Adder*>& adders) {
    std::atomic<bool> stop{false};
    std::atomic<long> calls{0};
    std::vector<std::thread> threads;
    const auto start = std::chrono::steady_clock::now();
    for (Adder* adder : adders) {
        threads.emplace_back([adder, &stop, &calls] { calls += Call(adder, stop); });
    }
    std::this_thread::sleep_for(kTurn);
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return static_cast<double>(calls) / took.count();
}

}  // namespace kpl::bench
