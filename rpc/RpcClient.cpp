#include "kpl/rpc/RpcClient.h"

#include <stdlib.h>
#include <string.h>

#include <utility>

#include "kpl/ipc/IpcClientFactory.h"
#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/tools/DebugLog.h"
#include "rpc/CommandBuffer.h"
#include "rpc/RpcCallbackHandler.h"
#include "rpc/WriteTurn.h"

// Threads, and where each may wait:
//   a caller          in Invoke: for its write turn, in the write itself; then for its result
//                     event or, if it has the receive turn, in the streamer's read, at most a
//                     second at a time.
//   a connecter       in Connect, holding m_lock: in the IPC connect, for the reader's start.
//   a disconnecter    for m_lock; then for the reader's end and for the last writer's end.
//   the reader        for the receive turn, while callers receive; in the streamer's read, at
//                     most a second at a time; at its end for a caller that still receives.
//   the callbacks'    for the next one; for the end of the call that a callback belongs to; and
//   thread            wherever the user's function waits.
//
// Locks: m_lock, then m_stateLock. m_lock makes one Connect or Disconnect run at a time and is held
// while they wait; no caller, and neither thread of the client, ever takes it. m_stateLock is held
// for a few instructions and for no wait. The user's functions run without any lock.
//
// Ending a connection (ReleaseLocked): who may be waiting is woken first (EndWaits: a blocked read
// and write through the streamer's Interrupt, each call through its event, the reader through
// m_stop and the end of receiving, the callbacks' thread through m_callEnded), then waited for (the
// reader by joining it, which itself waits for a caller that receives; the writer by taking the
// write turn); only then are the references on the streamer dropped, ours last, which closes the
// FIFOs. A call whose context was detached finds its reference already taken and does not touch the
// streamer. A callback that runs is not waited for: it may be the one that disconnects. What it
// uses is shared-owned.
//
// A reference on the streamer belongs to: the IPC client (two), the connection (m_holdsStreamer),
// and each call in flight (CallContext::m_streamer).

namespace kpl::rpc {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

RpcClient::RpcClient()
    : m_lock(new os::CCritSec),
      m_callbackHandler(new CallbackHandler(this)),
      m_writeTurn(new WriteTurn),
      m_received(new CommandBuffer),
      m_tag(new ClientTag) {
    (void)ipc::IpcClientFactory::GetInstance();  // a static client must not outlive it
    ForceDumpDbgMsg("RpcClient::RpcClient(): Framework %s\n", "Revision: 735647");
}

RpcClient::~RpcClient() {
    DumpDbgMsg("RpcClient::~RpcClient(): ...\n");
    RequestRelease();  // for good: a callback that runs cannot connect again
    Disconnect();
    delete m_callbackHandler;
    delete m_lock;
    DumpDbgMsg("RpcClient::~RpcClient(): Done...\n");
}

bool RpcClient::Connect(const char* serverName, void* param) {
    return Connect(serverName, param, -1);
}

bool RpcClient::Connect(const char* serverName, void* param, long timeoutMs) {
    Released released;
    Released unfinished;
    os::CAutoLock lock(m_lock);
    DumpDbgMsg("RpcClient::Connect(): ...\n");
    if (serverName == nullptr || serverName[0] == '\0') {
        return false;
    }
    return ConnectLocked(serverName, param, timeoutMs, &released, &unfinished);
}

bool RpcClient::ConnectLocked(const char* serverName, void* param, long timeoutMs,
                              Released* released, Released* unfinished) {
    {
        os::CAutoLock lock(&m_stateLock);
        if (m_serverName != nullptr && strcmp(m_serverName, serverName) == 0) {
            DumpDbgMsg("RpcClient::Connect(): Already connect to(%s)\n", serverName);
            return true;
        }
    }
    ReleaseLocked(released);
    if (!ConnectIpc(serverName, param, timeoutMs)) {
        return false;
    }
    if (!StartReader()) {
        // Or a further Connect under that name would say true.
        ReleaseLocked(unfinished);
        return false;
    }
    DumpDbgMsg("RpcClient::Connect(): Done...\n");
    return true;
}

bool RpcClient::ConnectIpc(const char* serverName, void* param, long timeoutMs) {
    ipc::IpcClient* const ipcClient = ipc::IpcClientFactory::GetInstance()->Create(0);
    if (ipcClient == nullptr) {
        return false;
    }
    if (!BeginConnect(ipcClient)) {
        ipc::IpcClientFactory::GetInstance()->Destroy(ipcClient);
        return false;
    }
    // Only the client over FIFOs knows a time limit; another kind waits as it does.
    auto* const pipeClient = dynamic_cast<ipc::IpcClientPipeImpl*>(ipcClient);
    const bool connected = pipeClient != nullptr ? pipeClient->Connect(serverName, param, timeoutMs)
                                                 : ipcClient->Connect(serverName, param);
    {
        os::CAutoLock lock(&m_stateLock);
        m_isConnecting = false;
    }
    return connected && OpenStreamer(serverName, ipcClient->GetStreamer());
}

// From here on a Disconnect of another thread finds what it has to cancel. False if one is already
// waiting.
bool RpcClient::BeginConnect(ipc::IpcClient* ipcClient) {
    os::CAutoLock lock(&m_stateLock);
    if (m_releaseRequests > 0) {
        return false;
    }
    m_ipcClient = ipcClient;
    m_isConnecting = true;
    return true;
}

// Name and streamer stay stored even if the streamer cannot be opened: a further Connect under that
// name then says true without a connection, as it always has.
bool RpcClient::OpenStreamer(const char* serverName, ipc::IpcStreamer* streamer) {
    os::CAutoLock lock(&m_stateLock);
    m_serverName = strdup(serverName);
    m_isBroken = false;  // before the first call can break it
    m_streamer = streamer;
    m_pipe = dynamic_cast<ipc::IpcStreamerPipeImpl*>(streamer);
    m_holdsStreamer = streamer != nullptr && streamer->Open();
    return m_holdsStreamer;
}

bool RpcClient::StartReader() {
    m_readerStarted.Reset();
    m_reader = new os::CThread(&RpcClient::ThreadProc, this);
    if (!m_reader->Run(0)) {
        return false;
    }
    m_readerStarted.Wait(-1);
    return true;
}

const char* RpcClient::GetServerName() const {
    os::CAutoLock lock(&m_stateLock);
    return m_serverName;
}

bool RpcClient::IsAlive() const {
    return m_running && !m_isBroken;
}

void RpcClient::Disconnect() {
    DumpDbgMsg("RpcClient::Disconnect(): ...\n");
    ReleaseResource();
    DumpDbgMsg("RpcClient::Disconnect(): Done...\n");
}

void RpcClient::ReleaseResource() {
    Released released;
    RequestRelease();
    {
        os::CAutoLock lock(m_lock);
        ReleaseLocked(&released);
        os::CAutoLock stateLock(&m_stateLock);
        --m_releaseRequests;
    }
    ForgetOwnContext();
}

// Makes a Connect that holds m_lock give up.
void RpcClient::RequestRelease() {
    os::CAutoLock lock(&m_stateLock);
    ++m_releaseRequests;
    auto* const pipeClient = dynamic_cast<ipc::IpcClientPipeImpl*>(m_ipcClient);
    if (m_isConnecting && pipeClient != nullptr) {
        pipeClient->CancelConnect();
    }
}

void RpcClient::ReleaseLocked(Released* released) {
    EndWaits();
    if (m_reader != nullptr) {
        m_reader->Exit(true);
        delete m_reader;
        m_reader = nullptr;
    }
    // With the turn in hand nobody is inside a write any more.
    (void)m_writeTurn->Take(os::Deadline(-1));
    ipc::IpcClient* ipcClient = nullptr;
    ipc::IpcStreamer* streamer = nullptr;
    int references = TakeCallReferences();
    {
        os::CAutoLock lock(&m_stateLock);
        std::swap(ipcClient, m_ipcClient);
        std::swap(streamer, m_streamer);
        m_pipe = nullptr;
        references += m_holdsStreamer ? 1 : 0;
        m_holdsStreamer = false;
        m_isConnecting = false;
        free(m_serverName);
        m_serverName = nullptr;
    }
    if (ipcClient != nullptr) {
        ipc::IpcClientFactory::GetInstance()->Destroy(ipcClient);
    }
    for (; references > 0; --references) {
        streamer->Close();
    }
    m_writeTurn->Give();
    TakeCached(released);
}

void RpcClient::EndWaits() {
    m_stop = true;
    EndReceiving();
    os::CAutoLock lock(&m_stateLock);
    if (m_pipe != nullptr && m_holdsStreamer) {
        m_pipe->Interrupt();
    }
    for (const auto& entry : m_callContexts) {
        entry.second->Detach();
    }
    WakeCallbackThread();
}

// The references of the calls in flight, which those calls will not give back any more.
int RpcClient::TakeCallReferences() {
    os::CAutoLock lock(&m_stateLock);
    int count = 0;
    for (const auto& entry : m_callContexts) {
        if (entry.second->m_streamer != nullptr) {
            entry.second->m_streamer = nullptr;
            ++count;
        }
    }
    return count;
}

void RpcClient::TakeCached(Released* released) {
    os::CAutoLock lock(&m_stateLock);
    released->contexts.swap(m_callContexts);
    released->callbacks.swap(m_callbackMap);
    for (const auto& entry : released->contexts) {
        entry.second->Detach();
    }
    WakeCallbackThread();
}

// One in flight is detached and stays known, until its thread's next use: who ends the connection
// has to find its reference on the streamer.
void RpcClient::RemoveAllCachedCallContext() {
    Released released;
    os::CAutoLock lock(&m_stateLock);
    for (auto entry = m_callContexts.begin(); entry != m_callContexts.end();) {
        entry->second->Detach();
        if (entry->second->m_streamer == nullptr) {
            released.contexts.insert(*entry);
            entry = m_callContexts.erase(entry);
        } else {
            ++entry;
        }
    }
    WakeCallbackThread();
}

void RpcClient::RemoveAllCachedCallbackFunctions() {
    Released released;
    os::CAutoLock lock(&m_stateLock);
    released.callbacks.swap(m_callbackMap);
}

}  // namespace kpl::rpc
