// What a calling thread does: its context, sending its command, taking its result.
#include <pthread.h>

#include <algorithm>
#include <utility>

#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/rpc/RpcClient.h"
#include "kpl/tools/DebugLog.h"
#include "os/Deadline.h"
#include "rpc/WriteTurn.h"

namespace kpl::rpc {

using tools::DumpDbgMsg;

namespace {

// Trivial, so that it can still be asked while a thread's other variables are destroyed.
thread_local bool ownContextsGone = false;

}  // namespace

// The calling thread's contexts, one for each client that it has used. They are kept here as well
// as by the client: so a thread never inherits the context of a dead one that had its id, and what
// it holds of its context stays good when another thread disconnects. Such a context is only
// detached from the client, and attached again by the thread's next use.
class RpcClient::OwnContexts {
public:
    ~OwnContexts() { ownContextsGone = true; }

    // Null once the thread is ending.
    static OwnContexts* OfThisThread() {
        thread_local OwnContexts contexts;
        return ownContextsGone ? nullptr : &contexts;
    }

    // Null if there is none.
    ContextPtr Find(const std::shared_ptr<ClientTag>& client) {
        for (const Entry& entry : m_entries) {
            if (!entry.client.owner_before(client) && !client.owner_before(entry.client)) {
                return entry.context;
            }
        }
        return nullptr;
    }

    void Add(const std::shared_ptr<ClientTag>& client, const ContextPtr& context) {
        RemoveIf([](const Entry& entry) { return entry.client.expired(); });
        m_entries.push_back({client, context});
    }

    void Remove(const ContextPtr& context) {
        RemoveIf([&](const Entry& entry) { return entry.context == context; });
    }

private:
    struct Entry {
        std::weak_ptr<ClientTag> client;
        ContextPtr context;
    };

    template <typename Condition>
    void RemoveIf(Condition condition) {
        m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(), condition),
                        m_entries.end());
    }

    std::vector<Entry> m_entries;
};

RpcClient::CallContext* RpcClient::GetCallContext() {
    return OwnContext().get();
}

RpcClient::CallContext* RpcClient::GetCallContext(unsigned int id) {
    os::CAutoLock lock(&m_stateLock);
    return FindContext(id).get();
}

RpcCommandMuxer* RpcClient::GetCommandMuxer() {
    return GetCallContext()->GetMuxer();
}

RpcCommandDemuxer* RpcClient::GetCommandDemuxer() {
    return GetCallContext()->GetDemuxer();
}

void RpcClient::KeepForCall(std::shared_ptr<void> object) {
    OwnContext()->m_proxies.push_back(std::move(object));
}

void RpcClient::ForgetCommand() {
    const ContextPtr context = OwnContext();
    context->m_muxer->Reset();
    context->m_proxies.clear();
}

RpcClient::ContextPtr RpcClient::OwnContext() {
    ContextPtr context = FindOwnContext();
    if (context == nullptr) {
        context = std::make_shared<CallContext>();
        OwnContexts* const own = OwnContexts::OfThisThread();
        if (own != nullptr) {
            own->Add(m_tag, context);
        }
        Attach(context);
    } else if (context->m_detached) {
        Attach(context);
    }
    return context;
}

RpcClient::ContextPtr RpcClient::FindOwnContext() {
    OwnContexts* const own = OwnContexts::OfThisThread();
    if (own != nullptr) {
        return own->Find(m_tag);
    }
    os::CAutoLock lock(&m_stateLock);
    const auto found = m_callContexts.find(static_cast<unsigned long>(pthread_self()));
    return found == m_callContexts.end() ? nullptr : found->second;
}

void RpcClient::ForgetOwnContext() {
    OwnContexts* const own = OwnContexts::OfThisThread();
    if (own != nullptr) {
        own->Remove(own->Find(m_tag));
    }
}

void RpcClient::Attach(const ContextPtr& context) {
    ContextPtr former = context;  // of a dead thread that had this one's id
    os::CAutoLock lock(&m_stateLock);
    context->m_state = CallContext::State::Fresh;
    context->m_detached = false;
    m_callContexts[static_cast<unsigned long>(pthread_self())].swap(former);
}

RpcClient::ContextPtr RpcClient::FindContext(unsigned int id) {
    for (const auto& entry : m_callContexts) {
        const CallContext& context = *entry.second;
        const bool hasCalled = context.m_state != CallContext::State::Fresh &&
                               context.m_state != CallContext::State::Abandoned;
        if (hasCalled && !context.m_detached && context.m_id == id) {
            return entry.second;
        }
    }
    return nullptr;
}

bool RpcClient::Invoke(const char* functionName) {
    return Invoke(functionName, -1);
}

bool RpcClient::Invoke(const char* functionName, long timeoutMs) {
    const ContextPtr context = FindOwnContext();
    if (!IsConnected() || functionName == nullptr || functionName[0] == '\0') {
        if (context != nullptr && context->m_detached) {
            // It went with the connection that it was begun for.
            context->m_muxer->Reset();
            context->m_proxies.clear();
        }
        return false;
    }
    const ContextPtr own = OwnContext();  // held: a thread that is ending keeps it nowhere else
    return InvokeIn(own.get(), functionName, os::Deadline(timeoutMs));
}

bool RpcClient::IsConnected() const {
    os::CAutoLock lock(&m_stateLock);
    return m_streamer != nullptr;
}

bool RpcClient::InvokeIn(CallContext* context, const char* functionName,
                         const os::Deadline& deadline) {
    // Kept until the call has failed, or handed to its callback list.
    std::vector<std::shared_ptr<void>> proxies;
    proxies.swap(context->m_proxies);
    if (!m_writeTurn->Take(deadline)) {
        context->m_muxer->Reset();
        return false;
    }
    CallbackListPtr callbacks;
    const int size = PrepareCall(context, functionName, deadline.HasLimit());
    bool sent = false;
    if (size > 0) {
        callbacks = ListCallbacks(context, &proxies);
        DumpDbgMsg("RpcClient::Invoke(): Write command done(%s,%d,%lu).\n", functionName, size,
                   context->m_id);
        sent = WriteCall(context, size, deadline);
        EndWrite(context);
    }
    m_writeTurn->Give();
    if (sent) {
        AwaitResult(context, deadline);
    }
    if (!EndCall(context, callbacks)) {
        return false;
    }
    DumpDbgMsg("RpcClient::Invoke(): %s. Done\n", functionName);
    return true;
}

// Completes the command and puts the call in flight, with a reference on the streamer of its own.
// Returns the command's size, 0 if there is nothing to send.
int RpcClient::PrepareCall(CallContext* context, const char* functionName, bool isTimed) {
    os::CAutoLock lock(&m_stateLock);
    context->m_state = CallContext::State::Abandoned;
    context->m_id = m_nextId++;
    const int size = context->m_muxer->Finish(RPC_COMMAND_INVOKE, functionName,
                                              static_cast<unsigned int>(context->m_id));
    context->m_functionName = functionName;
    // A call with a time limit does not begin to wait for a reader that has ended already.
    const bool canSend = m_streamer != nullptr && !context->m_detached && (!isTimed || IsAlive());
    if (size <= 0 || !canSend || !m_streamer->Open()) {
        return 0;
    }
    context->m_streamer = m_streamer;
    context->m_isTimed = isTimed;
    context->m_state = CallContext::State::Writing;
    context->m_earlySize = 0;
    context->m_resultEvent->Reset();
    return size;
}

// The callback parameters of the command in the buffer, in their order: a position here is the
// index by which the server calls back. Null if there is none.
RpcClient::CallbackListPtr RpcClient::ListCallbacks(CallContext* context,
                                                    std::vector<std::shared_ptr<void>>* proxies) {
    const RpcCommandDemuxer& command = *context->m_demuxer;
    if (command.GetCommandCounts(RPC_PARAM_CALLBACK) == 0) {
        return nullptr;
    }
    auto list = std::make_shared<CallbackList>();
    for (int i = 0; i < command.GetCommandCounts(); ++i) {
        if (command.GetParamType(i) == RPC_PARAM_CALLBACK) {
            list->functions.push_back(command.Get<RpcCallbackContext>(i));
        }
    }
    list->proxies.swap(*proxies);
    return list;
}

// Holding the write turn. False if a call with a time limit need not wait for its result.
bool RpcClient::WriteCall(CallContext* context, int size, const os::Deadline& deadline) {
    ipc::IpcStreamer& streamer = *context->m_streamer;
    auto* const pipe = dynamic_cast<ipc::IpcStreamerPipeImpl*>(&streamer);
    if (pipe == nullptr) {
        // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): a call in flight has a streamer.
        (void)streamer.Write(context->m_buffer, size);
        return true;
    }
    const int written = pipe->WriteTimed(context->m_buffer, size, deadline.LeftMs());
    if (written > 0 && written < size) {
        // The server would take the next command for the rest of this one.
        m_isBroken = true;
        pipe->Interrupt();
    }
    // Without a limit a call waits also after a failed write: until the connection is ended.
    return written == size || !deadline.HasLimit();
}

// From here on the buffer is the result's. A quick server's result can be there already: the last
// bytes of a command can be read before the write that brings them has returned.
void RpcClient::EndWrite(CallContext* context) {
    os::CAutoLock lock(&m_stateLock);
    if (context->m_state != CallContext::State::Writing) {
        return;
    }
    context->m_state = CallContext::State::Sent;
    if (context->m_earlySize > 0) {
        PutResult(context, context->m_early, context->m_earlySize);
    }
}

// Until the call has its answer, cannot get one any more, or its time is over.
void RpcClient::AwaitResult(CallContext* context, const os::Deadline& deadline) {
    Step step = NextStep(context);
    while (step != Step::Leave) {
        const bool receives = step == Step::Receive;
        if (receives) {
            Receive(deadline);
        } else {
            (void)context->m_resultEvent->Wait(deadline.LeftMs());
        }
        step = deadline.IsOver() ? Step::Leave : NextStep(context);
        if (receives && step != Step::Leave) {
            WakeAnswered();  // otherwise EndCall does
        }
    }
}

RpcClient::Step RpcClient::NextStep(CallContext* context) {
    os::CAutoLock lock(&m_stateLock);
    if (!IsInFlight(*context)) {
        return Step::Leave;
    }
    if (CanReceive(context)) {
        return Step::Receive;
    }
    context->m_resultEvent->Reset();
    return Step::Wait;
}

// True with the turn in hand.
bool RpcClient::CanReceive(CallContext* context) {
    if (m_receivingEnded) {
        (void)GiveTurn(context);  // to nobody
        return false;
    }
    if (m_pipe == nullptr) {
        return false;  // The read of another kind of streamer knows no limit: only the reader's.
    }
    if (!context->m_hasTurn) {
        ++m_turnRequests;
        context->m_hasTurn = !m_turnTaken;
        m_turnTaken = true;
    }
    return context->m_hasTurn;
}

// Sent, without an answer yet, and one can still come.
bool RpcClient::IsInFlight(const CallContext& context) const {
    return context.m_state == CallContext::State::Sent && !context.m_detached &&
           (!context.m_isTimed || IsAlive());
}

// Returns whom to Wake then.
RpcClient::ContextPtr RpcClient::GiveTurn(CallContext* context) {
    if (!context->m_hasTurn) {
        return nullptr;
    }
    context->m_hasTurn = false;
    return PassTurn();
}

// Takes the call out of flight. True if it was answered; its callbacks are then registered.
bool RpcClient::EndCall(CallContext* context, const CallbackListPtr& callbacks) {
    ContextPtr next;
    bool answered = false;
    bool hasAnswered = false;  // calls of others
    {
        os::CAutoLock lock(&m_stateLock);
        if (context->m_streamer != nullptr) {
            context->m_streamer->Close();
            context->m_streamer = nullptr;
        }
        answered = context->m_state == CallContext::State::Answered && !context->m_detached;
        if (!answered) {
            // From here on a late result finds nobody, so it cannot overwrite the next command.
            context->m_state = CallContext::State::Abandoned;
        } else if (callbacks != nullptr) {
            StoreCallbacks(static_cast<unsigned int>(context->m_id), callbacks);
        }
        WakeCallbackThread();
        context->m_mustWake = false;
        hasAnswered = context->m_hasTurn && FindAnswered() != nullptr;
        next = GiveTurn(context);
    }
    Wake(next);
    if (hasAnswered) {
        WakeAnswered();
    }
    return answered;
}

// The message is written each time, whether or not a list was there.
void RpcClient::StoreCallbacks(unsigned int id, const CallbackListPtr& list) {
    m_callbackMap[id] = list;
    DumpDbgMsg("RpcClient::Invoke(): m_CallbackMap[%d] already set!\n", static_cast<int>(id));
}

}  // namespace kpl::rpc
