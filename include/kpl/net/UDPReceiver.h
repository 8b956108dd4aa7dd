#ifndef KPL_NET_UDPRECEIVER_H_
#define KPL_NET_UDPRECEIVER_H_

#include "kpl/Export.h"

namespace kpl::net {

// Receives datagrams on one port, of all IPv4 addresses of this host. One thread at a time.
class KPL_EXPORT UDPReceiver {
public:
    UDPReceiver();
    ~UDPReceiver();  // closes
    UDPReceiver(const UDPReceiver&) = delete;
    UDPReceiver& operator=(const UDPReceiver&) = delete;

    // Closes what was open and binds a socket to `port`. Returns false if the port cannot be had;
    // the socket then stays open, without a port, until the next Close or Open.
    bool Open(int port);

    // Waits until a datagram is there; false when there is none in time, or without a socket.
    // `timeout` / 1000 are seconds, `timeout` % 1000 microseconds: 1500 waits a second and half a
    // millisecond. 0 waits without limit.
    bool IsDataAvailable(unsigned int timeout);

    // Waits up to a second for a datagram and copies it; what goes beyond `size` bytes is lost.
    // Returns its length, 0 if none came or it is empty, -1 on failure, for null, for a size below
    // 1, and without a socket.
    int Read(char* buffer, int size);

    // Can be repeated.
    void Close();

private:
    int m_port;
    int m_fd;
};

}  // namespace kpl::net

#endif  // KPL_NET_UDPRECEIVER_H_
