#include "kpl/os/CEvent.h"

#include "os/EventRecord.h"

namespace kpl::os {

void InitEvent(EventRecord* record, bool signalled) {
    record->tag = kEventTag;
    record->signalled = signalled ? 1 : 0;
    pthread_mutex_init(&record->mutex, nullptr);
    pthread_cond_init(&record->condition, nullptr);
}

void DestroyEvent(EventRecord* record) {
    pthread_cond_destroy(&record->condition);
    pthread_mutex_destroy(&record->mutex);
    record->tag = 0;
}

void SetEvent(EventRecord* record) {
    pthread_mutex_lock(&record->mutex);
    if (record->signalled == 0) {
        record->signalled = 1;
        pthread_cond_broadcast(&record->condition);
    }
    pthread_mutex_unlock(&record->mutex);
}

void SetKeptEvent(EventRecord* record) {
    pthread_mutex_lock(&record->mutex);
    const bool changes = record->signalled == 0;
    record->signalled = 1;
    pthread_mutex_unlock(&record->mutex);
    if (changes) {
        pthread_cond_broadcast(&record->condition);
    }
}

void ResetEvent(EventRecord* record) {
    pthread_mutex_lock(&record->mutex);
    record->signalled = 0;
    pthread_mutex_unlock(&record->mutex);
}

namespace {

// One wait on the condition, without a limit or until `deadline`. Returns 0 when it was woken.
int WaitOnce(EventRecord* record, const timespec* deadline) {
    if (deadline == nullptr) {
        return pthread_cond_wait(&record->condition, &record->mutex);
    }
    return pthread_cond_timedwait(&record->condition, &record->mutex, deadline);
}

timespec DeadlineFromNow(long timeoutMs) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return NormalDeadline(WaitDeadline(now, timeoutMs));
}

}  // namespace

uint32_t WaitForEvent(EventRecord* record, long timeoutMs) {
    pthread_mutex_lock(&record->mutex);
    if (record->signalled == 0 && timeoutMs != 0) {
        timespec deadline{};
        if (timeoutMs > 0) {
            deadline = DeadlineFromNow(timeoutMs);
        }
        while (record->signalled == 0 &&
               WaitOnce(record, timeoutMs > 0 ? &deadline : nullptr) == 0) {
        }
    }
    const uint32_t status = record->signalled != 0 ? kStatusSuccess : kStatusNotSignalled;
    pthread_mutex_unlock(&record->mutex);
    return status;
}

CEvent::CEvent(bool signalled) : m_record() {
    InitEvent(&m_record, signalled);
}

CEvent::~CEvent() {
    DestroyEvent(&m_record);
}

void CEvent::Set() {
    SetEvent(&m_record);
}

void CEvent::SetKept() {
    SetKeptEvent(&m_record);
}

void CEvent::Reset() {
    ResetEvent(&m_record);
}

bool CEvent::Wait(long timeoutMs) {
    return WaitForEvent(&m_record, timeoutMs) == kStatusSuccess;
}

}  // namespace kpl::os
