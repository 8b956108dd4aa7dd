// Receiving: everything that the server writes is read by one thread at a time, the one that has
// the turn. A caller that waits for its result takes the turn if it is free, which saves the hop
// from the reader's thread to its own, most of what a call costs. It handles whatever comes, also
// for others, and keeps the turn until its call is over; then it passes it to another caller that
// waits (PassTurn). If none does the turn is free, and the reader takes it: at once after a call
// that was long, otherwise when no call has come for a moment (TakeTurnAsReader). So as long as the
// connection lives, somebody receives, or will within two such moments.
//
// Whoever has the turn gives it back: the reader after every read, a caller in EndCall, or before
// that when receiving has ended (NextStep). A caller that the turn is passed to while it gives up
// finds it in EndCall too, under the same lock.
#include <string.h>

#include <algorithm>

#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/rpc/RpcClient.h"
#include "kpl/tools/DebugLog.h"
#include "os/Deadline.h"
#include "os/WaitReadable.h"
#include "rpc/CommandBuffer.h"
#include "rpc/RpcCallbackHandler.h"

namespace kpl::rpc {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

constexpr long kReadTimeoutMs = 1000;

// How long the reader keeps back after a call, and so how long what the server sends by itself then
// waits.
constexpr long kQuietMs = 1;

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
    DumpDbgMsg("RpcClient::ThreadProc(): .....\n");
    BeginReceiving();
    m_readerStarted.Set();
    while (TakeTurnAsReader()) {
        HandleReceived(streamer->Read(m_received->Room(), m_received->RoomSize(), kReadTimeoutMs));
        ContextPtr next;
        {
            os::CAutoLock lock(&m_stateLock);
            next = PassTurn();
        }
        Wake(next);
        WakeAnswered();
    }
    m_turnGiven.Wait(-1);
    m_running = false;
    EndTimedCalls();
    DumpDbgMsg("RpcClient::ThreadProc(): Done(%d).....\n", m_received->Size());
}

void RpcClient::BeginReceiving() {
    os::CAutoLock lock(&m_stateLock);
    *m_received = CommandBuffer();
    m_turnTaken = false;
    m_receivingEnded = false;
    m_readerSleeps = false;
    m_seenTurnRequests = m_turnRequests;
}

void RpcClient::EndReceiving() {
    os::CAutoLock lock(&m_stateLock);
    m_receivingEnded = true;
    m_readerWakes.Set();
    if (m_turnTaken) {
        m_turnGiven.Reset();
    } else {
        m_turnGiven.Set();
    }
}

// Waits until it is for the reader to receive. False when receiving has ended.
bool RpcClient::TakeTurnAsReader() {
    for (;;) {
        bool isLongCall = false;
        {
            os::CAutoLock lock(&m_stateLock);
            if (m_receivingEnded) {
                return false;
            }
            const bool isQuiet = m_turnRequests == m_seenTurnRequests;
            if (isQuiet && !m_turnTaken) {
                m_turnTaken = true;
                return true;
            }
            isLongCall = isQuiet;
            m_seenTurnRequests = m_turnRequests;
            m_readerSleeps = isLongCall;
            m_readerWakes.Reset();
        }
        if (isLongCall) {
            m_readerWakes.Wait(-1);
        } else {
            const timespec quiet = os::MsTimeout(kQuietMs);
            (void)os::PollThroughSignals(nullptr, 0, &quiet);
        }
    }
}

// By who has the turn: to the next caller that waits, otherwise to nobody. Returns whom to Wake
// then.
RpcClient::ContextPtr RpcClient::PassTurn() {
    m_turnTaken = false;
    if (m_receivingEnded) {
        m_turnGiven.Set();
        return nullptr;
    }
    for (const auto& entry : m_callContexts) {
        if (m_pipe != nullptr && IsInFlight(*entry.second)) {
            m_turnTaken = true;
            entry.second->m_hasTurn = true;
            return entry.second;
        }
    }
    if (m_readerSleeps) {
        m_readerSleeps = false;
        m_readerWakes.Set();
    }
    return nullptr;
}

// Not under the state lock, which is what a woken caller takes first. Null wakes nobody.
void RpcClient::Wake(const ContextPtr& context) {
    if (context != nullptr) {
        context->m_resultEvent->SetKept();
    }
}

// A call that has got its result without its thread having been woken; null if there is none.
RpcClient::ContextPtr RpcClient::FindAnswered() const {
    for (const auto& entry : m_callContexts) {
        if (entry.second->m_mustWake) {
            return entry.second;
        }
    }
    return nullptr;
}

RpcClient::ContextPtr RpcClient::TakeAnswered() {
    os::CAutoLock lock(&m_stateLock);
    ContextPtr context = FindAnswered();
    if (context != nullptr) {
        context->m_mustWake = false;
    }
    return context;
}

// By who has received. Best without the turn: a woken caller often calls again at once, and then
// takes it.
void RpcClient::WakeAnswered() {
    while (const ContextPtr context = TakeAnswered()) {
        Wake(context);
    }
}

// A caller's read, with the turn in hand.
void RpcClient::Receive(const os::Deadline& deadline) {
    ipc::IpcStreamerPipeImpl* pipe = nullptr;
    {
        os::CAutoLock lock(&m_stateLock);
        pipe = m_pipe;  // stays valid: the release waits for the turn
    }
    const long limitMs =
        deadline.HasLimit() ? std::min(deadline.LeftMs(), kReadTimeoutMs) : kReadTimeoutMs;
    HandleReceived(pipe->ReadTimed(m_received->Room(), m_received->RoomSize(), limitMs));
}

// What a read has returned. Ends receiving if no further read can bring anything.
void RpcClient::HandleReceived(int received) {
    if (!HandleCommands(received)) {
        EndReceiving();
    }
}

bool RpcClient::HandleCommands(int received) {
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
            if (tools::IsDumpLogEnabled()) {  // or the value need not be looked for
                DumpDbgMsg("RpcClient::ThreadProc(): Demuxed ID(%d), Return(%d).\n",
                           static_cast<int>(command->GetId()), command->Get<int>(0));
            }
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
    context->m_mustWake = true;
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
