#include "kpl/ipc/IpcServerManager.h"

#include <map>
#include <memory>
#include <string>

#include "kpl/ipc/IpcServerPipeImpl.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;

namespace {

bool IsName(const char* name) {
    return name != nullptr && name[0] != '\0';
}

}  // namespace

// The lock guards the table only. A server is started and stopped without it: both call observers.
// Meanwhile its entry stays, marked busy, so that the name cannot be taken, and nobody else stops
// it. Servers are shared with an observer registration that runs at the same time.
class IpcServerManager::PrivateImpl {
public:
    using ServerPtr = std::shared_ptr<IpcServer>;

    // Takes the name for a server that is about to start. False if it is in use.
    bool Reserve(const std::string& name) {
        os::CAutoLock lock(&m_lock);
        return m_servers.emplace(name, Entry{nullptr, true}).second;
    }

    void Started(const std::string& name, const ServerPtr& server) {
        os::CAutoLock lock(&m_lock);
        m_servers[name] = Entry{server, false};
    }

    void Remove(const std::string& name) {
        os::CAutoLock lock(&m_lock);
        m_servers.erase(name);
    }

    // Hands out a server to be stopped; null if there is none or somebody else is at it.
    ServerPtr BeginStop(const std::string& name) {
        os::CAutoLock lock(&m_lock);
        const auto found = m_servers.find(name);
        if (found == m_servers.end() || found->second.busy) {
            return nullptr;
        }
        found->second.busy = true;
        return found->second.server;
    }

    // The same for the first name after `after` that can be stopped.
    ServerPtr BeginStopNext(const std::string& after, std::string* name) {
        os::CAutoLock lock(&m_lock);
        for (auto next = m_servers.upper_bound(after); next != m_servers.end(); ++next) {
            if (!next->second.busy) {
                next->second.busy = true;
                *name = next->first;
                return next->second.server;
            }
        }
        return nullptr;
    }

    // Returns true if that was the last one.
    bool EndStop(const std::string& name) {
        os::CAutoLock lock(&m_lock);
        m_servers.erase(name);
        return m_servers.empty();
    }

    ServerPtr Find(const char* name) {
        os::CAutoLock lock(&m_lock);
        const auto found = m_servers.find(name);
        return found == m_servers.end() ? nullptr : found->second.server;
    }

    os::CEvent allStopped{false};  // never reset

private:
    struct Entry {
        ServerPtr server;   // null until it has started
        bool busy = false;  // being started or stopped
    };

    os::CCritSec m_lock;
    std::map<std::string, Entry> m_servers KPL_GUARDED_BY(m_lock);
};

IpcServerManager* IpcServerManager::GetInstance() {
    static IpcServerManager instance;
    return &instance;
}

IpcServerManager::IpcServerManager() : m_impl(new PrivateImpl) {
    DumpDbgMsg("IpcServerManager::IpcServerManager(): .....\n");
}

IpcServerManager::~IpcServerManager() {
    StopAllServers();
    delete m_impl;
    DumpDbgMsg("IpcServerManager::~IpcServerManager(): .....\n");
}

bool IpcServerManager::StartServer(const char* name, int kind, void* param) {
    if (!IsName(name)) {
        return false;
    }
    DumpDbgMsg("IpcServerManager::StartServer(): %s(%d-%p)\n", name, kind, param);
    if (kind != 0) {
        return false;
    }
    // A name in use is refused: both servers would share one Root FIFO, and the old one's stop
    // would remove the new one's.
    if (!m_impl->Reserve(name)) {
        return false;
    }
    const auto server = std::make_shared<IpcServerPipeImpl>();
    if (!server->Start(name, param)) {
        m_impl->Remove(name);
        return false;
    }
    m_impl->Started(name, server);
    return true;
}

bool IpcServerManager::StopServer(const char* name) {
    if (!IsName(name)) {
        return false;
    }
    DumpDbgMsg("IpcServerManager::StopServer(): %s\n", name);
    PrivateImpl::ServerPtr server = m_impl->BeginStop(name);
    if (server == nullptr) {
        return false;
    }
    const bool stopped = server->Stop();
    server.reset();
    if (m_impl->EndStop(name)) {
        m_impl->allStopped.Set();
    }
    return stopped;
}

void IpcServerManager::StopAllServers() {
    DumpDbgMsg("IpcServerManager::StopAllServers(): ....\n");
    std::string name;
    while (PrivateImpl::ServerPtr server = m_impl->BeginStopNext(name, &name)) {
        const void* address = server.get();
        DumpDbgMsg("IpcServerManager::StopAllServers(): Stop (%s)-(%p)\n", name.c_str(), address);
        (void)server->Stop();
        server.reset();
        (void)m_impl->EndStop(name);
        DumpDbgMsg("IpcServerManager::StopAllServers(): Stop (%s)-(%p). Done\n", name.c_str(),
                   address);
    }
    m_impl->allStopped.Set();
    DumpDbgMsg("IpcServerManager::StopAllServers(): Done....\n");
}

void IpcServerManager::WaitForAllServerStop(int timeout) {
    DumpDbgMsg("IpcServerManager::WaitForAllServerStop(): Timeout=%d\n", timeout);
    (void)m_impl->allStopped.Wait(timeout);
    DumpDbgMsg("IpcServerManager::WaitForAllServerStop(): Done....\n");
}

bool IpcServerManager::RegisterObserver(const char* name, IpcServerObserver* observer) {
    if (!IsName(name) || observer == nullptr) {
        return false;
    }
    const PrivateImpl::ServerPtr server = m_impl->Find(name);
    return server != nullptr && server->RegisterObserver(observer);
}

void IpcServerManager::UnregisterObserver(const char* name, IpcServerObserver* observer) {
    if (!IsName(name) || observer == nullptr) {
        return;
    }
    const PrivateImpl::ServerPtr server = m_impl->Find(name);
    if (server != nullptr) {
        server->UnregisterObserver(observer);
    }
}

}  // namespace kpl::ipc
