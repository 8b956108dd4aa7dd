#ifndef KPL_OS_CEVENT_H_
#define KPL_OS_CEVENT_H_

#include <pthread.h>
#include <stdint.h>

#include "kpl/Export.h"

namespace kpl::os {

// The record behind an event; also part of a thread's record.
struct EventRecord {
    uint32_t tag;              // 0x7ABC0002 while alive, 0 once destroyed
    uint32_t signalled;        // 0 or 1
    pthread_mutex_t mutex;     // guards `signalled`
    pthread_cond_t condition;  // waiters wait on it
};

// A manual-reset event: once set it stays set, and every wait returns at once, until Reset.
// Any thread may set, reset and wait; nobody may be inside a call when it is destroyed.
class KPL_EXPORT CEvent {
public:
    // `signalled` is the initial state.
    explicit CEvent(bool signalled);
    ~CEvent();
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    // Wakes every waiter; does nothing when the event is already set.
    void Set();

    // Set that holds the woken up no longer than it must: by the time they run its lock is free.
    // Only where the caller keeps the event alive until this has returned.
    void SetKept();

    // From now on waits wait. A waiter that Set has woken, but that has not run yet, goes on
    // waiting too: only who waits himself may reset, or a Set can be missed.
    void Reset();

    // Returns true if the event is set. Waits at most `timeoutMs` milliseconds for that; 0 only
    // looks, a negative value waits without limit. The wait does not reset the event.
    bool Wait(long timeoutMs);

private:
    EventRecord m_record;
};

}  // namespace kpl::os

#endif  // KPL_OS_CEVENT_H_
