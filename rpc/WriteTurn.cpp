#include "rpc/WriteTurn.h"

namespace kpl::rpc {

bool WriteTurn::Take(const os::Deadline& deadline) {
    {
        os::CAutoLock lock(&m_lock);
        if (!m_taken) {
            m_taken = true;
            return true;
        }
        ++m_waiters;
        m_free.Reset();
    }
    while (m_free.Wait(deadline.LeftMs())) {
        if (TryTake()) {
            return true;
        }
    }
    os::CAutoLock lock(&m_lock);
    --m_waiters;
    return false;
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
    os::CAutoLock lock(&m_lock);
    m_taken = false;
    if (m_waiters > 0) {
        m_free.Set();
    }
}

}  // namespace kpl::rpc
