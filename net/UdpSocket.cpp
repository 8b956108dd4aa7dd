#include "net/UdpSocket.h"

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kpl::net {

int OpenUdpSocket() {
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

bool BindUdpSocket(int fd, int port) {
    const sockaddr_in address = UdpAddress(htonl(INADDR_ANY), port);
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

void CloseUdpSocket(int* fd) {
    if (*fd == -1) {
        return;
    }
    shutdown(*fd, SHUT_RDWR);
    close(*fd);
    *fd = -1;
}

sockaddr_in UdpAddress(in_addr_t address, int port) {
    sockaddr_in filled{};
    filled.sin_family = AF_INET;
    filled.sin_port = htons(static_cast<uint16_t>(port));
    filled.sin_addr.s_addr = address;
    return filled;
}

int SendDatagram(int fd, const char* data, int length, const sockaddr_in& target) {
    ssize_t sent = 0;
    do {
        sent = sendto(fd, data, static_cast<size_t>(length), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&target), sizeof(target));
    } while (sent < 0 && errno == EINTR);
    return static_cast<int>(sent);
}

int ReceiveDatagram(int fd, char* buffer, int size) {
    ssize_t received = 0;
    do {
        received = recvfrom(fd, buffer, static_cast<size_t>(size), 0, nullptr, nullptr);
    } while (received < 0 && errno == EINTR);
    return static_cast<int>(received);
}

}  // namespace kpl::net
