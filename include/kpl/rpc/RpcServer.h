#ifndef KPL_RPC_RPCSERVER_H_
#define KPL_RPC_RPCSERVER_H_

#include <memory>

#include "kpl/Export.h"
#include "kpl/ipc/IpcServer.h"

namespace kpl::rpc {

// Serves RPC clients: reads their commands, has them executed by the executors registered with
// RpcExecutorManager, and writes the results. One thread per connection, on which the executors run
// too and which has SIGPIPE blocked; one more for a connection whose client does not take what is
// sent.
//
// Either Start gives it a server of its own, or it is registered as an observer with one server
// that runs elsewhere (IpcServerManager), and unregistered before it dies.
//
// Bad bytes end their own connection, with one message. A command that no executor answers, or
// whose result is larger than 16384 bytes, gets a result without parameters.
class KPL_EXPORT RpcServer : public ipc::IpcServerObserver {
public:
    RpcServer();
    ~RpcServer() override;  // stops
    RpcServer(const RpcServer&) = delete;
    RpcServer& operator=(const RpcServer&) = delete;

    // Starts a server of its own under `name`. False for a null or empty name, one that is too long
    // for a FIFO path, when the FIFO cannot be made, and when already started. Controlling thread.
    bool Start(const char* name, void* param);

    // Ends every connection and, after Start, the server. Waits for executors that run: after one
    // second with a message for each that names the server, the connection and the function.
    // Clients are refused from then on, until the next start. Returns true if a server was stopped.
    // Controlling thread, never an executor.
    bool Stop();

    // Any thread.
    int GetConnectionCount() const;

    // How long a client may take to accept one result or callback before it is given up, and to
    // open its side of a connection that it has announced, in milliseconds; both 5000 at first,
    // negative means no limit. For connections made from now on. Any thread.
    void SetWriteTimeout(int ms);
    void SetOpenTimeout(int ms);

    // The observer's side, called by the server. ClientAccepted takes FIFO connections only.
    void ServerOpened(const char* name) override;
    bool ClientAccepted(ipc::IpcStreamer* streamer) override;
    void ServerClosed() override;

private:
    class PrivateImpl;

    const std::unique_ptr<PrivateImpl> m_impl;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCSERVER_H_
