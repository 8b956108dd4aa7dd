#include "rpc/RpcCallbackHandler.h"

#include <string.h>

#include "kpl/tools/DebugLog.h"

namespace kpl::rpc {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

RpcClient::CallbackHandler::~CallbackHandler() {
    m_queue.Stop();  // While this object can still take the drained commands back.
}

bool RpcClient::CallbackHandler::Post(const char* bytes, int size) {
    if (m_queuedBytes > kMaxQueuedBytes - size) {
        return false;
    }
    m_queuedBytes += size;
    char* const copy = new char[static_cast<size_t>(size)];
    memcpy(copy, bytes, static_cast<size_t>(size));
    m_queue.Post({copy, size});
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the queue's entry owns it.
    return true;
}

bool RpcClient::CallbackHandler::Execute(CallbackContext command) {
    RpcCommandDemuxer demuxer(command.data, command.size);
    if (demuxer.IsValidCommand() && demuxer.GetCommandType() == RPC_COMMAND_CALLBACK) {
        m_client->RunCallback(&demuxer);
    }
    return true;  // Whatever became of it, the next one's turn comes.
}

void RpcClient::CallbackHandler::OnCommandDone(CallbackContext command) {
    delete[] command.data;
    m_queuedBytes -= command.size;
}

void RpcClient::RunCallback(RpcCommandDemuxer* command) {
    const unsigned int id = command->GetId();
    const int index = command->Get<int>(0);
    DumpDbgMsg("RpcClient::CallbackHandler::Execute(): Callback, Demuxed ID(%d), Index(%d).\n",
               static_cast<int>(id), index);
    // Held while the function runs: it keeps the proxies even if the connection ends meanwhile.
    const CallbackListPtr list = AwaitCallbacks(id);
    if (list == nullptr) {
        return;
    }
    const int size = static_cast<int>(list->functions.size());
    if (index < 0 || index >= size) {
        ForceDumpDbgMsg(
            "RpcClient::CallbackHandler::Execute(): ????? Out of boundary. ID(%d), Index(%d), List "
            "size(%d).\n",
            static_cast<int>(id), index, size);
        return;
    }
    const RpcCallbackContext& callback = list->functions[static_cast<size_t>(index)];
    void* const proxy = callback.GetProxy();
    const RpcCallbackContext::Function function = callback.GetFunction();
    if (proxy == nullptr || function == nullptr) {
        ForceDumpDbgMsg(
            "RpcClient::CallbackHandler::Execute(): ????? Invalid callback proxy(%p, %p). "
            "ID(%d).\n",
            proxy, reinterpret_cast<void*>(function), static_cast<int>(id));
        return;
    }
    function(proxy, command);
    DumpDbgMsg("RpcClient::CallbackHandler::Execute(): Callback Done.\n");
}

RpcClient::CallbackListPtr RpcClient::FindCallbacks(unsigned int id) {
    const auto found = m_callbackMap.find(id);
    return found == m_callbackMap.end() ? nullptr : found->second;
}

// A callback can be here before its call's Invoke has registered the list: then that is waited for.
// The wait ends with the call, or when the connection ends. Null if there is no list after all.
RpcClient::CallbackListPtr RpcClient::AwaitCallbacks(unsigned int id) {
    ContextPtr context;
    {
        os::CAutoLock lock(&m_stateLock);
        CallbackListPtr list = FindCallbacks(id);
        if (list != nullptr) {
            return list;
        }
        context = FindContext(id);
    }
    ForceDumpDbgMsg(
        "RpcClient::CallbackHandler::Execute(): ????? Cannot find callback list! ID(%d), "
        "Context(%p)\n",
        static_cast<int>(id), static_cast<void*>(context.get()));
    CallbackListPtr list = AwaitEnd(id);
    if (list == nullptr) {
        ForceDumpDbgMsg(
            "RpcClient::CallbackHandler::Execute(): ????? Cannot find callback list! ID(%d). Skip "
            "this callback\n",
            static_cast<int>(id));
    }
    return list;
}

// What the call's Invoke has registered, once that has finished.
RpcClient::CallbackListPtr RpcClient::AwaitEnd(unsigned int id) {
    for (;;) {
        {
            os::CAutoLock lock(&m_stateLock);
            CallbackListPtr list = FindCallbacks(id);
            if (list != nullptr || !IsUnderWay(id)) {
                return list;
            }
            m_callbackThreadWaits = true;
            m_callEnded.Reset();
        }
        m_callEnded.Wait(-1);
    }
}

// In flight, that is: with a reference of its own on the streamer.
bool RpcClient::IsUnderWay(unsigned int id) {
    const ContextPtr context = FindContext(id);
    return context != nullptr && context->m_streamer != nullptr;
}

// After whatever may have ended a call.
void RpcClient::WakeCallbackThread() {
    if (m_callbackThreadWaits) {
        m_callbackThreadWaits = false;
        m_callEnded.Set();
    }
}

}  // namespace kpl::rpc
