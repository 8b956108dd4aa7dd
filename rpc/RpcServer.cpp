#include "kpl/rpc/RpcServer.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "kpl/ipc/IpcServerPipeImpl.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/os/CCritSec.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/tools/CommandProcessor.h"
#include "kpl/tools/DebugLog.h"
#include "os/Deadline.h"
#include "rpc/RpcConnection.h"

namespace kpl::rpc {

namespace {

constexpr int kDefaultTimeoutMs = 5000;
constexpr long kSilentStopMs = 1000;

// How many announced clients are waited for at a time, each on a thread. One more costs the place
// of the oldest that has shown no sign of life.
constexpr size_t kMaxOpening = 64;

// Joins the threads of ended connections, which they cannot do themselves.
class Reaper : private tools::CommandProcessor<RpcConnection*> {
public:
    Reaper() : m_queue(this) {}
    ~Reaper() override {
        m_queue.Stop();  // While this object can still take the connections back.
    }

    void Post(RpcConnection* connection) { m_queue.Post(connection); }

private:
    bool Execute(RpcConnection*) override { return true; }
    // Here, because it also gets what a stopping queue did not execute any more.
    void OnCommandDone(RpcConnection* connection) override {
        connection->Join();
        connection->Release();
    }

    tools::CommandQueue<RpcConnection*> m_queue;
};

}  // namespace

// Who waits where, and who wakes whom:
//   accept thread   in ClientAccepted, for the end of a connection that makes room: at once.
//   connection      in its open, for the client: the client, the time limit, or End, which
//                   interrupts the streamer. In its read: its client, or End. In an executor, or
//                   for the registry's lock: only the executors end that. For its outbox: the
//                   client, the time limit, or End.
//   Stop            for the accept thread, then for each connection's end, then for the reaper.
// The lock guards the lists and flags and is held for no wait and no call of an executor.
class RpcServer::PrivateImpl : public RpcConnectionOwner {
public:
    bool Start(RpcServer* observer, const char* name, void* param);
    bool Stop();
    void Admit();
    bool Accept(ipc::IpcStreamerPipeImpl* streamer);
    void EndConnections();
    int Count() const;

    std::atomic<int> writeTimeoutMs{kDefaultTimeoutMs};
    std::atomic<int> openTimeoutMs{kDefaultTimeoutMs};

private:
    void MakeRoom();
    RpcConnection* ChooseHopeless() KPL_REQUIRES(m_lock);
    void Refuse();
    std::vector<RpcConnection*> HoldConnections();
    void ConnectionEnded(RpcConnection* connection) override;

    std::unique_ptr<ipc::IpcServerPipeImpl> m_server;  // null unless Start made one

    mutable os::CCritSec m_lock;
    bool m_isAdmitting KPL_GUARDED_BY(m_lock) = true;
    std::vector<RpcConnection*> m_connections KPL_GUARDED_BY(m_lock);  // in order of announcement
    std::unique_ptr<Reaper> m_reaper KPL_GUARDED_BY(m_lock);
};

bool RpcServer::PrivateImpl::Start(RpcServer* observer, const char* name, void* param) {
    if (m_server != nullptr) {
        return false;
    }
    auto server = std::make_unique<ipc::IpcServerPipeImpl>();
    // Before the start, so that no client comes unnoticed.
    (void)server->RegisterObserver(observer);
    if (!server->Start(name, param)) {
        return false;
    }
    m_server = std::move(server);
    return true;
}

bool RpcServer::PrivateImpl::Stop() {
    Refuse();
    if (m_server == nullptr) {
        EndConnections();
        return false;
    }
    const bool stopped = m_server->Stop();  // calls ServerClosed, which ends the connections
    m_server.reset();
    Refuse();
    return stopped;
}

void RpcServer::PrivateImpl::Admit() {
    os::CAutoLock lock(&m_lock);
    m_isAdmitting = true;
}

void RpcServer::PrivateImpl::Refuse() {
    os::CAutoLock lock(&m_lock);
    m_isAdmitting = false;
}

// The client is waited for on the connection's thread: one that never comes holds up nobody.
bool RpcServer::PrivateImpl::Accept(ipc::IpcStreamerPipeImpl* streamer) {
    MakeRoom();
    auto* const connection =
        new RpcConnection(this, streamer->GetServerName(), streamer, openTimeoutMs, writeTimeoutMs);
    os::CAutoLock lock(&m_lock);
    // The thread starts under the lock: it cannot end, and leave the list, before it stands in it.
    const bool runs = m_isAdmitting && connection->Run();
    if (runs) {
        m_connections.push_back(connection);
    } else {
        connection->Abort();
    }
    connection->Release();
    return runs;
}

// Ends a connection if as many as may are being opened, and waits for that end: whoever announces
// clients faster than threads end is slowed down.
void RpcServer::PrivateImpl::MakeRoom() {
    RpcConnection* hopeless = nullptr;
    {
        os::CAutoLock lock(&m_lock);
        hopeless = ChooseHopeless();
        if (hopeless != nullptr) {
            hopeless->AddRef();
        }
    }
    if (hopeless != nullptr) {
        if (hopeless->GiveUpOpening()) {
            (void)hopeless->WaitForEnd(-1);
        }
        hopeless->Release();
    }
}

// Of those that are being opened the oldest whose client nobody has seen, else the oldest; null
// while there is room.
RpcConnection* RpcServer::PrivateImpl::ChooseHopeless() {
    RpcConnection* oldest = nullptr;
    RpcConnection* unseen = nullptr;
    size_t count = 0;
    for (RpcConnection* connection : m_connections) {
        if (connection->GetState() == RpcConnection::State::Opening) {
            ++count;
            oldest = oldest == nullptr ? connection : oldest;
            unseen = unseen == nullptr && !connection->HasMetClient() ? connection : unseen;
        }
    }
    return count < kMaxOpening ? nullptr : unseen != nullptr ? unseen : oldest;
}

void RpcServer::PrivateImpl::ConnectionEnded(RpcConnection* connection) {
    os::CAutoLock lock(&m_lock);
    m_connections.erase(std::find(m_connections.begin(), m_connections.end(), connection));
    if (m_reaper == nullptr) {
        m_reaper = std::make_unique<Reaper>();
    }
    m_reaper->Post(connection);
}

// The connections, with a reference on each for the caller.
std::vector<RpcConnection*> RpcServer::PrivateImpl::HoldConnections() {
    os::CAutoLock lock(&m_lock);
    for (RpcConnection* connection : m_connections) {
        connection->AddRef();
    }
    return m_connections;
}

void RpcServer::PrivateImpl::EndConnections() {
    Refuse();
    const std::vector<RpcConnection*> connections = HoldConnections();
    for (RpcConnection* connection : connections) {
        connection->End();
    }
    const os::Deadline silent(kSilentStopMs);
    for (RpcConnection* connection : connections) {
        if (!connection->WaitForEnd(silent.LeftMs())) {
            tools::ForceDumpDbgMsg(
                "RpcServer: ????? Stop waits for Server(%s), Connection(%d), Function(%s)\n",
                connection->GetServerName(), connection->GetId(),
                connection->GetFunctionName().c_str());
            (void)connection->WaitForEnd(-1);
        }
        connection->Release();
    }
    // They all have been posted by now; destroying the reaper joins their threads.
    std::unique_ptr<Reaper> reaper;
    os::CAutoLock lock(&m_lock);
    reaper.swap(m_reaper);
}

int RpcServer::PrivateImpl::Count() const {
    os::CAutoLock lock(&m_lock);
    return static_cast<int>(
        std::count_if(m_connections.begin(), m_connections.end(), [](RpcConnection* connection) {
            return connection->GetState() == RpcConnection::State::Open;
        }));
}

RpcServer::RpcServer() : m_impl(new PrivateImpl) {
    (void)RpcExecutorManager::GetInstance();  // a static server must not outlive it
}

RpcServer::~RpcServer() {
    (void)Stop();
}

bool RpcServer::Start(const char* name, void* param) {
    return m_impl->Start(this, name, param);
}

bool RpcServer::Stop() {
    return m_impl->Stop();
}

int RpcServer::GetConnectionCount() const {
    return m_impl->Count();
}

void RpcServer::SetWriteTimeout(int ms) {
    m_impl->writeTimeoutMs = ms;
}

void RpcServer::SetOpenTimeout(int ms) {
    m_impl->openTimeoutMs = ms;
}

void RpcServer::ServerOpened(const char*) {
    m_impl->Admit();
}

bool RpcServer::ClientAccepted(ipc::IpcStreamer* streamer) {
    auto* const pipe = dynamic_cast<ipc::IpcStreamerPipeImpl*>(streamer);
    return pipe != nullptr && m_impl->Accept(pipe);
}

// Registered with the next server of that name it has to serve again, and hears of no start.
void RpcServer::ServerClosed() {
    m_impl->EndConnections();
    m_impl->Admit();
}

}  // namespace kpl::rpc
