#ifndef KPL_RPC_RPCEXECUTORMANAGER_H_
#define KPL_RPC_RPCEXECUTORMANAGER_H_

#include "kpl/Export.h"
#include "kpl/rpc/RpcExecutor.h"

namespace kpl::rpc {

// The process's registry of executors. One lock serialises registration and execution: at most one
// command is executed at a time in the whole process.
class KPL_EXPORT RpcExecutorManager {
public:
    // The single instance, made by the first call and destroyed when the process exits. Any thread.
    static RpcExecutorManager* GetInstance();

    RpcExecutorManager(const RpcExecutorManager&) = delete;
    RpcExecutorManager& operator=(const RpcExecutorManager&) = delete;

    // Appends `executor`, which is not owned and must be unregistered before it dies. Returns false
    // if it is already there, or null. Any thread, but not from inside an executor.
    bool RegisterExecutor(RpcExecutor* executor);

    // Removes `executor`; the others keep their order. Returns false if it is not there. It is not
    // running any more once this returns. Any thread, but not from inside an executor.
    bool UnregisterExecutor(RpcExecutor* executor);

    // Offers the command to the executors in the order of their registration and copies the result
    // of the first that accepts it to `buf`, which must not be the command's own buffer. Returns
    // the result's size in bytes, or -1, with a message, for a null `demuxer` or `buf`, a `bufLen`
    // below 1, a function that nobody knows, or a result that is larger than `bufLen`. `callback`
    // is passed on as it is and may be null. Any thread, but not from inside an executor.
    int Execute(RpcCommandDemuxer* demuxer, RpcCallback* callback, char* buf, int bufLen);

private:
    struct Private;

    RpcExecutorManager();
    ~RpcExecutorManager();

    Private* m_private;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCEXECUTORMANAGER_H_
