#include "kpl/net/UDPReceiver.h"

#include "kpl/tools/DebugLog.h"
#include "net/UdpSocket.h"
#include "os/WaitReadable.h"

namespace kpl::net {

namespace {

constexpr unsigned int kReadTimeout = 1000;

}  // namespace

UDPReceiver::UDPReceiver() : m_port(0), m_fd(-1) {}

UDPReceiver::~UDPReceiver() {
    Close();
}

bool UDPReceiver::Open(int port) {
    Close();
    m_port = port;
    m_fd = OpenUdpSocket();
    if (!BindUdpSocket(m_fd, m_port)) {
        tools::ForceDumpDbgMsg("UDPReceiver::Open(): ??????? bind failed\n");
        return false;
    }
    return true;
}

bool UDPReceiver::IsDataAvailable(unsigned int timeout) {
    if (m_fd == -1) {
        return false;
    }
    const timespec limit = os::UnscaledTimeout(timeout);
    const int ready = os::WaitReadable(m_fd, timeout == 0 ? nullptr : &limit);
    if (ready < 0) {
        tools::ForceDumpDbgMsg("UDPReceiver::IsDataAvailable(): ????? select failed(%d)\n", ready);
    }
    return ready > 0;
}

int UDPReceiver::Read(char* buffer, int size) {
    if (buffer == nullptr || size < 1 || m_fd == -1) {
        return -1;
    }
    if (!IsDataAvailable(kReadTimeout)) {
        return 0;
    }
    return ReceiveDatagram(m_fd, buffer, size);
}

void UDPReceiver::Close() {
    CloseUdpSocket(&m_fd);
    m_port = 0;
}

}  // namespace kpl::net
