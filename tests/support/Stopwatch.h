#ifndef KPL_TESTS_SUPPORT_STOPWATCH_H_
#define KPL_TESTS_SUPPORT_STOPWATCH_H_

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

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_STOPWATCH_H_
