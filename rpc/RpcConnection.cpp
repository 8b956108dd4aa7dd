#include "rpc/RpcConnection.h"

#include "ipc/Announcement.h"
#include "ipc/Fifo.h"
#include "kpl/rpc/RpcCommandFormat.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/tools/DebugLog.h"
#include "rpc/CommandCheck.h"

namespace kpl::rpc {

using namespace detail;

using tools::ForceDumpDbgMsg;

namespace {

// Whatever ends a connection also interrupts its streamer: an idle one is not woken to look.
constexpr int kNoTimeout = 0;

}  // namespace

RpcConnection::RpcConnection(RpcConnectionOwner* owner, const char* serverName,
                             ipc::IpcStreamerPipeImpl* streamer, long openTimeoutMs,
                             long writeTimeoutMs)
    : m_owner(owner),
      m_serverName(serverName),
      m_id(streamer->GetId()),
      m_streamer(streamer),
      m_openTimeoutMs(openTimeoutMs),
      m_outbox(streamer, writeTimeoutMs),
      m_thread(&RpcConnection::ThreadProc, this) {
    m_streamer->Hold();
}

bool RpcConnection::Run() {
    AddRef();
    if (m_thread.Run(0)) {
        return true;
    }
    Release();
    return false;
}

void RpcConnection::End() {
    m_isEnding = true;
    // The streamer is given up only after this lock was taken.
    os::CAutoLock lock(&m_lock);
    if (m_state != State::Ended) {
        m_streamer->Interrupt();
    }
}

RpcConnection::State RpcConnection::GetState() {
    os::CAutoLock lock(&m_lock);
    return m_state;
}

bool RpcConnection::HasMetClient() {
    os::CAutoLock lock(&m_lock);
    return m_state != State::Opening || m_streamer->HasMetPeer();
}

bool RpcConnection::GiveUpOpening() {
    os::CAutoLock lock(&m_lock);
    if (m_state != State::Opening) {
        return false;
    }
    m_isEnding = true;
    m_streamer->Interrupt();
    return true;
}

void RpcConnection::ThreadProc(void* self) {
    auto* connection = static_cast<RpcConnection*>(self);
    ipc::KeepSigPipeBlocked();  // Two system calls less for every result.
    if (connection->Open()) {
        connection->Serve();
    }
    connection->CloseStreamer();
    connection->m_owner->ConnectionEnded(connection);
    connection->m_ended.Set();
}

bool RpcConnection::Open() {
    if (!m_streamer->OpenWithin(m_openTimeoutMs)) {
        return false;
    }
    os::CAutoLock lock(&m_lock);
    m_state = State::Open;
    return true;
}

void RpcConnection::Serve() {
    while (!m_isEnding) {
        const int received = m_streamer->Read(m_received.Room(), m_received.RoomSize(), kNoTimeout);
        if (received <= 0) {
            return;  // The client has gone, or was given up, or the server stops.
        }
        m_received.Add(received);
        if (!ServeCommands()) {
            return;
        }
        m_received.Compact();
    }
}

// Serves every whole command that has arrived. False ends the connection.
bool RpcConnection::ServeCommands() {
    while (m_received.Size() > 0 && !m_isEnding) {
        RpcCommandDemuxer command(m_received.Front(), m_received.Size());
        const int size = command.GetSize();
        if (size == 0) {  // not a whole command
            return CanBecomeInvoke(m_received.Front(), m_received.Size()) || ComplainAboutBytes();
        }
        if (!ServeInvoke(&command)) {
            return false;
        }
        m_received.Consume(size);
    }
    return true;
}

bool RpcConnection::ServeInvoke(RpcCommandDemuxer* command) {
    const char* const name = command->GetFunctionName();
    if (command->GetCommandType() != RPC_COMMAND_INVOKE || name == nullptr) {
        return ComplainAboutBytes();
    }
    SetFunctionName(name);
    const int size = Execute(command);
    SetFunctionName("");
    // Not under the registry's lock. The next command waits until this client has taken the result.
    const bool sent = m_outbox.Send(m_result, size);
    m_outbox.WaitUntilSent();
    return sent;
}

// Returns the size of the result. A command that nobody answers, or whose answer is too large, gets
// an empty result, so that its caller does not wait for ever.
int RpcConnection::Execute(RpcCommandDemuxer* command) {
    const unsigned int id = command->GetId();
    const int size = RpcExecutorManager::GetInstance()->Execute(command, this, m_result,
                                                                static_cast<int>(sizeof(m_result)));
    if (size >= kHeaderSize) {
        return size;
    }
    RpcCommandMuxer empty(m_result, static_cast<int>(sizeof(m_result)));
    return empty.Finish(RPC_COMMAND_RESULT, nullptr, id);
}

bool RpcConnection::ComplainAboutBytes() {
    ForceDumpDbgMsg("RpcServer: ????? Bad bytes from client. Server(%s), Connection(%d)\n",
                    m_serverName.c_str(), m_id);
    return false;
}

void RpcConnection::SetFunctionName(const char* name) {
    os::CAutoLock lock(&m_lock);
    m_functionName = name;
}

std::string RpcConnection::GetFunctionName() {
    os::CAutoLock lock(&m_lock);
    return m_functionName;
}

// Ends what still writes, then gives the streamer back; without a second reference the server's
// accept step removes its FIFOs.
void RpcConnection::CloseStreamer() {
    m_outbox.Stop();
    bool wasOpen = false;
    {
        os::CAutoLock lock(&m_lock);
        wasOpen = m_state == State::Open;
        m_state = State::Ended;
    }
    if (wasOpen) {
        m_streamer->Close();  // what Open has added
    }
    m_streamer->Close();
    ipc::WakeAcceptStep(m_serverName.c_str());
}

bool RpcConnection::Send(RpcCommandMuxer* muxer, unsigned int id) {
    if (muxer == nullptr) {
        return false;
    }
    const int size = muxer->Finish(RPC_COMMAND_CALLBACK, nullptr, id);
    return size > 0 && m_outbox.Send(muxer->GetBuffer(), size);
}

void RpcConnection::AddRef() {
    ++m_refCount;
}

void RpcConnection::Release() {
    if (--m_refCount == 0) {
        delete this;
    }
}

}  // namespace kpl::rpc
