#ifndef KPL_EXAMPLES_TV_BOX_BOXSTATE_H_
#define KPL_EXAMPLES_TV_BOX_BOXSTATE_H_

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "BoxView.h"
#include "kpl/os/CCritSec.h"

namespace tv_box {

// Who waits for the state to change.
class StateWaiter {
public:
    virtual ~StateWaiter() = default;

    // The state, as JSON. Called once, with the state locked: it neither waits nor calls the state.
    virtual void Answer(const std::string& state) = 0;
};

// What the box knows: written by the threads that find it out, read by those that serve the page.
// Any thread.
//
// It has a version, which changes with everything that the page shows. Who has seen one version can
// wait for another. Nobody's thread waits: a waiter is remembered, and answered by the thread that
// brings the change, or by the timer that calls AnswerLate.
class BoxState {
public:
    using Clock = std::chrono::steady_clock;

    // `source` is where the guide came from.
    explicit BoxState(std::string source);
    BoxState(const BoxState&) = delete;
    BoxState& operator=(const BoxState&) = delete;

    // The guide server answers, or has gone: what it has said before is still shown.
    void SetGuide(const GuideView& guide);
    void SetGuideOffline();
    void SetSchedules(Schedules schedules);
    void SetDevices(const DeviceView& devices);

    std::string Json() const;

    // Nothing if there is no such channel.
    std::optional<std::string> ChannelJson(int channel) const;

    // The state, if its version is not `version`. Otherwise nothing: `waiter` is then called when
    // it changes, or by the first AnswerLate from `deadline` on, unless Forget comes first.
    std::optional<std::string> WaitForOther(const std::string& version, Clock::time_point deadline,
                                            StateWaiter* waiter);

    // Once it has returned, `waiter` is not called any more.
    void Forget(StateWaiter* waiter);

    // Answers those whose time is over, with the state as it is.
    void AnswerLate(Clock::time_point now);

private:
    void Update() KPL_REQUIRES(m_lock);
    std::string Version() const KPL_REQUIRES(m_lock);

    const std::string m_source;
    const std::string m_run;  // no two runs of the program give the same version

    mutable kpl::os::CCritSec m_lock;
    GuideView m_guide KPL_GUARDED_BY(m_lock);
    DeviceView m_devices KPL_GUARDED_BY(m_lock);
    Schedules m_schedules KPL_GUARDED_BY(m_lock);
    std::string m_shown KPL_GUARDED_BY(m_lock);  // what the version stands for
    int m_changes KPL_GUARDED_BY(m_lock) = 0;
    std::string m_json KPL_GUARDED_BY(m_lock);
    std::map<StateWaiter*, Clock::time_point> m_waiters KPL_GUARDED_BY(m_lock);
};

}  // namespace tv_box

#endif  // KPL_EXAMPLES_TV_BOX_BOXSTATE_H_
