#ifndef KPL_IPC_IPCCLIENTFACTORY_H_
#define KPL_IPC_IPCCLIENTFACTORY_H_

#include <vector>

#include "kpl/Export.h"
#include "kpl/ipc/IpcClient.h"
#include "kpl/os/CCritSec.h"

namespace kpl::ipc {

// The process's one maker of IPC clients; it owns them until they are given back. Any thread.
class KPL_EXPORT IpcClientFactory {
public:
    // The only one; never null.
    static IpcClientFactory* GetInstance();

    // A new client of that kind: 0 is FIFOs. Null for any other kind.
    IpcClient* Create(int kind);

    // Disconnects and deletes a client that Create made. Any other pointer is ignored.
    void Destroy(IpcClient* client);

    IpcClientFactory(const IpcClientFactory&) = delete;
    IpcClientFactory& operator=(const IpcClientFactory&) = delete;

private:
    IpcClientFactory();
    ~IpcClientFactory();
    bool Remove(IpcClient* client);

    os::CCritSec m_lock;
    std::vector<IpcClient*> m_clients KPL_GUARDED_BY(m_lock);  // in the order of creation
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCCLIENTFACTORY_H_
