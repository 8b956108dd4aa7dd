#ifndef KPL_NET_SERVER_CSOCKETSERVEREX_H_
#define KPL_NET_SERVER_CSOCKETSERVEREX_H_

#include "kpl/Export.h"
#include "kpl/net/server/CServerThreadManager.h"
#include "kpl/net/server/CSocketServer.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/ThreadAnnotations.h"

namespace kpl::net::server {

// A TCP server that serves its connections with the threads of a CServerThreadManager. A derived
// class supplies the manager, the manager its threads, and each thread a processor per connection.
//
// A derived class with members that those use calls StopServer in its own destructor.
class KPL_EXPORT CSocketServerEx {
public:
    // Port 0 lets the system choose; see GetListeningPort.
    explicit CSocketServerEx(unsigned int port);

    // Stops, and waits for those that WaitForServerStop lets go.
    virtual ~CSocketServerEx();
    CSocketServerEx(const CSocketServerEx&) = delete;
    CSocketServerEx& operator=(const CSocketServerEx&) = delete;

    // A new manager, which then belongs to the server. Called by each StartServer; with null all
    // connections are refused.
    virtual CServerThreadManager* CreateThreadManager() = 0;

    // Listens and serves; a server that runs is stopped first, and its observer forgotten. False if
    // the port cannot be had, or no thread. Controlling thread.
    bool StartServer();

    // Stops accepting, ends every connection and every thread, and lets the waiters of
    // WaitForServerStop go. Waits for requests that are being executed; a response that is not
    // taken by its client is not waited for. Always true. Controlling thread, never a thread of the
    // server.
    bool StopServer();

    // Waits until the server is stopped, which it need not have been started for, and returns 1.
    // Any thread.
    int WaitForServerStop();

    // The observer of the running server; every StartServer forgets it, so it is set after that.
    // The socket in ClientAccepted may be looked at until the observer returns, and its result does
    // not matter: the connection is served from then on. Controlling thread.
    void SetObserver(IServerObserver* observer);

    // The port that the constructor was given; -1 before the first StartServer. Controlling thread.
    int GetPort() const;

    // The port that the server listens on; -1 while it does not. Controlling thread.
    int GetListeningPort() const;

private:
    class ServerImpl;
    class ServerObserverImpl;

    void WaitForWaiters();

    ServerImpl* m_server = nullptr;
    ServerObserverImpl* m_observer = nullptr;
    os::CEvent* const m_stopEvent;
    const unsigned int m_port;

    os::CCritSec m_waitLock;
    int m_waiters KPL_GUARDED_BY(m_waitLock) = 0;
    os::CEvent m_waitersGone{true};
};

}  // namespace kpl::net::server

#endif  // KPL_NET_SERVER_CSOCKETSERVEREX_H_
