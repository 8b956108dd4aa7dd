#include "kpl/rpc/RpcFunctionTable.h"

#include "kpl/tools/DebugLog.h"
#include "rpc/CommandBuffer.h"

namespace kpl::rpc {

using tools::ForceDumpDbgMsg;

RpcRemoteCallback::RpcRemoteCallback(RpcCallback* callback, unsigned int id, int index)
    : m_callback(callback), m_id(id), m_index(index) {
    if (m_callback != nullptr) {
        m_callback->AddRef();
    }
}

RpcRemoteCallback::RpcRemoteCallback(const RpcRemoteCallback& other)
    : RpcRemoteCallback(other.m_callback, other.m_id, other.m_index) {}

RpcRemoteCallback& RpcRemoteCallback::operator=(const RpcRemoteCallback& other) {
    RpcRemoteCallback copy(other);
    std::swap(m_callback, copy.m_callback);
    std::swap(m_id, copy.m_id);
    std::swap(m_index, copy.m_index);
    return *this;
}

RpcRemoteCallback::~RpcRemoteCallback() {
    if (m_callback != nullptr) {
        m_callback->Release();
    }
}

bool RpcRemoteCallback::Send(RpcCommandMuxer* muxer) const {
    return m_callback != nullptr && m_callback->Send(muxer, m_id);
}

struct RpcFunctionTable::Private {
    std::map<std::string, Handler, std::less<>> functions;
    char buffer[kMaxCommandSize];
    RpcCommandMuxer result{buffer, kMaxCommandSize};
};

RpcFunctionTable::RpcFunctionTable() : m_private(new Private) {}

RpcFunctionTable::~RpcFunctionTable() = default;

bool RpcFunctionTable::Add(const char* name, Handler handler) {
    if (name == nullptr || name[0] == '\0') {
        return false;
    }
    return m_private->functions.emplace(name, std::move(handler)).second;
}

RpcCommandMuxer* RpcFunctionTable::Execute(RpcCommandDemuxer* demuxer, RpcCallback* callback) {
    const char* const name = demuxer->GetFunctionName();
    const auto found =
        name != nullptr ? m_private->functions.find(name) : m_private->functions.end();
    if (found == m_private->functions.end()) {
        return nullptr;
    }
    RpcCommandMuxer* const result = &m_private->result;
    result->Reset();
    const Outcome outcome = found->second(*demuxer, callback, result);
    if (outcome != Outcome::Done) {
        ForceDumpDbgMsg("RpcFunctionTable::Execute(): ????? %s(): %s\n", name,
                        outcome == Outcome::ArgumentsDoNotFit ? "the arguments do not fit"
                                                              : "the result does not fit");
        result->Reset();
    }
    (void)result->Finish(RPC_COMMAND_RESULT, nullptr, demuxer->GetId());
    return result;
}

}  // namespace kpl::rpc
