#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDECLOCK_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDECLOCK_H_

#include <chrono>

#include "GuideTime.h"

namespace guide {

// Shows the guide's time, which runs `speed` times as fast as ours. Any thread.
class GuideClock {
public:
    static constexpr int kMaxSpeed = 100000;

    // Shows `start` now; `speed` is from 1 to kMaxSpeed.
    GuideClock(GuideTime start, int speed);

    GuideTime Now() const;

    // How many of our milliseconds it takes until the clock shows `time`, 0 if it has been. Never
    // too few: after them, it does show it.
    long MsUntil(GuideTime time) const;

    // The arithmetic of both. What the clock shows after `elapsedMs`, and when it first shows
    // `time`.
    static GuideTime TimeAfter(GuideTime start, int speed, long long elapsedMs);
    static long long ElapsedMsAt(GuideTime start, int speed, GuideTime time);

private:
    long long ElapsedMs() const;

    const GuideTime m_start;
    const int m_speed;
    const std::chrono::steady_clock::time_point m_begin;
};

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDECLOCK_H_
