#ifndef KPL_IPC_IPCSERVER_H_
#define KPL_IPC_IPCSERVER_H_

#include "kpl/Export.h"
#include "kpl/ipc/IpcStreamer.h"

namespace kpl::ipc {

// The application's side of an IPC server. Not owned by the server.
class KPL_EXPORT IpcServerObserver {
public:
    // The server started under `name`. The thread that started it.
    virtual void ServerOpened(const char* name) = 0;

    // A client announced itself. Return true to take `streamer` over: to use it call Open here,
    // which completes the connection, and Close once when Read has returned 0 or the work is done.
    // Return false to refuse it. Never delete it. The server's accept thread: no other client is
    // accepted meanwhile.
    virtual bool ClientAccepted(IpcStreamer* streamer) = 0;

    // The server stopped. The thread that stopped it.
    virtual void ServerClosed() = 0;

    virtual ~IpcServerObserver() = default;
};

// A named IPC server.
class KPL_EXPORT IpcServer {
public:
    // Starts under `name` and begins to accept clients. False for a null or empty name, and when
    // the transport cannot start or no thread can be made; observers that were told of the start
    // are then told of the end. `param` is only kept. Controlling thread.
    virtual bool Start(const char* name, void* param) = 0;

    // Stops accepting and tells the observers. False when the transport refuses to stop.
    // Controlling thread, never an observer.
    virtual bool Stop() = 0;

    // False for null and for an observer that is registered already. Any thread.
    virtual bool RegisterObserver(IpcServerObserver* observer) = 0;

    // Once it returns, the observer is called no more: it waits for a call that runs on another
    // thread. Null and unknown ones are ignored. Any thread.
    virtual void UnregisterObserver(IpcServerObserver* observer) = 0;

    // What the last Start was given; empty and null before the first.
    virtual const char* GetServerName() = 0;
    virtual void* GetParameter() = 0;

    virtual ~IpcServer() = default;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCSERVER_H_
