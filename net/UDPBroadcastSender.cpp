#include <arpa/inet.h>
#include <sys/socket.h>

#include <string>

#include "kpl/net/Address.h"
#include "kpl/net/UDPBroadcast.h"
#include "net/UdpSocket.h"

namespace kpl::net {

namespace {

// The last octet is replaced, whatever the interface's mask is: every network that this is used on
// is divided like that, and peers listen at that address.
bool BroadcastAddress(in_addr_t* address) {
    std::string local;
    in_addr own{};
    if (!GetLocalIP(local) || inet_aton(local.c_str(), &own) == 0) {
        return false;
    }
    const in_addr_t mask = inet_addr("255.255.255.0");
    *address = (own.s_addr & mask) | ~mask;
    return true;
}

}  // namespace

bool UDPBroadcastSender::Send(const char* data, int length, int port) {
    if (data == nullptr || length < 1) {
        return false;
    }
    int fd = OpenUdpSocket();
    if (fd == -1) {
        return false;
    }
    in_addr_t address = 0;
    bool sent = false;
    if (BroadcastAddress(&address)) {
        const int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on));
        sent = SendDatagram(fd, data, length, UdpAddress(address, port)) == length;
    }
    CloseUdpSocket(&fd);
    return sent;
}

}  // namespace kpl::net
