#include "kpl/net/CSocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "kpl/os/Sleep.h"
#include "kpl/tools/DebugLog.h"
#include "net/Closings.h"
#include "os/WaitReadable.h"

// Who waits where, and who wakes whom:
//   Read, Write,     for the peer. A shutdown wakes them, and they do not wait again after one:
//   IsDataAvailable  Interrupt's, or that of another thread's Disconnect.
//   Connect          for the peer; Interrupt wakes it. Before it shows its new descriptor, for a
//                    Disconnect that another thread has not finished.
//   Disconnect       for the calls that use the descriptor, before the close: its number must not
//                    become another's while a call may still be made with it. It has woken them by
//                    then, and they hold nothing while they are counted.
//
// A call is counted before it looks for the descriptor, and Disconnect takes that away before it
// looks at the count: either the call finds none, or Disconnect waits for it.

namespace kpl::net {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

std::atomic<unsigned int> closings{0};

constexpr int kFailed = -1;
constexpr int kBadArgument = -3;
constexpr int kNoSocket = -4;
constexpr int kNothingMoved = -5;

// Until no more than `count` are left. They are about to leave: a pause that costs nothing will do.
void WaitForUsers(const std::atomic<int>& users, int count) {
    while (users > count) {
        os::osal_Sleep(1);
    }
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

// One call, counted as long as this lives, which is no longer than the system call.
class CSocket::Use {
public:
    explicit Use(CSocket* socket) : m_socket(socket) { ++m_socket->m_users; }
    ~Use() { --m_socket->m_users; }  // nothing of the socket is touched after it
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    // What `call` of the descriptor gives, -1 if it fails; kNoSocket without one.
    template <typename Call>
    int64_t Do(Call call) const {
        const int fd = m_socket->m_fd;
        return fd == -1 ? kNoSocket : call(fd);
    }

private:
    CSocket* const m_socket;
};

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
    WaitForUsers(m_users, 0);
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
        const Use own(this);
        fd = m_fd.exchange(-1);
        if (fd == -1) {
            return;
        }
        CountClosing();
        // It wakes also who waits on a socket without a peer. Any other failure has woken nobody.
        if (shutdown(fd, SHUT_RDWR) == 0 || errno == ENOTCONN) {
            WaitForUsers(m_users, 1);
        }
        close(fd);
    }
    DumpDbgMsg("CSocket::Close(): Done(%d)\n", fd);
}

int CSocket::Read(char* buf, unsigned int len, int flags) {
    const int64_t received = Use(this).Do([=](int fd) -> int64_t {
        if (buf == nullptr || len == 0) {
            return kBadArgument;
        }
        return RetryInterrupted([=] { return recv(fd, buf, len, flags); });
    });
    if (received == 0) {
        return kNothingMoved;
    }
    if (received == kFailed) {
        ForceDumpDbgMsg("CSocket::Read(): Read error(%d)\n", static_cast<int>(received));
    }
    return static_cast<int>(received);
}

int CSocket::Write(const char* buf, unsigned int len, int flags) {
    const int64_t sent = Use(this).Do([=](int fd) {
        return RetryInterrupted([=] { return send(fd, buf, len, flags | MSG_NOSIGNAL); });
    });
    if (sent == 0) {
        return kNothingMoved;
    }
    if (sent == kFailed) {
        ForceDumpDbgMsg("CSocket::Write(): Write error(%d)\n", static_cast<int>(sent));
    }
    return static_cast<int>(sent);
}

bool CSocket::IsDataAvailable(unsigned int timeout) {
    const timespec wait = os::UnscaledTimeout(timeout);
    const int64_t ready =
        Use(this).Do([&](int fd) { return os::WaitReadable(fd, timeout == 0 ? nullptr : &wait); });
    if (ready == kFailed) {
        ForceDumpDbgMsg("CSocket::IsDataAvailable(): select failed(%d)\n", static_cast<int>(ready));
    }
    return ready > 0;
}

bool CSocket::IsOOBReceived() {
    int atMark = 0;
    const int64_t result = Use(this).Do([&](int fd) { return ioctl(fd, SIOCATMARK, &atMark); });
    return result >= 0 && atMark == 1;
}

int CSocket::GetAvailableDataLength() {
    int length = 0;
    const int64_t result = Use(this).Do([&](int fd) { return ioctl(fd, FIONREAD, &length); });
    return result >= 0 ? length : 0;
}

int CSocket::SetOption(int level, int optname, const void* optval, unsigned int optlen) {
    const int64_t result =
        Use(this).Do([=](int fd) { return setsockopt(fd, level, optname, optval, optlen); });
    if (result == kFailed) {
        ForceDumpDbgMsg("CSocket::SetOption(): SetOption error(%d)\n", static_cast<int>(result));
    }
    return static_cast<int>(result);
}

const char* CSocket::GetPeerIp() {
    sockaddr_in peer{};
    const int64_t result = Use(this).Do([&](int fd) {
        socklen_t length = sizeof(peer);
        return getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length);
    });
    return result == 0 ? inet_ntoa(peer.sin_addr) : nullptr;
}

bool CSocket::IsOpen() const {
    return m_fd != -1;
}

void CSocket::Interrupt() {
    (void)Use(this).Do([](int fd) { return shutdown(fd, SHUT_RDWR); });
}

}  // namespace kpl::net
