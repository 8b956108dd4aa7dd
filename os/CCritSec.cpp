#include "kpl/os/CCritSec.h"

#include <stdlib.h>

namespace kpl::os {

CCritSec::CCritSec() : m_mutex(static_cast<pthread_mutex_t*>(malloc(sizeof(pthread_mutex_t)))) {
    if (m_mutex == nullptr) {
        abort();  // A lock that does not lock would be worse than the end of the process.
    }
    pthread_mutex_init(m_mutex, nullptr);
}

CCritSec::~CCritSec() {
    pthread_mutex_destroy(m_mutex);
    free(m_mutex);
}

void CCritSec::Lock() KPL_NO_THREAD_SAFETY_ANALYSIS {
    pthread_mutex_lock(m_mutex);
}

void CCritSec::Unlock() KPL_NO_THREAD_SAFETY_ANALYSIS {
    pthread_mutex_unlock(m_mutex);
}

// The analysis cannot follow a lock that may be null.
CAutoLock::CAutoLock(CCritSec* lock) KPL_NO_THREAD_SAFETY_ANALYSIS : m_lock(lock) {
    if (m_lock != nullptr) {
        m_lock->Lock();
    }
}

CAutoLock::~CAutoLock() KPL_NO_THREAD_SAFETY_ANALYSIS {
    if (m_lock != nullptr) {
        m_lock->Unlock();
    }
}

}  // namespace kpl::os
