#include "kpl/tools/TimerObject.h"

#include <stdint.h>

#include "kpl/os/Sleep.h"

namespace kpl::tools {

TimerObject::TimerObject()
    : m_stopEvent(nullptr),
      m_thread(nullptr),
      m_intervalMs(0),
      m_callback(nullptr),
      m_arg(nullptr),
      m_stopRequested(false),
      m_running(false),
      m_count(-1),
      m_callAtStart(false),
      m_started(false) {}

TimerObject::~TimerObject() {
    Stop();
}

bool TimerObject::Start(unsigned int intervalMs, void (*callback)(void* arg, int tick), void* arg,
                        int count, bool callAtStart, int stackSize) {
    if (callback == nullptr) {
        return false;
    }
    Stop();
    m_intervalMs = intervalMs;
    m_callback = callback;
    m_arg = arg;
    m_count = count;
    m_callAtStart = callAtStart;
    m_started = false;
    m_stopEvent = new os::CEvent(false);
    m_thread = new os::CThread(&TimerObject::ThreadProc, this);
    // The result is not looked at: without a thread the poll below never ends, which is what
    // callers have always been told.
    (void)m_thread->Run(stackSize);
    while (!m_started) {
        os::osal_Sleep(10);
    }
    return true;
}

void TimerObject::ThreadProc(void* self) {
    auto* timer = static_cast<TimerObject*>(self);
    timer->m_running = true;
    timer->m_started = true;
    timer->Loop();
    timer->m_running = false;
}

void TimerObject::Loop() {
    const unsigned int limit = m_count < 1 ? UINT32_MAX : static_cast<unsigned int>(m_count);
    // As a 32-bit signed number on every platform, so that what is above 2147483647 waits without
    // limit on 64-bit ones too.
    const long interval = static_cast<int32_t>(m_intervalMs);
    unsigned int tick = 0;
    if (m_callAtStart) {
        tick = 1;
        m_callback(m_arg, 1);
    }
    while (!m_stopRequested && tick < limit) {
        if (!m_stopEvent->Wait(interval)) {
            ++tick;
            m_callback(m_arg, static_cast<int>(tick));
        }
    }
}

void TimerObject::Stop() {
    m_stopRequested = true;
    if (m_stopEvent != nullptr) {
        m_stopEvent->Set();
    }
    if (m_thread != nullptr) {
        m_thread->Exit(true);
        delete m_thread;
        m_thread = nullptr;
    }
    delete m_stopEvent;
    m_stopEvent = nullptr;
    m_intervalMs = 0;
    m_callback = nullptr;
    m_arg = nullptr;
    m_running = false;
    m_stopRequested = false;
    m_callAtStart = false;
    m_count = -1;
}

bool TimerObject::IsRunning() const {
    return m_running;
}

}  // namespace kpl::tools
