// The system calls that the datagram classes share.
#ifndef KPL_NET_UDPSOCKET_H_
#define KPL_NET_UDPSOCKET_H_

#include <netinet/in.h>

namespace kpl::net {

// A datagram socket that child processes do not inherit; -1 if there is none to be had.
int OpenUdpSocket();

// Every address of this host, on `port`.
bool BindUdpSocket(int fd, int port);

// Shuts the socket down, closes it and makes `fd` -1. Nothing happens when it is -1 already.
void CloseUdpSocket(int* fd);

// `address` is in network order. Of `port`, the low 16 bits count.
sockaddr_in UdpAddress(in_addr_t address, int port);

// One datagram to `target`. Returns the bytes sent, -1 on failure; a signal does not end it.
int SendDatagram(int fd, const char* data, int length, const sockaddr_in& target);

// Waits for one datagram and cuts it to `size` bytes. Returns its length, 0 also once the socket
// was shut down, -1 on failure; a signal does not end it.
int ReceiveDatagram(int fd, char* buffer, int size);

}  // namespace kpl::net

#endif  // KPL_NET_UDPSOCKET_H_
