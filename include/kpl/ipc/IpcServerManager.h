#ifndef KPL_IPC_IPCSERVERMANAGER_H_
#define KPL_IPC_IPCSERVERMANAGER_H_

#include "kpl/Export.h"
#include "kpl/ipc/IpcServer.h"

namespace kpl::ipc {

// The process's IPC servers by name. Any thread; observers and servers are never called under its
// lock. An observer does not stop its own server.
class KPL_EXPORT IpcServerManager {
public:
    // The only one; never null.
    static IpcServerManager* GetInstance();

    // Starts a server of that kind: 0 is FIFOs. False for a null or empty name, another kind, a
    // name that is in use (the running server goes on), and when the server cannot start.
    bool StartServer(const char* name, int kind, void* param);

    // Stops and deletes the server. False if there is none of that name, or its Stop failed; it is
    // gone all the same.
    bool StopServer(const char* name);

    // StopServer for every one there is.
    void StopAllServers();

    // Waits `timeout` milliseconds, -1 without limit, until all servers have been stopped. That
    // happens once: from the first time on, every wait returns at once, also after new starts.
    void WaitForAllServerStop(int timeout);

    // Register with the server of that name. RegisterObserver returns false if there is none, and
    // where that server does. A client that connects between the start and this call is not offered
    // to the observer; RpcServer::Start has no such gap.
    bool RegisterObserver(const char* name, IpcServerObserver* observer);
    void UnregisterObserver(const char* name, IpcServerObserver* observer);

    IpcServerManager(const IpcServerManager&) = delete;
    IpcServerManager& operator=(const IpcServerManager&) = delete;

private:
    class PrivateImpl;

    IpcServerManager();
    ~IpcServerManager();

    PrivateImpl* m_impl;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCSERVERMANAGER_H_
