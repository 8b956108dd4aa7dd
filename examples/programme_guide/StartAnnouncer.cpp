#include "StartAnnouncer.h"

#include <stdio.h>

#include "GuideProtocol.h"

namespace guide {

namespace {

// In one line, which is not torn by another thread's and does not wait in a buffer.
void Report(const char* what, int number) {
    printf("guide_server: follower %d %s\n", number, what);
    fflush(stdout);
}

}  // namespace

StartAnnouncer::StartAnnouncer(const Guide& guide, const GuideClock& clock)
    : m_guide(guide), m_clock(clock) {}

StartAnnouncer::~StartAnnouncer() {
    Stop();
}

bool StartAnnouncer::Start() {
    return m_thread.Run(0);
}

void StartAnnouncer::Stop() {
    m_stop.Set();
    m_thread.Exit(true);
    kpl::os::CAutoLock lock(&m_lock);
    m_followers.clear();
}

int StartAnnouncer::Follow(const kpl::rpc::RpcRemoteCallback& callback) {
    kpl::os::CAutoLock lock(&m_lock);
    ++m_lastNumber;
    m_followers.emplace(m_lastNumber, callback);
    Report("has come", m_lastNumber);
    return m_lastNumber;
}

void StartAnnouncer::ThreadProc(void* self) {
    static_cast<StartAnnouncer*>(self)->Run();
}

void StartAnnouncer::Run() {
    GuideTime told = m_clock.Now();  // what started until then has been told
    for (auto next = m_guide.NextStart(told); next; next = m_guide.NextStart(told)) {
        if (!WaitFor(*next)) {
            return;
        }
        for (const Programme* programme : m_guide.Starting(*next, *next + 1)) {
            Announce(*programme);
        }
        told = *next;
    }
}

// False when the thread is to end instead.
bool StartAnnouncer::WaitFor(GuideTime time) {
    return !m_stop.Wait(m_clock.MsUntil(time));
}

void StartAnnouncer::Announce(const Programme& programme) {
    EpgData record = ToRecord(programme, Detail::Full);
    const EpgDataList list{1, &record};
    // Without the lock: Follow wants it, on behalf of a client, and every other call of the process
    // would wait with it.
    for (const auto& [number, callback] : CopyFollowers()) {
        if (!callback(list)) {
            Drop(number);
        }
    }
}

StartAnnouncer::Followers StartAnnouncer::CopyFollowers() {
    kpl::os::CAutoLock lock(&m_lock);
    return m_followers;
}

void StartAnnouncer::Drop(int number) {
    kpl::os::CAutoLock lock(&m_lock);
    m_followers.erase(number);
    Report("has gone", number);
}

}  // namespace guide
