#ifndef KPL_IPC_IPCCLIENTPIPEIMPL_H_
#define KPL_IPC_IPCCLIENTPIPEIMPL_H_

#include <memory>

#include "kpl/Export.h"
#include "kpl/ipc/IpcClient.h"
#include "kpl/os/CCritSec.h"

namespace kpl::os {
class Deadline;
}  // namespace kpl::os

namespace kpl::ipc {

class Breaker;
class IpcStreamerPipeImpl;

// The client over FIFOs: it announces itself with a random connection id on the server's Root FIFO
// and then meets the server on the two FIFOs of that connection. It draws another id when the
// connection turns out to be another client's.
class KPL_EXPORT IpcClientPipeImpl : public IpcClient {
public:
    IpcClientPipeImpl();
    ~IpcClientPipeImpl() override;  // disconnects
    IpcClientPipeImpl(const IpcClientPipeImpl&) = delete;
    IpcClientPipeImpl& operator=(const IpcClientPipeImpl&) = delete;

    // Waits without limit while the Root FIFO exists and nobody reads it, and then until the server
    // has opened its ends. `param` is not used.
    bool Connect(const char* serverName, void* param) override;
    void Disconnect() override;
    IpcStreamer* GetStreamer() override;

    // Connect that gives up after `timeoutMs` milliseconds and removes what it made; negative waits
    // without limit.
    bool Connect(const char* serverName, void* param, long timeoutMs);

    // Makes a running Connect, and every later one, return false. Any thread.
    void CancelConnect();

private:
    enum class Outcome { Connected, Failed, IdInUse };

    Outcome ConnectOnce(const char* serverName, const char* rootPath, const os::Deadline& deadline);
    bool Announce(int rootDescriptor, int id, long timeoutMs);
    Outcome OpenConnection(const char* serverName, int id, long timeoutMs);
    bool EndOpening();

    IpcStreamer* m_streamer;

    const std::unique_ptr<Breaker> m_breaker;
    os::CCritSec m_openingLock;
    IpcStreamerPipeImpl* m_opening KPL_GUARDED_BY(m_openingLock) = nullptr;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCCLIENTPIPEIMPL_H_
