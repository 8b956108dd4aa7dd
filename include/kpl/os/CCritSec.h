#ifndef KPL_OS_CCRITSEC_H_
#define KPL_OS_CCRITSEC_H_

#include <pthread.h>

#include "kpl/Export.h"
#include "kpl/os/ThreadAnnotations.h"

namespace kpl::os {

// A plain mutex. Not recursive: a thread that locks it twice waits for itself for ever.
// Any thread.
class KPL_EXPORT KPL_CAPABILITY("mutex") CCritSec {
public:
    CCritSec();
    ~CCritSec();
    CCritSec(const CCritSec&) = delete;
    CCritSec& operator=(const CCritSec&) = delete;

    // Waits for the lock without limit; gives it back, on the thread that has it.
    void Lock() KPL_ACQUIRE();
    void Unlock() KPL_RELEASE();

private:
    pthread_mutex_t* m_mutex;
};

// Holds a CCritSec for its own lifetime. A null lock is accepted and guards nothing, which serves
// callers whose lock is optional.
class KPL_EXPORT KPL_SCOPED_CAPABILITY CAutoLock {
public:
    // Locks; the destructor unlocks. `lock` is not owned and lives longer.
    explicit CAutoLock(CCritSec* lock) KPL_ACQUIRE(lock);
    ~CAutoLock() KPL_RELEASE();
    CAutoLock(const CAutoLock&) = delete;
    CAutoLock& operator=(const CAutoLock&) = delete;

private:
    CCritSec* m_lock;
};

}  // namespace kpl::os

#endif  // KPL_OS_CCRITSEC_H_
