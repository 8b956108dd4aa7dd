#include "kpl/net/server/CSocketServerEx.h"

#include <atomic>

#include "kpl/tools/DebugLog.h"

// Who waits where, and who wakes whom: WaitForServerStop waits for the stop event, which StopServer
// and the destructor set. The destructor, and a StartServer that takes the event back, wait for the
// waiters to have left first.

namespace kpl::net::server {

using tools::DumpDbgMsg;

class CSocketServerEx::ServerImpl : public CSocketServer {
public:
    ServerImpl(unsigned int port, CSocketServerEx* owner) : CSocketServer(port) {
        DumpDbgMsg("CSocketServerEx::ServerImpl::ServerImpl(): Port=(%d)\n",
                   static_cast<int>(port));
        m_manager = owner->CreateThreadManager();
    }

    // The accept thread and the server threads end before what they use.
    ~ServerImpl() override {
        if (GetListeningPort() != -1) {
            Stop();
        }
        if (m_dispatched) {
            StopThreads();
        }
        delete m_manager;
    }

    // The connection is not served before ServeHeld: the observer is to be told first, and must not
    // be given a socket that is being deleted already.
    CSocket* CreateClientSocket(int fd) override {
        DumpDbgMsg("CSocketServerEx::ServerImpl::CreateClientSocket(): iSocketFd=(%d)\n", fd);
        auto* client = new CSocket(fd);
        if (m_manager != nullptr) {
            m_manager->Hold(client);
            if (m_manager->Dispatch(fd, client)) {
                m_dispatched = true;
                return client;
            }
            m_manager->Hold(nullptr);
        }
        delete client;
        return nullptr;
    }

    void ServeHeld() { m_manager->Hold(nullptr); }

    // After Stop.
    void StopThreads() {
        if (m_manager != nullptr) {
            m_manager->StopAllThreads();
        }
        m_dispatched = false;
    }

private:
    CServerThreadManager* m_manager;
    bool m_dispatched = false;  // accept thread, or after its end
};

class CSocketServerEx::ServerObserverImpl : public IServerObserver {
public:
    explicit ServerObserverImpl(ServerImpl* server) : m_server(server) {}

    void SetTarget(IServerObserver* target) { m_target = target; }

    bool ClientAccepted(CSocket* client) override {
        IServerObserver* const target = m_target;
        if (target != nullptr) {
            target->ClientAccepted(client);
        }
        m_server->ServeHeld();
        return true;
    }

    void ServerClosed() override {
        DumpDbgMsg("CSocketServerEx::ServerObserverImpl::ServerClosed(): .....\n");
        IServerObserver* const target = m_target;
        if (target != nullptr) {
            target->ServerClosed();
        }
    }

    void StartToAccept() override {
        DumpDbgMsg("CSocketServerEx::ServerObserverImpl::StartToAccept(): .....\n");
        IServerObserver* const target = m_target;
        if (target != nullptr) {
            target->StartToAccept();
        }
    }

private:
    std::atomic<IServerObserver*> m_target{nullptr};
    ServerImpl* const m_server;
};

CSocketServerEx::CSocketServerEx(unsigned int port)
    : m_stopEvent(new os::CEvent(false)), m_port(port) {}

CSocketServerEx::~CSocketServerEx() {
    DumpDbgMsg("CSocketServerEx::~CSocketServerEx(): .....\n");
    StopServer();
    m_stopEvent->Set();
    WaitForWaiters();
    delete m_server;
    delete m_observer;
    delete m_stopEvent;
    DumpDbgMsg("CSocketServerEx::~CSocketServerEx(): Done.....\n");
}

bool CSocketServerEx::StartServer() {
    delete m_server;
    m_server = new ServerImpl(m_port, this);
    delete m_observer;
    m_observer = nullptr;
    if (m_stopEvent->Wait(0)) {
        WaitForWaiters();  // A waiter that has not woken yet would miss the stop.
    }
    m_stopEvent->Reset();
    m_observer = new ServerObserverImpl(m_server);
    m_server->SetObserver(m_observer);
    return m_server->Run();
}

bool CSocketServerEx::StopServer() {
    DumpDbgMsg("CSocketServerEx::StopServer(): .....\n");
    if (m_server != nullptr && m_server->Stop()) {
        m_server->StopThreads();
    }
    // The last that is done with this object: a thread that waited may destroy it now.
    m_stopEvent->Set();
    DumpDbgMsg("CSocketServerEx::StopServer(): Done.....\n");
    return true;
}

int CSocketServerEx::WaitForServerStop() {
    {
        os::CAutoLock lock(&m_waitLock);
        if (m_waiters++ == 0) {
            m_waitersGone.Reset();
        }
    }
    const int result = m_stopEvent->Wait(-1) ? 1 : 0;
    os::CAutoLock lock(&m_waitLock);
    if (--m_waiters == 0) {
        m_waitersGone.Set();
    }
    return result;
}

// Only with the event set.
void CSocketServerEx::WaitForWaiters() {
    m_waitersGone.Wait(-1);
    os::CAutoLock lock(&m_waitLock);  // The last one has let it go, and touches nothing more.
}

void CSocketServerEx::SetObserver(IServerObserver* observer) {
    if (m_observer != nullptr) {
        m_observer->SetTarget(observer);
    }
}

int CSocketServerEx::GetPort() const {
    return m_server == nullptr ? -1 : m_server->GetPort();
}

int CSocketServerEx::GetListeningPort() const {
    return m_server == nullptr ? -1 : m_server->GetListeningPort();
}

}  // namespace kpl::net::server
