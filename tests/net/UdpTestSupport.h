#ifndef KPL_TESTS_NET_UDPTESTSUPPORT_H_
#define KPL_TESTS_NET_UDPTESTSUPPORT_H_

#include <string>

namespace kpl::test {

// A datagram socket of system calls alone, bound to a port of its own.
class RawSocket {
public:
    // `address` in dotted decimal; port 0 takes a free one.
    explicit RawSocket(const std::string& address = "127.0.0.1", int port = 0);
    ~RawSocket();
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    int Port() const { return m_port; }

    // Sends one datagram; true if all of it went.
    bool SendTo(const std::string& address, int port, const std::string& bytes) const;

    // The next datagram; "<none>" if none comes within `timeoutMs`.
    std::string Receive(int timeoutMs = 10000) const;

private:
    int m_fd;
    int m_port;
};

// A port that nobody on this host has at the moment.
int FreeUdpPort();

// The number that the next descriptor of this process will get.
int NextDescriptor();

// `size` bytes that differ from their neighbours.
std::string Bytes(int size);

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_UDPTESTSUPPORT_H_
