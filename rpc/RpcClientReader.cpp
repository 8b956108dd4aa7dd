// Receiving: everything that the server writes is taken by one thread at a time, the reader's or
// that of a caller that waits for its result.
#include <string.h>

#include <algorithm>

#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/rpc/RpcClient.h"
#include "kpl/tools/DebugLog.h"
#include "os/Deadline.h"
#include "rpc/CommandBuffer.h"
#include "rpc/ReceiveTurn.h"
#include "rpc/RpcCallbackHandler.h"

namespace kpl::rpc {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

constexpr long kReadTimeoutMs = 1000;

}  // namespace

void RpcClient::ThreadProc(void* client) {
    static_cast<RpcClient*>(client)->Read();
}

void RpcClient::Read() {
    m_stop = false;
    m_running = true;
    ipc::IpcStreamer* streamer = nullptr;
    {
        os::CAutoLock lock(&m_stateLock);
        streamer = m_streamer;  // stays valid: the release waits for this thread
    }
    *m_received = CommandBuffer();  // Nobody else receives yet.
    DumpDbgMsg("RpcClient::ThreadProc(): .....\n");
    m_receiveTurn->Begin();
    m_readerStarted.Set();
    while (m_receiveTurn->TakeAsReader()) {
        GiveReceiveTurn(!m_stop &&
                        HandleReceived(streamer->Read(m_received->Room(), m_received->RoomSize(),
                                                      kReadTimeoutMs)));
    }
    m_receiveTurn->AwaitGiven();
    m_running = false;
    EndTimedCalls();
    DumpDbgMsg("RpcClient::ThreadProc(): Done(%d).....\n", m_received->Size());
}

// Until the call is over, which is looked at once a second at least. With the receive turn in hand,
// which is given back.
void RpcClient::ReceiveFor(CallContext* context, const os::Deadline& deadline) {
    ipc::IpcStreamerPipeImpl* pipe = nullptr;
    {
        os::CAutoLock lock(&m_stateLock);
        pipe = m_pipe;  // stays valid: the release waits for the turn
    }
    bool goesOn = true;
    while (goesOn && IsInFlight(context) && !deadline.IsOver()) {
        const long limitMs =
            deadline.HasLimit() ? std::min(deadline.LeftMs(), kReadTimeoutMs) : kReadTimeoutMs;
        goesOn =
            HandleReceived(pipe->ReadTimed(m_received->Room(), m_received->RoomSize(), limitMs));
    }
    GiveReceiveTurn(goesOn);
}

// To the next caller that waits, otherwise to the reader, which also ends what cannot go on.
void RpcClient::GiveReceiveTurn(bool goesOn) {
    if (!goesOn) {
        m_receiveTurn->End();
    }
    m_receiveTurn->Give();
    os::CAutoLock lock(&m_stateLock);
    for (const auto& entry : m_callContexts) {
        if (entry.second->m_state == CallContext::State::Sent) {
            entry.second->m_resultEvent->Set();
            return;
        }
    }
}

// What a read returned, and the commands that it completed. False if no further read can bring
// anything.
bool RpcClient::HandleReceived(int received) {
    CommandBuffer* const buffer = m_received.get();
    DumpDbgMsg("RpcClient::ThreadProc(): Read command done(%d).\n", received);
    if (m_stop || m_isBroken) {
        return false;
    }
    if (received <= 0) {
        return received == -2;
    }
    buffer->Add(received);
    while (buffer->Size() > 0) {
        RpcCommandDemuxer command(buffer->Front(), buffer->Size());
        if (!command.IsValidCommand()) {
            break;
        }
        const int size = command.GetSize();
        HandleCommand(&command, buffer->Front());
        buffer->Consume(size);
        if (m_isBroken) {
            return false;
        }
    }
    buffer->Compact();
    if (buffer->Size() > 0) {
        // Usually only the first part of a command; the rest comes with the next read.
        DumpDbgMsg("RpcClient::ThreadProc(): Copy corrupt data(length=%d).\n", buffer->Size());
    }
    return buffer->RoomSize() > 0;
}

void RpcClient::HandleCommand(RpcCommandDemuxer* command, char* bytes) {
    switch (command->GetCommandType()) {
        case RPC_COMMAND_CALLBACK:
            if (!m_callbackHandler->Post(bytes, command->GetSize())) {
                ForceDumpDbgMsg("RpcClient: ????? Too many callbacks wait. Give the server up\n");
                m_isBroken = true;
            }
            break;
        case RPC_COMMAND_RESULT:
            DumpDbgMsg("RpcClient::ThreadProc(): Demuxed ID(%d), Return(%d).\n",
                       static_cast<int>(command->GetId()), command->Get<int>(0));
            DeliverResult(command->GetId(), bytes, command->GetSize());
            break;
        default:
            ForceDumpDbgMsg("RpcClient::ThreadProc(): ??????? Invalud type(%d)\n",
                            command->GetCommandType());
            break;
    }
}

// Only to a call in flight. Any other result is dropped: it is late, or nobody's.
void RpcClient::DeliverResult(unsigned int id, const char* bytes, int size) {
    os::CAutoLock lock(&m_stateLock);
    for (const auto& entry : m_callContexts) {
        CallContext* const context = entry.second.get();
        if (context->m_id != id) {
            continue;
        }
        if (context->m_state == CallContext::State::Sent) {
            PutResult(context, bytes, size);
            return;
        }
        if (context->m_state == CallContext::State::Writing) {
            PutEarlyResult(context, bytes, size);
            return;
        }
    }
}

void RpcClient::PutResult(CallContext* context, const char* bytes, int size) {
    memcpy(context->m_buffer, bytes, static_cast<size_t>(size));
    context->m_state = CallContext::State::Answered;
    context->m_resultEvent->Set();
}

// The buffer still belongs to the write.
void RpcClient::PutEarlyResult(CallContext* context, const char* bytes, int size) {
    memcpy(context->m_early, bytes, static_cast<size_t>(size));
    context->m_earlySize = size;
}

// Nothing can answer them any more. Those without a time limit wait for Disconnect, as they always
// have.
void RpcClient::EndTimedCalls() {
    os::CAutoLock lock(&m_stateLock);
    for (const auto& entry : m_callContexts) {
        const bool inFlight = entry.second->m_state == CallContext::State::Writing ||
                              entry.second->m_state == CallContext::State::Sent;
        if (inFlight && entry.second->m_isTimed) {
            entry.second->m_resultEvent->Set();
        }
    }
}

}  // namespace kpl::rpc
