#include "ipc/ObserverList.h"

#include <algorithm>

namespace kpl::ipc {

bool ObserverList::Add(IpcServerObserver* observer) {
    os::CAutoLock lock(&m_lock);
    if (observer == nullptr || Contains(observer)) {
        return false;
    }
    m_observers.push_back(observer);
    return true;
}

void ObserverList::Remove(IpcServerObserver* observer) {
    {
        os::CAutoLock lock(&m_lock);
        const auto found = std::find(m_observers.begin(), m_observers.end(), observer);
        if (found != m_observers.end()) {
            m_observers.erase(found);
        }
    }
    os::CEvent callEnded(false);
    while (IsCalledElsewhere(observer, &callEnded)) {
        callEnded.Wait(-1);
    }
}

std::vector<IpcServerObserver*> ObserverList::Copy() {
    os::CAutoLock lock(&m_lock);
    return m_observers;
}

bool ObserverList::Contains(IpcServerObserver* observer) const {
    return std::find(m_observers.begin(), m_observers.end(), observer) != m_observers.end();
}

bool ObserverList::BeginCall(IpcServerObserver* observer) {
    os::CAutoLock lock(&m_lock);
    if (!Contains(observer)) {
        return false;
    }
    m_calls.push_back({observer, pthread_self()});
    return true;
}

void ObserverList::EndCall(IpcServerObserver* observer) {
    os::CAutoLock lock(&m_lock);
    const auto ended = std::find_if(m_calls.begin(), m_calls.end(), [&](const RunningCall& call) {
        return call.observer == observer && pthread_equal(call.thread, pthread_self()) != 0;
    });
    m_calls.erase(ended);
    for (os::CEvent* callEnded : m_removers) {
        callEnded->Set();
    }
}

bool ObserverList::IsCalledElsewhere(IpcServerObserver* observer, os::CEvent* callEnded) {
    os::CAutoLock lock(&m_lock);
    const bool called = std::any_of(m_calls.begin(), m_calls.end(), [&](const RunningCall& call) {
        return call.observer == observer && pthread_equal(call.thread, pthread_self()) == 0;
    });
    m_removers.erase(std::remove(m_removers.begin(), m_removers.end(), callEnded),
                     m_removers.end());
    if (called) {
        callEnded->Reset();
        m_removers.push_back(callEnded);
    }
    return called;
}

}  // namespace kpl::ipc
