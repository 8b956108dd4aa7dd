#include "kpl/net/UDPSender.h"

#include <arpa/inet.h>

#include <string>

#include "net/UdpSocket.h"

namespace kpl::net {

struct UDPSender::PrivateImpl {
    std::string host;
    int port = 0;
    int fd = -1;
    sockaddr_in target{};
};

UDPSender::UDPSender() : m_impl(new PrivateImpl) {}

// The socket is deliberately left as it is: only Close, which the owner calls, closes it.
UDPSender::~UDPSender() {
    delete m_impl;
}

bool UDPSender::Open(const char* host, int port) {
    if (host == nullptr || *host == '\0' || port < 1) {
        return false;
    }
    Close();
    m_impl->host = host;
    m_impl->port = port;
    m_impl->fd = OpenUdpSocket();
    if (m_impl->fd == -1) {
        return false;
    }
    m_impl->target = UdpAddress(inet_addr(host), port);
    return true;
}

int UDPSender::Send(const char* data, int length) {
    if (data == nullptr || length < 1 || m_impl->port < 1 || m_impl->host.empty() ||
        m_impl->fd == -1) {
        return 0;
    }
    return SendDatagram(m_impl->fd, data, length, m_impl->target);
}

void UDPSender::Close() {
    CloseUdpSocket(&m_impl->fd);
    m_impl->port = 0;
    m_impl->host.clear();
}

}  // namespace kpl::net
