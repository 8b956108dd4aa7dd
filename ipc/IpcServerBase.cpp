#include "kpl/ipc/IpcServerBase.h"

#include <string>

#include "ipc/ObserverList.h"
#include "kpl/tools/CommandProcessor.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;

// The accept loop is a command that posts itself again: one accept step after the other, on the one
// worker thread of the queue.
class IpcServerBase::PrivateImpl : public tools::CommandProcessor<int> {
public:
    explicit PrivateImpl(IpcServerBase* server) : m_server(server) {}

    ~PrivateImpl() override {
        if (m_queue != nullptr) {
            StopAccepting();
        }
    }

    // False if there is no thread for it.
    bool StartAccepting() {
        DumpDbgMsg("IpcServerBase::StartAccetpClient(): ....\n");
        if (m_queue != nullptr) {
            StopAccepting();
        }
        m_queue = new tools::CommandQueue<int>(this);
        m_queue->Post(0);
        DumpDbgMsg("IpcServerBase::StartAccetpClient(): Done.\n");
        return m_queue->HasWorker();
    }

    void StopAccepting() {
        DumpDbgMsg("IpcServerBase::StopAcceptClient(): .....\n");
        if (m_queue == nullptr) {
            return;
        }
        m_queue->Stop();
        delete m_queue;
        m_queue = nullptr;
        DumpDbgMsg("IpcServerBase::StopAcceptClient(): Done.\n");
    }

    // One accept step. False ends the loop.
    bool Execute(int) override {
        IpcStreamer* streamer = m_server->DoAccept();
        if (streamer == nullptr) {
            if (m_server->IsShutdownServer()) {
                DumpDbgMsg("IpcServerBase::Execute(): Done.\n");
                return false;
            }
        } else if (!m_server->NotifyAccepted(streamer)) {
            m_server->FreeIpcStreamer(streamer);
        }
        m_queue->Post(0);
        return true;
    }

    bool IsAccepting() const { return m_queue != nullptr; }

    ObserverList observers;
    std::string name;
    void* param = nullptr;

private:
    tools::CommandQueue<int>* m_queue = nullptr;  // null while not accepting
    IpcServerBase* const m_server;
};

IpcServerBase::IpcServerBase() : m_impl(new PrivateImpl(this)) {
    DumpDbgMsg("IpcServerBase::IpcServerBase(): .......\n");
}

IpcServerBase::~IpcServerBase() {
    delete m_impl;
    DumpDbgMsg("IpcServerBase::~IpcServerBase(): .......\n");
}

bool IpcServerBase::Start(const char* name, void* param) {
    if (name == nullptr || name[0] == '\0') {
        return false;
    }
    // Before the hook, so that it sees them; they stay when it fails.
    m_impl->name = name;
    m_impl->param = param;
    if (!DoStart(name, param)) {
        return false;
    }
    NotifyOpened(name);
    if (!m_impl->StartAccepting()) {
        // Clients would find the Root FIFO and wait for ever.
        (void)Stop();
        return false;
    }
    return true;
}

bool IpcServerBase::Stop() {
    if (!DoStop()) {
        return false;
    }
    StopAcceptClient();
    DoStopped();
    NotifyClosed();
    return true;
}

void IpcServerBase::StopAcceptClient() {
    m_impl->StopAccepting();
}

bool IpcServerBase::IsAccepting() const {
    return m_impl->IsAccepting();
}

bool IpcServerBase::RegisterObserver(IpcServerObserver* observer) {
    return m_impl->observers.Add(observer);
}

void IpcServerBase::UnregisterObserver(IpcServerObserver* observer) {
    m_impl->observers.Remove(observer);
}

const char* IpcServerBase::GetServerName() {
    return m_impl->name.c_str();
}

void* IpcServerBase::GetParameter() {
    return m_impl->param;
}

void IpcServerBase::NotifyOpened(const char* name) {
    if (name == nullptr || name[0] == '\0') {
        return;
    }
    (void)m_impl->observers.ForEach([name](IpcServerObserver* observer) {
        observer->ServerOpened(name);
        return true;
    });
}

bool IpcServerBase::NotifyAccepted(IpcStreamer* streamer) {
    if (streamer == nullptr) {
        return false;
    }
    return m_impl->observers.ForEach(
        [streamer](IpcServerObserver* observer) { return observer->ClientAccepted(streamer); });
}

void IpcServerBase::NotifyClosed() {
    (void)m_impl->observers.ForEach([](IpcServerObserver* observer) {
        observer->ServerClosed();
        return true;
    });
}

}  // namespace kpl::ipc
