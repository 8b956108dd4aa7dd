#ifndef KPL_OS_DEADLINE_H_
#define KPL_OS_DEADLINE_H_

#include <stdint.h>

#include <algorithm>

#include "os/WaitReadable.h"

namespace kpl::os {

// The end of a time limit that several waits share.
class Deadline {
public:
    // `timeoutMs` milliseconds from now; negative, or more than a hundred years, for no limit.
    explicit Deadline(int64_t timeoutMs)
        : m_endMs(timeoutMs < 0 || timeoutMs > kHundredYearsMs ? -1 : NowMs() + timeoutMs) {}

    // Milliseconds left, as a wait takes them: 0 when it is over, -1 when there is no limit.
    long LeftMs() const {
        return m_endMs < 0 ? -1 : static_cast<long>(std::max<int64_t>(0, m_endMs - NowMs()));
    }

    bool HasLimit() const { return m_endMs >= 0; }

    bool IsOver() const { return LeftMs() == 0; }

private:
    static constexpr int64_t kHundredYearsMs = int64_t{100} * 365 * 24 * 3600 * 1000;

    int64_t m_endMs;  // on the monotonic clock; -1 for no limit
};

}  // namespace kpl::os

#endif  // KPL_OS_DEADLINE_H_
