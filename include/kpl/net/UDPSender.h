#ifndef KPL_NET_UDPSENDER_H_
#define KPL_NET_UDPSENDER_H_

#include "kpl/Export.h"

namespace kpl::net {

// Sends datagrams to one IPv4 address and port. One thread at a time.
class KPL_EXPORT UDPSender {
public:
    UDPSender();

    // Leaves an open socket open: the owner calls Close first.
    ~UDPSender();
    UDPSender(const UDPSender&) = delete;
    UDPSender& operator=(const UDPSender&) = delete;

    // Closes what was open and opens a socket for datagrams to `host` and `port`. `host` is dotted
    // decimal and is not checked: with any other text, every Send fails. Returns false for a null
    // or empty host or a port below 1, and changes nothing then; false too if there is no socket to
    // be had.
    bool Open(const char* host, int port);

    // Sends `length` bytes as one datagram. Returns the bytes sent, -1 if the system refuses, as it
    // does above 65507 bytes; 0 for null, a length below 1, or before Open.
    int Send(const char* data, int length);

    // Closes the socket and forgets host and port. Can be repeated.
    void Close();

private:
    struct PrivateImpl;
    PrivateImpl* m_impl;
};

}  // namespace kpl::net

#endif  // KPL_NET_UDPSENDER_H_
