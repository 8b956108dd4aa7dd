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
        : m_endNs(timeoutMs < 0 || timeoutMs > kHundredYearsMs ? -1
                                                               : NowNs() + timeoutMs * kNsPerMs) {}

    // Milliseconds left, as a wait takes them: 0 when it is over, -1 when there is no limit.
    // Rounded up, so that no wait ends before its time.
    long LeftMs() const {
        if (m_endNs < 0) {
            return -1;
        }
        const int64_t left = std::max<int64_t>(0, m_endNs - NowNs());
        return static_cast<long>((left + kNsPerMs - 1) / kNsPerMs);
    }

    bool HasLimit() const { return m_endNs >= 0; }

    bool IsOver() const { return LeftMs() == 0; }

private:
    static constexpr int64_t kHundredYearsMs = int64_t{100} * 365 * 24 * 3600 * 1000;
    static constexpr int64_t kNsPerMs = 1000000;

    int64_t m_endNs;  // on the monotonic clock; -1 for no limit
};

}  // namespace kpl::os

#endif  // KPL_OS_DEADLINE_H_
