#ifndef KPL_TESTS_SUPPORT_STOPWATCH_H_
#define KPL_TESTS_SUPPORT_STOPWATCH_H_

#include <algorithm>
#include <chrono>

namespace kpl::test {

// The time since it was made, in milliseconds and rounded up: a wait whose deadline was cut to
// whole microseconds still shows its full length.
class Stopwatch {
public:
    long ElapsedMs() const {
        const auto elapsed = std::chrono::steady_clock::now() - m_start;
        return static_cast<long>(std::chrono::ceil<std::chrono::milliseconds>(elapsed).count());
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

// No wait in a test takes this long unless something hangs.
constexpr long kCeilingMs = 10000;

// The milliseconds of the shortest of at most ten runs of `function`, the last of which is the
// first below `enoughMs`. A busy machine stretches some runs; what waits by itself is never short.
template <typename Function>
long ShortestMs(long enoughMs, Function function) {
    long shortest = kCeilingMs;
    for (int run = 0; run < 10 && shortest >= enoughMs; ++run) {
        const Stopwatch watch;
        function();
        shortest = std::min(shortest, watch.ElapsedMs());
    }
    return shortest;
}

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_STOPWATCH_H_
