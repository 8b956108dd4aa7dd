#include "kpl/rpc/RpcExecutorManager.h"

#include <string.h>

#include <algorithm>
#include <vector>

#include "kpl/os/CCritSec.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::rpc {

struct RpcExecutorManager::Private {
    using Executors = std::vector<RpcExecutor*>;

    Executors::iterator Find(RpcExecutor* executor) KPL_REQUIRES(lock) {
        return std::find(executors.begin(), executors.end(), executor);
    }

    // The result of the first executor that accepts the command; null if none does.
    RpcCommandMuxer* Ask(RpcCommandDemuxer* demuxer, RpcCallback* callback) KPL_REQUIRES(lock) {
        for (RpcExecutor* executor : executors) {
            RpcCommandMuxer* result = executor->Execute(demuxer, callback);
            if (result != nullptr) {
                return result;
            }
        }
        return nullptr;
    }

    Executors executors KPL_GUARDED_BY(lock);  // in the order of registration, not owned
    os::CCritSec lock;
};

namespace {

const char* Printable(const char* name) {
    return name != nullptr ? name : "(null)";
}

void DumpResult(char* buf, int size, const char* name) {
    RpcCommandDemuxer(buf, size).Dump();
    tools::ForceDumpDbgMsg("RpcExecutorManager::Execute(): (%s) Done\n", name);
}

// Copies the finished result; returns its size, or -1 if it does not fit.
int CopyResult(const RpcCommandMuxer& result, const char* name, char* buf, int bufLen) {
    const int size = result.GetFinishedSize();
    if (bufLen < size) {
        tools::ForceDumpDbgMsg(
            "RpcExecutorManager::Execute(): ??????????? ERROR: (Func=%s)(ReturnLen=%d)Buffer too "
            "small\n",
            name, size);
        return -1;
    }
    if (size > 0) {
        memmove(buf, result.GetBuffer(), static_cast<size_t>(size));
    }
    if (tools::IsDumpLogEnabled()) {
        DumpResult(buf, size, name);
    }
    return size;
}

}  // namespace

RpcExecutorManager::RpcExecutorManager() : m_private(new Private) {}

RpcExecutorManager::~RpcExecutorManager() {
    delete m_private;
}

RpcExecutorManager* RpcExecutorManager::GetInstance() {
    static RpcExecutorManager instance;
    return &instance;
}

bool RpcExecutorManager::RegisterExecutor(RpcExecutor* executor) {
    os::CAutoLock lock(&m_private->lock);
    auto& executors = m_private->executors;
    if (executor == nullptr || m_private->Find(executor) != executors.end()) {
        return false;
    }
    executors.push_back(executor);
    return true;
}

bool RpcExecutorManager::UnregisterExecutor(RpcExecutor* executor) {
    os::CAutoLock lock(&m_private->lock);
    const auto found = m_private->Find(executor);
    if (found == m_private->executors.end()) {
        return false;
    }
    m_private->executors.erase(found);
    return true;
}

int RpcExecutorManager::Execute(RpcCommandDemuxer* demuxer, RpcCallback* callback, char* buf,
                                int bufLen) {
    if (demuxer == nullptr || buf == nullptr || bufLen < 1) {
        tools::ForceDumpDbgMsg(
            "RpcExecutorManager::Execute(): ??????????? WARNING: Invalid "
            "argument(demuxer=%p,buf=%p,bufLen=%d)\n",
            static_cast<void*>(demuxer), static_cast<void*>(buf), bufLen);
        return -1;
    }
    os::CAutoLock lock(&m_private->lock);
    const char* name = Printable(demuxer->GetFunctionName());
    demuxer->Dump();
    const RpcCommandMuxer* result = m_private->Ask(demuxer, callback);
    if (result == nullptr) {
        tools::ForceDumpDbgMsg(
            "RpcExecutorManager::Execute(): ??????????? ERROR: Cannot find function(%s)\n", name);
        return -1;
    }
    return CopyResult(*result, name, buf, bufLen);
}

}  // namespace kpl::rpc
