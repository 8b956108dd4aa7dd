// What a serving process implements, and what it may answer with besides a result.
#ifndef KPL_RPC_RPCEXECUTOR_H_
#define KPL_RPC_RPCEXECUTOR_H_

#include "kpl/Export.h"

namespace kpl::rpc {

class RpcCommandDemuxer;
class RpcCommandMuxer;

// The way back to the client that made a call. It belongs to the connection layer, which passes it
// to the executor; an executor that keeps it past the call holds a reference.
class KPL_EXPORT RpcCallback {
public:
    // Finishes the parameters pushed into `muxer` as a callback command with the call's `id` and
    // writes it. Parameter 0 must be an int: the position of the callback among the callback
    // parameters of the call. Returns false once the client has gone. Any thread.
    virtual bool Send(RpcCommandMuxer* muxer, unsigned int id) = 0;

    // Keeps the object for events that are reported after the call has returned. Any thread.
    virtual void AddRef() = 0;

    // Gives one reference back; the last one may destroy the object. Any thread.
    virtual void Release() = 0;

protected:
    // Only by Release.
    virtual ~RpcCallback() = default;
};

// Knows some set of functions and runs them.
class KPL_EXPORT RpcExecutor {
public:
    // Looks at the command, normally at its function name. Returns null if the function is not one
    // of its own; otherwise runs it and returns a muxer that holds the finished result (type
    // RPC_COMMAND_RESULT, id of the command). The executor owns the muxer and keeps it, and its
    // buffer, until its next call; the buffer must not be the command's. `callback` may be null.
    // Called with the registry's lock held: it must not use the registry itself, nor wait for a
    // thread that does.
    virtual RpcCommandMuxer* Execute(RpcCommandDemuxer* demuxer, RpcCallback* callback) = 0;

    virtual ~RpcExecutor() = default;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCEXECUTOR_H_
