#include "rpc/WriteTurn.h"

#include <sched.h>

namespace kpl::rpc {

namespace {

// Mostly a write takes a few microseconds: it is cheaper to let that thread go on than to sleep.
constexpr int kYields = 4;

}  // namespace

bool WriteTurn::Take(const os::Deadline& deadline) {
    for (int i = 0; i < kYields; ++i) {
        if (TakeIfFree()) {
            return true;
        }
        sched_yield();
    }
    {
        os::CAutoLock lock(&m_lock);
        if (!m_taken) {
            m_taken = true;
            return true;
        }
        ++m_waiters;
        m_free.Reset();
    }
    // A wait can end early: when the system's clock is set.
    do {
        if (m_free.Wait(deadline.LeftMs()) && TryTake()) {
            return true;
        }
    } while (!deadline.IsOver());
    os::CAutoLock lock(&m_lock);
    --m_waiters;
    return false;
}

bool WriteTurn::TakeIfFree() {
    os::CAutoLock lock(&m_lock);
    if (m_taken) {
        return false;
    }
    m_taken = true;
    return true;
}

bool WriteTurn::TryTake() {
    os::CAutoLock lock(&m_lock);
    if (m_taken) {
        m_free.Reset();
        return false;
    }
    m_taken = true;
    --m_waiters;
    return true;
}

void WriteTurn::Give() {
    bool isAwaited = false;
    {
        os::CAutoLock lock(&m_lock);
        m_taken = false;
        isAwaited = m_waiters > 0;
    }
    if (isAwaited) {
        m_free.SetKept();  // Not under the lock, which is what the woken take first.
    }
}

}  // namespace kpl::rpc
