#ifndef KPL_IPC_OBSERVERLIST_H_
#define KPL_IPC_OBSERVERLIST_H_

#include <pthread.h>

#include <vector>

#include "kpl/ipc/IpcServer.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"

namespace kpl::ipc {

// The observers of a server, in the order of registration.
//
// Observers are called without the lock, so that they may register, unregister and stop things.
// Remove waits for a call of that observer that runs on another thread: at the end of every call
// the event of every remover that waits is set, and it looks again. Any thread.
class ObserverList {
public:
    bool Add(IpcServerObserver* observer);
    void Remove(IpcServerObserver* observer);

    // Calls `function(observer)` for each until one returns false; returns whether none did. One
    // that was removed meanwhile is left out.
    template <typename Function>
    bool ForEach(Function function) {
        for (IpcServerObserver* observer : Copy()) {
            if (!BeginCall(observer)) {
                continue;
            }
            const bool goOn = function(observer);
            EndCall(observer);
            if (!goOn) {
                return false;
            }
        }
        return true;
    }

private:
    struct RunningCall {
        IpcServerObserver* observer;
        pthread_t thread;
    };

    std::vector<IpcServerObserver*> Copy();
    bool BeginCall(IpcServerObserver* observer);
    void EndCall(IpcServerObserver* observer);
    bool Contains(IpcServerObserver* observer) const KPL_REQUIRES(m_lock);
    // True if another thread is inside `observer`; then the event, the caller's own, will be set.
    bool IsCalledElsewhere(IpcServerObserver* observer, os::CEvent* callEnded);

    os::CCritSec m_lock;
    std::vector<IpcServerObserver*> m_observers KPL_GUARDED_BY(m_lock);
    std::vector<RunningCall> m_calls KPL_GUARDED_BY(m_lock);
    std::vector<os::CEvent*> m_removers KPL_GUARDED_BY(m_lock);  // that wait
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_OBSERVERLIST_H_
