#include "GuideClock.h"

#include <algorithm>

namespace guide {

GuideClock::GuideClock(GuideTime start, int speed)
    : m_start(start), m_speed(speed), m_begin(std::chrono::steady_clock::now()) {}

GuideTime GuideClock::Now() const {
    return TimeAfter(m_start, m_speed, ElapsedMs());
}

long GuideClock::MsUntil(GuideTime time) const {
    const long long left = ElapsedMsAt(m_start, m_speed, time) - ElapsedMs();
    return static_cast<long>(std::max(left, 0LL));
}

GuideTime GuideClock::TimeAfter(GuideTime start, int speed, long long elapsedMs) {
    return start + elapsedMs * speed / 1000;
}

long long GuideClock::ElapsedMsAt(GuideTime start, int speed, GuideTime time) {
    const long long guideMs = std::max(time - start, 0LL) * 1000;
    return (guideMs + speed - 1) / speed;
}

long long GuideClock::ElapsedMs() const {
    const auto elapsed = std::chrono::steady_clock::now() - m_begin;
    return std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
}

}  // namespace guide
