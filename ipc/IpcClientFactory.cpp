#include "kpl/ipc/IpcClientFactory.h"

#include <algorithm>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

IpcClientFactory* IpcClientFactory::GetInstance() {
    static IpcClientFactory instance;
    return &instance;
}

IpcClientFactory::IpcClientFactory() {
    DumpDbgMsg("IpcClientFactory::IpcClientFactory(): ....\n");
}

// Runs at process exit, when no other thread uses the factory any more.
IpcClientFactory::~IpcClientFactory() {
    os::CAutoLock lock(&m_lock);
    for (IpcClient* client : m_clients) {
        // "%p" brings a "0x" of its own: the doubled one has always been there.
        ForceDumpDbgMsg("IpcClientFactory::~IpcClientFactory(): Memory leak (0x%p)\n",
                        static_cast<void*>(client));
        delete client;
    }
    DumpDbgMsg("IpcClientFactory::~IpcClientFactory(): ....\n");
}

IpcClient* IpcClientFactory::Create(int kind) {
    if (kind != 0) {
        ForceDumpDbgMsg("IpcClientFactory::Create(): ??????? Invalid implementation(%d)\n", kind);
        return nullptr;
    }
    IpcClient* client = new IpcClientPipeImpl;
    os::CAutoLock lock(&m_lock);
    m_clients.push_back(client);
    return client;
}

void IpcClientFactory::Destroy(IpcClient* client) {
    if (client == nullptr) {
        ForceDumpDbgMsg("IpcClientFactory::Destroy(): ??????? NULL pointer\n");
        return;
    }
    // Deleted outside the lock: a disconnect may take its time.
    if (Remove(client)) {
        delete client;
    }
}

bool IpcClientFactory::Remove(IpcClient* client) {
    os::CAutoLock lock(&m_lock);
    const auto found = std::find(m_clients.begin(), m_clients.end(), client);
    if (found == m_clients.end()) {
        return false;
    }
    m_clients.erase(found);
    return true;
}

}  // namespace kpl::ipc
