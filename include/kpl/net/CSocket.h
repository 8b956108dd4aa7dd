#ifndef KPL_NET_CSOCKET_H_
#define KPL_NET_CSOCKET_H_

#include <atomic>

#include "kpl/Export.h"

namespace kpl::net {

// Owns the descriptor of one TCP connection over IPv4; the destructor closes it.
// One thread at a time, but for IsOpen, Interrupt and Disconnect.
//
// Results of Read, Write and SetOption:
//   n >= 0  bytes moved; 0 for SetOption
//   -1      the system call failed; logged
//   -3      Read only: null buffer or zero length
//   -4      no socket
//   -5      the peer closed the connection (Read); nothing was sent (Write)
class KPL_EXPORT CSocket {
public:
    // No socket, until Connect.
    CSocket();

    // Takes over an open descriptor.
    explicit CSocket(int fd);
    ~CSocket();
    CSocket(const CSocket&) = delete;
    CSocket& operator=(const CSocket&) = delete;

    // Closes an earlier connection and connects to `host`, a dotted IPv4 address: names are not
    // resolved, and what is no address counts as 0.0.0.0, which is this machine. Waits as long as
    // the system does. False on failure and for a null `host`.
    bool Connect(const char* host, int port);

    // Shuts the connection down and closes the descriptor. Nothing happens without one. Any thread,
    // as long as the object lives: a Read, Write or IsDataAvailable that another thread waits in
    // returns first, so that none of them ever meets another's socket under the number. But not
    // while another thread is in Connect, which Interrupt ends.
    void Disconnect();

    // Receives once, at most `len` bytes. `flags` are recv's. Waits while there is nothing to read.
    int Read(char* buf, unsigned int len, int flags);

    // Sends once; less than `len` bytes may have been sent. `flags` are send's. Waits while the
    // peer does not read. A peer that has gone is an error, never a signal.
    int Write(const char* buf, unsigned int len, int flags);

    // Waits until there is something to read, the end of the stream included. `timeout` is in
    // milliseconds, of which the whole seconds count as such and the rest as microseconds (1500
    // waits 1.0005 s); 0 waits without limit. False after the time-out, without a socket, on
    // errors.
    bool IsDataAvailable(unsigned int timeout);

    // True when reading has come to the mark of urgent data.
    bool IsOOBReceived();

    // The number of bytes that can be read at once; 0 without a socket and on errors.
    int GetAvailableDataLength();

    // setsockopt.
    int SetOption(int level, int optname, const void* optval, unsigned int optlen);

    // The peer's dotted address, in a buffer of the C library that the process's next inet_ntoa
    // overwrites: copy it at once. Null without a socket or a peer.
    const char* GetPeerIp();

    // True while there is a descriptor. Any thread.
    bool IsOpen() const;

    // Shuts the connection down without closing the descriptor: a Read, Write or Connect that
    // another thread waits in returns, and later ones do not wait. Any thread, as long as the
    // object lives.
    void Interrupt();

private:
    class Use;

    std::atomic<int> m_fd;        // -1: no socket
    std::atomic<int> m_users{0};  // calls that may be using it
};

}  // namespace kpl::net

#endif  // KPL_NET_CSOCKET_H_
