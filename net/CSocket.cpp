#include "kpl/net/CSocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "kpl/os/CCritSec.h"
#include "kpl/tools/DebugLog.h"
#include "net/Closings.h"
#include "os/WaitReadable.h"

namespace kpl::net {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

std::atomic<unsigned int> closings{0};

constexpr int kFailed = -1;
constexpr int kBadArgument = -3;
constexpr int kNoSocket = -4;
constexpr int kNothingMoved = -5;

// Held while Interrupt shuts a descriptor down, and by Disconnect to take it away before the close:
// so the number that is shut down is never one that belongs to somebody else by then. One for all
// sockets; nobody waits under it.
os::CCritSec& InterruptLock() {
    static os::CCritSec* const lock =
        new os::CCritSec;  // never destroyed: threads may outlive main
    return *lock;
}

// A connect that a signal interrupted goes on by itself; its end shows as "writable".
bool FinishConnect(int fd) {
    pollfd descriptor{fd, POLLOUT, 0};
    int error = 0;
    socklen_t length = sizeof(error);
    if (os::PollThroughSignals(&descriptor, 1, nullptr) < 0 ||
        getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        return false;
    }
    errno = error;
    return error == 0;
}

bool ConnectTo(int fd, const sockaddr_in& address) {
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return true;
    }
    return errno == EINTR && FinishConnect(fd);
}

template <typename Transfer>
int64_t RetryInterrupted(Transfer transfer) {
    int64_t moved = 0;
    do {
        moved = transfer();
    } while (moved < 0 && errno == EINTR);
    return moved;
}

}  // namespace

unsigned int Closings() {
    return closings;
}

void CountClosing() {
    ++closings;
}

CSocket::CSocket() : CSocket(-1) {}

CSocket::CSocket(int fd) : m_fd(fd) {}

CSocket::~CSocket() {
    Disconnect();
}

bool CSocket::Connect(const char* host, int port) {
    Disconnect();
    if (host == nullptr) {
        return false;
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd < 0) {
        return false;
    }
    m_fd = fd;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    in_addr parsed{};
    if (inet_aton(host, &parsed) != 0) {
        address.sin_addr = parsed;
    }
    if (!ConnectTo(fd, address)) {
        ForceDumpDbgMsg("CSocket::Connect(): ????? Failed(Err=%d)\n", errno);
        Disconnect();
        return false;
    }
    return true;
}

void CSocket::Disconnect() {
    int fd = -1;
    {
        os::CAutoLock lock(&InterruptLock());
        fd = m_fd.exchange(-1);
    }
    if (fd == -1) {
        return;
    }
    CountClosing();
    shutdown(fd, SHUT_RDWR);
    close(fd);
    DumpDbgMsg("CSocket::Close(): Done(%d)\n", fd);
}

int CSocket::Read(char* buf, unsigned int len, int flags) {
    const int fd = m_fd;
    if (fd == -1) {
        return kNoSocket;
    }
    if (buf == nullptr || len == 0) {
        return kBadArgument;
    }
    const int64_t received = RetryInterrupted([=] { return recv(fd, buf, len, flags); });
    if (received == 0) {
        return kNothingMoved;
    }
    if (received < 0) {
        ForceDumpDbgMsg("CSocket::Read(): Read error(%d)\n", static_cast<int>(received));
        return kFailed;
    }
    return static_cast<int>(received);
}

int CSocket::Write(const char* buf, unsigned int len, int flags) {
    const int fd = m_fd;
    if (fd == -1) {
        return kNoSocket;
    }
    const int64_t sent = RetryInterrupted([=] { return send(fd, buf, len, flags | MSG_NOSIGNAL); });
    if (sent == 0) {
        return kNothingMoved;
    }
    if (sent < 0) {
        ForceDumpDbgMsg("CSocket::Write(): Write error(%d)\n", static_cast<int>(sent));
        return kFailed;
    }
    return static_cast<int>(sent);
}

bool CSocket::IsDataAvailable(unsigned int timeout) {
    const int fd = m_fd;
    if (fd == -1) {
        return false;
    }
    const timespec wait = os::UnscaledTimeout(timeout);
    const int ready = os::WaitReadable(fd, timeout == 0 ? nullptr : &wait);
    if (ready < 0) {
        ForceDumpDbgMsg("CSocket::IsDataAvailable(): select failed(%d)\n", ready);
    }
    return ready > 0;
}

bool CSocket::IsOOBReceived() {
    const int fd = m_fd;
    int atMark = 0;
    return fd != -1 && ioctl(fd, SIOCATMARK, &atMark) >= 0 && atMark == 1;
}

int CSocket::GetAvailableDataLength() {
    const int fd = m_fd;
    int length = 0;
    return fd != -1 && ioctl(fd, FIONREAD, &length) >= 0 ? length : 0;
}

int CSocket::SetOption(int level, int optname, const void* optval, unsigned int optlen) {
    const int fd = m_fd;
    if (fd == -1) {
        return kNoSocket;
    }
    const int result = setsockopt(fd, level, optname, optval, optlen);
    if (result != 0) {
        ForceDumpDbgMsg("CSocket::SetOption(): SetOption error(%d)\n", result);
        return kFailed;
    }
    return 0;
}

const char* CSocket::GetPeerIp() {
    const int fd = m_fd;
    sockaddr_in peer{};
    socklen_t length = sizeof(peer);
    if (fd == -1 || getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) {
        return nullptr;
    }
    return inet_ntoa(peer.sin_addr);
}

bool CSocket::IsOpen() const {
    return m_fd != -1;
}

void CSocket::Interrupt() {
    os::CAutoLock lock(&InterruptLock());
    const int fd = m_fd;
    if (fd != -1) {
        shutdown(fd, SHUT_RDWR);
    }
}

}  // namespace kpl::net
