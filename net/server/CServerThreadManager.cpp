#include "kpl/net/server/CServerThreadManager.h"

#include "kpl/tools/DebugLog.h"

// Who waits where, and who wakes whom: StopAllThreads waits for each thread to end, under the
// manager's lock. The threads never take that lock. All are told to begin no other request before
// the first is waited for, so that the whole takes no longer than the longest request that is being
// executed.

namespace kpl::net::server {

using tools::DumpDbgMsg;

CServerThreadManager::CServerThreadManager() {
    DumpDbgMsg("CServerThreadManager::CServerThreadManager(): ....\n");
}

CServerThreadManager::~CServerThreadManager() {
    DumpDbgMsg("CServerThreadManager::~CServerThreadManager(): ....\n");
    {
        os::CAutoLock lock(&m_lock);
        LogStop();
        EndThreads();
        LogStopDone();
    }
    DumpDbgMsg("CServerThreadManager::~CServerThreadManager(): Done....\n");
}

com::IUnknown* CServerThreadManager::GetServerThreadParam(int, CSocket*) {
    return nullptr;
}

void CServerThreadManager::BeforeStopAllThreads() {}

void CServerThreadManager::AfterStopAllThreads() {}

bool CServerThreadManager::Dispatch(int fd, CSocket* socket) {
    if (fd < 0 || socket == nullptr) {
        return false;
    }
    os::CAutoLock lock(&m_lock);
    com::IUnknown* const param = GetServerThreadParam(fd, socket);
    for (CServerThread* thread : m_threads) {
        if (thread->AddSocket(fd, socket, param)) {
            return true;
        }
    }
    return DispatchToNewThread(fd, socket, param);
}

// A new thread that refuses its first connection is not kept: with a factory that gives nothing,
// every connection would add one.
bool CServerThreadManager::DispatchToNewThread(int fd, CSocket* socket, com::IUnknown* param) {
    CServerThread* const thread = CreateServerThread();
    if (thread == nullptr) {
        return false;
    }
    thread->SetHeld(&m_held);
    if (!thread->AddSocket(fd, socket, param)) {
        thread->Join();
        delete thread;
        return false;
    }
    m_threads.push_back(thread);
    return true;
}

bool CServerThreadManager::StopAllThreads() {
    os::CAutoLock lock(&m_lock);
    LogStop();
    BeforeStopAllThreads();
    EndThreads();
    AfterStopAllThreads();
    LogStopDone();
    return true;
}

void CServerThreadManager::LogStop() {
    DumpDbgMsg("CServerThreadManager::StopAllThreads(): Thread Counts=%d\n",
               static_cast<int>(m_threads.size()));
}

void CServerThreadManager::LogStopDone() {
    DumpDbgMsg("CServerThreadManager::StopAllThreads(): Done....\n");
}

void CServerThreadManager::EndThreads() {
    for (CServerThread* thread : m_threads) {
        thread->BeginStop();
    }
    for (CServerThread* thread : m_threads) {
        thread->Stop();
        thread->Join();
        delete thread;
    }
    m_threads.clear();
}

void CServerThreadManager::Hold(const CSocket* socket) {
    m_held = socket;
}

}  // namespace kpl::net::server
