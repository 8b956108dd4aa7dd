#ifndef KPL_CLI_TIMELIMIT_H_
#define KPL_CLI_TIMELIMIT_H_

#include <algorithm>
#include <chrono>

namespace kpl::cli {

// A number of milliseconds from its making on.
class TimeLimit {
public:
    explicit TimeLimit(long ms)
        : m_end(std::chrono::steady_clock::now() + std::chrono::milliseconds(ms)) {}

    // What is left, rounded up; 0 when it is over.
    long LeftMs() const {
        const auto left = m_end - std::chrono::steady_clock::now();
        return std::max(
            0L, static_cast<long>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
    }

    // Whether what has failed within this limit did so for another reason. Waits count whole
    // milliseconds, each on its own, so the end of the limit is not sharp.
    bool IsFarOff() const { return LeftMs() > 20; }

private:
    std::chrono::steady_clock::time_point m_end;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_TIMELIMIT_H_
