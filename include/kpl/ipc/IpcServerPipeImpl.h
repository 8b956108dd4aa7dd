#ifndef KPL_IPC_IPCSERVERPIPEIMPL_H_
#define KPL_IPC_IPCSERVERPIPEIMPL_H_

#include "kpl/Export.h"
#include "kpl/ipc/IpcServerBase.h"

namespace kpl::ipc {

// The IPC server over FIFOs: it reads announcements from its Root FIFO, makes the server's end of a
// connection for each, and offers it to the observers. It holds one reference on every connection
// until an accept step finds it idle (never opened, or closed by its observer) or the server stops.
class KPL_EXPORT IpcServerPipeImpl : public IpcServerBase {
public:
    IpcServerPipeImpl();

    // Shuts down a server that still runs, without telling the observers.
    ~IpcServerPipeImpl() override;

    // Makes the Root FIFO, or takes over an existing one. False for a null or empty name, one that
    // is too long for a FIFO path, when the FIFO cannot be made, and while the server runs.
    bool DoStart(const char* name, void* param) override;

    // Ends every wait of the accept thread and of an observer that opens a connection, gives up the
    // server's references and removes the Root FIFO. Always true.
    bool DoStop() override;

    // One accept step: the next announced connection, not yet opened, or null.
    IpcStreamer* DoAccept() override;
    void FreeIpcStreamer(IpcStreamer* streamer) override;
    bool IsShutdownServer() override;
    void DoStopped() override;

private:
    class PrivateImpl;

    PrivateImpl* m_impl;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCSERVERPIPEIMPL_H_
