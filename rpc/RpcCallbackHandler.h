#ifndef KPL_RPC_RPCCALLBACKHANDLER_H_
#define KPL_RPC_RPCCALLBACKHANDLER_H_

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

    // Queues a copy of the command. Any thread.
    void Post(const char* bytes, int size);

    bool Execute(CallbackContext command) override;
    void OnCommandDone(CallbackContext command) override;

private:
    tools::CommandQueue<CallbackContext> m_queue;
    RpcClient* const m_client;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCALLBACKHANDLER_H_
