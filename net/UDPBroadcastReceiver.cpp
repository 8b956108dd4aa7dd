#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "kpl/net/UDPBroadcast.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CThread.h"
#include "kpl/tools/DebugLog.h"
#include "net/UdpSocket.h"

namespace kpl::net {

namespace {

constexpr int kBufferSize = 4096;

}  // namespace

// Who waits where, and who wakes whom:
// - the receiving thread for a datagram. Stop asks it to end and shuts its socket down, which ends
//   the receive. The thread publishes its socket before it looks at the request, Stop asks before
//   it looks for a socket, so that one of the two sees the other.
// - Stop for the receiving thread (join), thus for the observer that it may be in.
// The socket is closed after the join, so that its number cannot become somebody else's while the
// thread still uses it.
class UDPBroadcastReceiver::PrivateImpl {
public:
    ~PrivateImpl() { Stop(); }

    int Start(int port);
    void Stop();
    void Register(UDPBroadcastObserver* observer);
    void Unregister(UDPBroadcastObserver* observer);

private:
    static void ThreadProc(void* self) { static_cast<PrivateImpl*>(self)->Receive(); }

    void Receive();
    void ReceiveInto(int fd, char* buffer);
    void Publish(int fd);
    void AskToStop();
    bool IsReceivingThread();

    std::vector<UDPBroadcastObserver*> m_observers;
    os::CThread* m_thread = nullptr;
    int m_port = 0;
    int m_fd KPL_GUARDED_BY(m_lock) = -1;

    os::CCritSec m_lock;
    pthread_t m_receiver KPL_GUARDED_BY(m_lock) = {};
    bool m_hasReceiver KPL_GUARDED_BY(m_lock) = false;
    std::atomic<bool> m_stop{false};
};

int UDPBroadcastReceiver::PrivateImpl::Start(int port) {
    if (IsReceivingThread()) {
        return 0;
    }
    Stop();
    m_port = port;
    m_stop = false;
    m_thread = new os::CThread(&PrivateImpl::ThreadProc, this);
    return m_thread->Run(0) ? 1 : 0;
}

void UDPBroadcastReceiver::PrivateImpl::Stop() {
    AskToStop();
    if (m_thread == nullptr || IsReceivingThread()) {
        return;
    }
    m_thread->Exit(true);
    delete m_thread;
    m_thread = nullptr;
    os::CAutoLock lock(&m_lock);
    m_hasReceiver = false;
    CloseUdpSocket(&m_fd);
}

void UDPBroadcastReceiver::PrivateImpl::AskToStop() {
    m_stop = true;
    os::CAutoLock lock(&m_lock);
    if (m_fd != -1) {
        shutdown(m_fd, SHUT_RDWR);
    }
}

bool UDPBroadcastReceiver::PrivateImpl::IsReceivingThread() {
    os::CAutoLock lock(&m_lock);
    return m_hasReceiver && pthread_equal(m_receiver, pthread_self()) != 0;
}

void UDPBroadcastReceiver::PrivateImpl::Publish(int fd) {
    os::CAutoLock lock(&m_lock);
    m_fd = fd;
    m_receiver = pthread_self();
    m_hasReceiver = true;
}

void UDPBroadcastReceiver::PrivateImpl::Receive() {
    tools::DumpDbgMsg("UDPBroadcastReceiver::PrivateImpl::ThreadProc(): .....\n");
    const std::unique_ptr<char[]> buffer(new char[kBufferSize]);
    const int fd = OpenUdpSocket();
    Publish(fd);
    if (!BindUdpSocket(fd, m_port)) {
        tools::ForceDumpDbgMsg(
            "UDPBroadcastReceiver::PrivateImpl::ThreadProc(): ??????? bind failed\n");
        return;
    }
    ReceiveInto(fd, buffer.get());
    tools::DumpDbgMsg("UDPBroadcastReceiver::PrivateImpl::ThreadProc(): Done.....\n");
}

void UDPBroadcastReceiver::PrivateImpl::ReceiveInto(int fd, char* buffer) {
    while (!m_stop) {
        const int length = ReceiveDatagram(fd, buffer, kBufferSize - 1);
        if (length < 1) {
            return;
        }
        buffer[length] = '\0';
        for (UDPBroadcastObserver* observer : m_observers) {
            observer->OnBroadcastReceived(buffer, length);
        }
    }
}

void UDPBroadcastReceiver::PrivateImpl::Register(UDPBroadcastObserver* observer) {
    if (observer != nullptr &&
        std::find(m_observers.begin(), m_observers.end(), observer) == m_observers.end()) {
        m_observers.push_back(observer);
    }
}

void UDPBroadcastReceiver::PrivateImpl::Unregister(UDPBroadcastObserver* observer) {
    m_observers.erase(std::remove(m_observers.begin(), m_observers.end(), observer),
                      m_observers.end());
}

UDPBroadcastReceiver::UDPBroadcastReceiver() : m_impl(new PrivateImpl) {}

UDPBroadcastReceiver::~UDPBroadcastReceiver() {
    delete m_impl;
}

int UDPBroadcastReceiver::Start(int port) {
    return m_impl->Start(port);
}

void UDPBroadcastReceiver::Stop() {
    m_impl->Stop();
}

void UDPBroadcastReceiver::RegisterObserver(UDPBroadcastObserver* observer) {
    m_impl->Register(observer);
}

void UDPBroadcastReceiver::UnregisterObserver(UDPBroadcastObserver* observer) {
    m_impl->Unregister(observer);
}

}  // namespace kpl::net
