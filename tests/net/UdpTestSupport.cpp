#include "tests/net/UdpTestSupport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdint.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kpl::test {

namespace {

sockaddr_in Address(const std::string& address, int port) {
    sockaddr_in filled{};
    filled.sin_family = AF_INET;
    filled.sin_port = htons(static_cast<uint16_t>(port));
    EXPECT_EQ(inet_aton(address.c_str(), &filled.sin_addr), 1) << address;
    return filled;
}

}  // namespace

RawSocket::RawSocket(const std::string& address, int port)
    : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_port(0) {
    sockaddr_in own = Address(address, port);
    socklen_t size = sizeof(own);
    EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr*>(&own), size), 0) << address;
    EXPECT_EQ(getsockname(m_fd, reinterpret_cast<sockaddr*>(&own), &size), 0);
    m_port = ntohs(own.sin_port);
}

RawSocket::~RawSocket() {
    close(m_fd);
}

bool RawSocket::SendTo(const std::string& address, int port, const std::string& bytes) const {
    const sockaddr_in target = Address(address, port);
    return sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&target),
                  sizeof(target)) == static_cast<ssize_t>(bytes.size());
}

std::string RawSocket::Receive(int timeoutMs) const {
    pollfd waiting{m_fd, POLLIN, 0};
    if (poll(&waiting, 1, timeoutMs) != 1) {
        return "<none>";
    }
    std::string bytes(70000, '\0');
    const ssize_t length = recv(m_fd, bytes.data(), bytes.size(), 0);
    EXPECT_GE(length, 0);
    bytes.resize(static_cast<size_t>(length));
    return bytes;
}

int FreeUdpPort() {
    const RawSocket socket("0.0.0.0");
    return socket.Port();
}

int NextDescriptor() {
    const int next = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    close(next);
    return next;
}

std::string Bytes(int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) {
        bytes.push_back(static_cast<char>('a' + i % 23));
    }
    return bytes;
}

}  // namespace kpl::test
