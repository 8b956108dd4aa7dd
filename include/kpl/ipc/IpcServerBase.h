#ifndef KPL_IPC_IPCSERVERBASE_H_
#define KPL_IPC_IPCSERVERBASE_H_

#include "kpl/Export.h"
#include "kpl/ipc/IpcServer.h"

namespace kpl::ipc {

// What every IPC server does whatever its transport: name, observers, and the accept loop on a
// thread of its own. A transport derives from it and supplies the hooks.
class KPL_EXPORT IpcServerBase : public IpcServer {
public:
    IpcServerBase();

    // Stops accepting if that still runs, without calling any hook. A transport whose hooks need
    // its own members calls StopAcceptClient() in its own destructor.
    ~IpcServerBase() override;
    IpcServerBase(const IpcServerBase&) = delete;
    IpcServerBase& operator=(const IpcServerBase&) = delete;

    bool Start(const char* name, void* param) override;
    bool Stop() override;
    bool RegisterObserver(IpcServerObserver* observer) override;
    void UnregisterObserver(IpcServerObserver* observer) override;
    const char* GetServerName() override;
    void* GetParameter() override;

    // Opens the transport under `name`. Controlling thread.
    virtual bool DoStart(const char* name, void* param) = 0;

    // Closes the transport and releases a blocked DoAccept. Controlling thread.
    virtual bool DoStop() = 0;

    // Waits for a client. Null when there is none this time. Accept thread.
    virtual IpcStreamer* DoAccept() = 0;

    // Takes back a streamer that an observer refused. Accept thread.
    virtual void FreeIpcStreamer(IpcStreamer* streamer) = 0;

    // True once DoStop was called: a DoAccept without a client then ends the loop. Accept thread.
    virtual bool IsShutdownServer() = 0;

    // Called by Stop once the accept thread has ended: what it may have been using can go.
    // Controlling thread.
    virtual void DoStopped() {}

    // Tell every observer, in the order of registration. NotifyAccepted stops at the first that
    // refuses and returns false; it returns true when all accepted, or there is none.
    void NotifyOpened(const char* name);
    bool NotifyAccepted(IpcStreamer* streamer);
    void NotifyClosed();

protected:
    // Joins the accept thread if there is one. Controlling thread.
    void StopAcceptClient();

    // True from Start until the accept thread was joined. Controlling thread.
    bool IsAccepting() const;

private:
    class PrivateImpl;

    PrivateImpl* m_impl;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCSERVERBASE_H_
