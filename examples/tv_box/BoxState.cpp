#include "BoxState.h"

#include <random>
#include <utility>

namespace tv_box {

using kpl::os::CAutoLock;

BoxState::BoxState(std::string source)
    : m_source(std::move(source)), m_run(std::to_string(std::random_device()())) {
    CAutoLock lock(&m_lock);
    Update();
}

void BoxState::SetGuide(const GuideView& guide) {
    CAutoLock lock(&m_lock);
    m_guide = guide;
    Update();
}

void BoxState::SetGuideOffline() {
    CAutoLock lock(&m_lock);
    m_guide.isOnline = false;
    Update();
}

void BoxState::SetSchedules(Schedules schedules) {
    CAutoLock lock(&m_lock);
    m_schedules = std::move(schedules);
}

void BoxState::SetDevices(const DeviceView& devices) {
    CAutoLock lock(&m_lock);
    m_devices = devices;
    Update();
}

std::string BoxState::Json() const {
    CAutoLock lock(&m_lock);
    return m_json;
}

std::optional<std::string> BoxState::ChannelJson(int channel) const {
    CAutoLock lock(&m_lock);
    const auto found = m_schedules.find(channel);
    if (found == m_schedules.end()) {
        return std::nullopt;
    }
    return ScheduleJson(found->second, m_guide.now);
}

// The look at the version and the remembering are one step: no change can come in between.
std::optional<std::string> BoxState::WaitForOther(const std::string& version,
                                                  Clock::time_point deadline, StateWaiter* waiter) {
    CAutoLock lock(&m_lock);
    if (version != Version()) {
        return m_json;
    }
    m_waiters[waiter] = deadline;
    return std::nullopt;
}

void BoxState::Forget(StateWaiter* waiter) {
    CAutoLock lock(&m_lock);
    m_waiters.erase(waiter);
}

void BoxState::AnswerLate(Clock::time_point now) {
    CAutoLock lock(&m_lock);
    for (auto waiter = m_waiters.begin(); waiter != m_waiters.end();) {
        if (waiter->second > now) {
            ++waiter;
            continue;
        }
        waiter->first->Answer(m_json);
        waiter = m_waiters.erase(waiter);
    }
}

// The page's clock shows minutes: a second that passes is no change.
void BoxState::Update() {
    GuideView shownGuide = m_guide;
    shownGuide.now -= shownGuide.now % guide::kMinute;
    std::string shown = StateJson("", m_source, shownGuide, m_devices);
    const bool isOther = shown != m_shown;
    m_changes += isOther ? 1 : 0;
    m_shown = std::move(shown);
    m_json = StateJson(Version(), m_source, m_guide, m_devices);
    if (isOther) {
        for (const auto& [waiter, deadline] : m_waiters) {
            waiter->Answer(m_json);
        }
        m_waiters.clear();
    }
}

std::string BoxState::Version() const {
    return m_run + "-" + std::to_string(m_changes);
}

}  // namespace tv_box
