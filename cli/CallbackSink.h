#ifndef KPL_CLI_CALLBACKSINK_H_
#define KPL_CLI_CALLBACKSINK_H_

#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "cli/Param.h"
#include "kpl/rpc/RpcParam.h"

namespace kpl::cli {

// What a callback parameter leads to: it keeps what the server sends, without the callback's
// number, until it is taken. The client keeps it alive (RpcClient::KeepForCall). Any thread.
class CallbackSink {
public:
    // Keeps at most `limit` at a time; what comes beyond is dropped.
    explicit CallbackSink(size_t limit);
    ~CallbackSink();
    CallbackSink(const CallbackSink&) = delete;
    CallbackSink& operator=(const CallbackSink&) = delete;

    rpc::RpcCallbackContext Context();

    // The oldest that has come.
    std::optional<Params> Take();

    // Readable while there is something to take; -1 if the process has no descriptor left.
    int Descriptor() const { return m_event; }

private:
    static void Run(void* sink, rpc::RpcCommandDemuxer* command);

    const size_t m_limit;
    const int m_event;  // an eventfd that counts m_arrived
    std::mutex m_lock;
    std::deque<Params> m_arrived;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_CALLBACKSINK_H_
