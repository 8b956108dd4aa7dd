#ifndef KPL_RPC_RPCCALLBACKHANDLER_H_
#define KPL_RPC_RPCCALLBACKHANDLER_H_

#include <atomic>

#include "kpl/rpc/RpcClient.h"
#include "kpl/tools/CommandProcessor.h"

namespace kpl::rpc {

// A copy of one callback command. The queue's entry owns the array.
struct CallbackContext {
    char* data;
    int size;
};

// Runs the callbacks of one client, in the order in which they arrived, on the queue's thread.
class RpcClient::CallbackHandler : public tools::CommandProcessor<CallbackContext> {
public:
    explicit CallbackHandler(RpcClient* client) : m_queue(this), m_client(client) {}

    // Waits for a callback that runs; those that wait are dropped.
    ~CallbackHandler() override;

    // The most bytes of commands that may wait: a server that sends more than the application takes
    // must not fill its memory.
    static constexpr int kMaxQueuedBytes = 16 * 1024 * 1024;

    // Queues a copy of the command. False when too many wait already. The reader thread.
    bool Post(const char* bytes, int size);

    bool Execute(CallbackContext command) override;
    void OnCommandDone(CallbackContext command) override;

private:
    std::atomic<int> m_queuedBytes{0};
    tools::CommandQueue<CallbackContext> m_queue;
    RpcClient* const m_client;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCALLBACKHANDLER_H_
