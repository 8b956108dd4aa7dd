#ifndef KPL_NET_SERVER_CSERVERTHREADMANAGER_H_
#define KPL_NET_SERVER_CSERVERTHREADMANAGER_H_

#include <atomic>
#include <vector>

#include "kpl/Export.h"
#include "kpl/com/IUnknown.h"
#include "kpl/net/CSocket.h"
#include "kpl/net/server/CServerThread.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/ThreadAnnotations.h"

namespace kpl::net::server {

// Spreads connections over server threads: the first with room gets the next one, and a new thread
// is made when all are full.
//
// A derived class whose members its threads or processors use calls StopAllThreads in its own
// destructor, unless it is given to a CSocketServerEx, which does so before it deletes it.
class KPL_EXPORT CServerThreadManager {
public:
    CServerThreadManager();

    // As StopAllThreads, without the derived class's hooks.
    virtual ~CServerThreadManager();
    CServerThreadManager(const CServerThreadManager&) = delete;
    CServerThreadManager& operator=(const CServerThreadManager&) = delete;

    // The following are called under the manager's lock and call nothing of this object.

    // What a connection's processor gets as its parameter; null unless overridden. The frame does
    // not count or release it.
    virtual com::IUnknown* GetServerThreadParam(int fd, CSocket* socket);

    // A new server thread, which then belongs to the manager; null refuses the connection.
    virtual CServerThread* CreateServerThread() = 0;

    // Around StopAllThreads: nothing unless overridden.
    virtual void BeforeStopAllThreads();
    virtual void AfterStopAllThreads();

    // Hands a connection to a thread. True: `socket` belongs to it now. False for a negative `fd`,
    // a null `socket`, or when a factory gave nothing; `socket` stays the caller's. Any thread but
    // a server thread: a StopAllThreads that waits for that one keeps Dispatch waiting.
    bool Dispatch(int fd, CSocket* socket);

    // Ends all connections and threads: waits for requests that are being executed. The manager can
    // be used again. Always true. Any thread but a server thread.
    bool StopAllThreads();

private:
    friend class CSocketServerEx;

    bool DispatchToNewThread(int fd, CSocket* socket, com::IUnknown* param) KPL_REQUIRES(m_lock);
    void LogStop() KPL_REQUIRES(m_lock);
    static void LogStopDone();
    void EndThreads() KPL_REQUIRES(m_lock);
    void Hold(const CSocket* socket);

    std::vector<CServerThread*> m_threads KPL_GUARDED_BY(m_lock);
    os::CCritSec m_lock;
    std::atomic<const CSocket*> m_held{nullptr};  // dispatched, but not to be served yet
};

}  // namespace kpl::net::server

#endif  // KPL_NET_SERVER_CSERVERTHREADMANAGER_H_
