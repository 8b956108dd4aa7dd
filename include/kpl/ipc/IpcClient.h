#ifndef KPL_IPC_IPCCLIENT_H_
#define KPL_IPC_IPCCLIENT_H_

#include "kpl/Export.h"
#include "kpl/ipc/IpcStreamer.h"

namespace kpl::ipc {

// The client's end of an IPC connection. Made and destroyed by IpcClientFactory.
// One thread at a time.
class KPL_EXPORT IpcClient {
public:
    // Connects to the server of that name. False for a null or empty name, one too long for a FIFO
    // path, and when the server is not there or does not take the connection.
    virtual bool Connect(const char* serverName, void* param) = 0;

    // Ends the connection; nothing happens without one.
    virtual void Disconnect() = 0;

    // The connection's stream, null when not connected. Owned by the client; whoever uses it beyond
    // Disconnect opens it, which adds a reference, and closes it.
    virtual IpcStreamer* GetStreamer() = 0;

    virtual ~IpcClient() = default;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCCLIENT_H_
