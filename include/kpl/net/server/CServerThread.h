#ifndef KPL_NET_SERVER_CSERVERTHREAD_H_
#define KPL_NET_SERVER_CSERVERTHREAD_H_

#include <stdint.h>

#include <atomic>
#include <map>

#include "kpl/Export.h"
#include "kpl/com/IUnknown.h"
#include "kpl/net/CSocket.h"
#include "kpl/net/server/CServerProtocolProcessor.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"
#include "kpl/os/ThreadAnnotations.h"

namespace kpl::net::server {

class Arrivals;

// One thread and the connections that it serves, each through its processor. The thread runs from
// the first connection to the end of the last one; the next one starts it again.
//
// The manager joins the thread before it deletes this object. Whoever deletes one otherwise, and
// has processors that use the derived class, calls Stop first and waits for them.
class KPL_EXPORT CServerThread {
public:
    // Results of CheckIfDataAvailable below 0.
    enum { kTimedOut = -100, kNoConnection = -101, kWaitFailed = -102 };

    CServerThread();

    // Ends all connections and joins the thread: waits for a request that is being executed. Never
    // on this object's own thread.
    virtual ~CServerThread();
    CServerThread(const CServerThread&) = delete;
    CServerThread& operator=(const CServerThread&) = delete;

    // How many connections one thread serves: 32. Called under the object's lock.
    virtual int GetMaxAcceptableCounts();

    // A new processor, which takes over `socket`; null refuses the connection and leaves `socket`
    // alone. Called under the object's lock, on the thread that adds the connection: it calls
    // nothing of this object.
    virtual CServerProtocolProcessor* CreateProtocolProcessor(int fd, CSocket* socket,
                                                              com::IUnknown* param) = 0;

    // Any thread.
    bool CanAcceptClient();

    // Adds a connection; `fd` is the socket's descriptor. True: `socket` belongs to its processor
    // now. False for -1, null, when there is no room, no thread can be started or the factory gave
    // no processor; `socket` stays the caller's. Any thread.
    bool AddSocket(int fd, CSocket* socket, com::IUnknown* param);

    // Waits until a connection can be read and returns the lowest descriptor of those that can, or
    // one of the codes above. kNoConnection means that there is none, or none any more. Connections
    // that ended themselves are removed. `timeout` is in milliseconds, of which the whole seconds
    // count as such and the rest as microseconds (500 waits 0.0005 s); 0 and below wait without
    // limit. Any thread; the object's own does it all the time.
    int CheckIfDataAvailable(int timeout);

    // Ends one connection. A request that is being executed on it goes on, without a socket. Any
    // thread.
    void ReleaseSocket(int fd);

    // Ends all connections. The thread ends by itself within a poll, or after the request that it
    // executes; it is not waited for. Always true. Any thread.
    bool Stop();

private:
    friend class CServerThreadManager;

    struct Connection {
        CServerProtocolProcessor* processor;  // owned
        const CSocket* socket;                // the processor's
        uint64_t serial;  // descriptor numbers and addresses come again, serials do not
    };
    struct WatchList;
    struct ArrivalList;
    class Removed;
    using Connections = std::map<int, Connection>;

    static void ThreadProc(void* self);
    void Serve();
    bool StartThread() KPL_REQUIRES(m_lock);
    bool HasRoom() KPL_REQUIRES(m_lock);
    int WaitForData(WatchList* list, int timeout);
    int WaitForNext(ArrivalList* list);
    bool UpdateWatchList(WatchList* list);
    int FirstReady(WatchList* list);
    void ProcessData(ArrivalList* list, int fd);
    CServerProtocolProcessor* BeginProcess(const WatchList& list, int fd);
    void EndProcess(int fd, bool keep);
    bool EndIfDone(int waitResult);
    Connections::iterator Remove(Connections::iterator entry, Removed* removed)
        KPL_REQUIRES(m_lock);
    void SetHeld(const std::atomic<const CSocket*>* held);
    void BeginStop();
    void WakeThread() KPL_REQUIRES(m_lock);
    void DropArrivals() KPL_REQUIRES(m_lock);
    Arrivals* ArrivalsOfThread();
    void Join();

    os::CThread* m_thread KPL_GUARDED_BY(m_lock) = nullptr;
    os::CCritSec m_lock;
    Connections m_connections KPL_GUARDED_BY(m_lock);
    std::atomic<bool> m_running{false};  // set by the thread, cleared by it under the lock

    os::CEvent m_started{false};
    Arrivals* m_arrivals KPL_GUARDED_BY(m_lock) = nullptr;  // of the running thread, owned
    uint64_t m_changes KPL_GUARDED_BY(m_lock) = 1;  // of m_connections; also gives the serials
    CServerProtocolProcessor* m_processing KPL_GUARDED_BY(m_lock) = nullptr;
    bool m_isBlind KPL_GUARDED_BY(m_lock) = false;  // a connection could not be watched
    bool m_processingRemoved KPL_GUARDED_BY(m_lock) = false;
    bool m_stopping KPL_GUARDED_BY(m_lock) = false;
    const std::atomic<const CSocket*>* m_held KPL_GUARDED_BY(m_lock) = nullptr;
};

}  // namespace kpl::net::server

#endif  // KPL_NET_SERVER_CSERVERTHREAD_H_
