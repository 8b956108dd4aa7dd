// Operations on event records: the layer below CEvent and CThread, which speaks in status words.
#ifndef KPL_OS_EVENTRECORD_H_
#define KPL_OS_EVENTRECORD_H_

#include <stdint.h>
#include <sys/time.h>
#include <time.h>

#include "kpl/os/CEvent.h"

namespace kpl::os {

constexpr uint32_t kThreadTag = 0x7ABC0000;
constexpr uint32_t kEventTag = 0x7ABC0002;

constexpr uint32_t kStatusSuccess = 0x10000000;       // for a wait: the event is signalled
constexpr uint32_t kStatusNotSignalled = 0x20010001;  // the wait ended without it

void InitEvent(EventRecord* record, bool signalled);
void DestroyEvent(EventRecord* record);
void SetEvent(EventRecord* record);
void SetKeptEvent(EventRecord* record);  // as CEvent::SetKept
void ResetEvent(EventRecord* record);
uint32_t WaitForEvent(EventRecord* record, long timeoutMs);

// The end of a wait of `timeoutMs` (above 0) that starts at `now`. The nanoseconds are not carried
// into the seconds, so they reach up to 1,998,999,000: the field keeps the plain sum, and
// NormalDeadline() makes of it what the platform accepts.
inline timespec WaitDeadline(const timeval& now, long timeoutMs) {
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + timeoutMs / 1000;
    deadline.tv_nsec = 1000L * now.tv_usec + (timeoutMs % 1000) * 1000000;
    return deadline;
}

// The same instant with less than one second of nanoseconds. The platform refuses anything else and
// returns at once, which would end about one 100 ms wait in ten too early.
inline timespec NormalDeadline(timespec deadline) {
    deadline.tv_sec += deadline.tv_nsec / 1000000000;
    deadline.tv_nsec %= 1000000000;
    return deadline;
}

}  // namespace kpl::os

#endif  // KPL_OS_EVENTRECORD_H_
