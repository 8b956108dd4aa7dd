#include "tests/net/NetTestSupport.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/ThreadState.h"

namespace kpl::test {

namespace {

sockaddr_in LoopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

const sockaddr* Generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

void NetTest::SetUp() {
    std::thread([] {}).join();  // with the first one, a sanitizer adds a thread of its own
    m_descriptors = OpenDescriptorCount();
    m_threads = ThreadCount();
}

void NetTest::TearDown() {
    EXPECT_TRUE(WaitUntil([this] { return ThreadCount() <= m_threads; }));
    EXPECT_TRUE(WaitUntil([this] { return OpenDescriptorCount() <= m_descriptors; }))
        << OpenDescriptorCount() << " instead of " << m_descriptors;
}

Listener::Listener(int backlog) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_port(0) {
    sockaddr_in address = LoopbackAddress(0);
    socklen_t length = sizeof(address);
    EXPECT_EQ(bind(m_fd, Generic(address), sizeof(address)), 0);
    EXPECT_EQ(listen(m_fd, backlog), 0);
    EXPECT_EQ(getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    m_port = ntohs(address.sin_port);
}

Listener::~Listener() {
    close(m_fd);
}

int Listener::Accept() const {
    return accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
}

Peer& Peer::operator=(Peer&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
}

Peer Peer::Unconnected(int receiveBuffer) {
    Peer peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (receiveBuffer > 0) {
        (void)setsockopt(peer.m_fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    }
    const int yes = 1;
    (void)setsockopt(peer.m_fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
    const timeval limit{10, 0};
    (void)setsockopt(peer.m_fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    (void)setsockopt(peer.m_fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    return peer;
}

bool Peer::Connect(int port) const {
    const sockaddr_in address = LoopbackAddress(port);
    return connect(m_fd, Generic(address), sizeof(address)) == 0;
}

Peer Peer::ConnectTo(int port, int receiveBuffer) {
    Peer peer = Unconnected(receiveBuffer);
    if (!peer.Connect(port)) {
        peer.Close();
    }
    return peer;
}

bool Peer::Send(const std::string& bytes) const {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    return true;
}

std::string Peer::Read(size_t size) const {
    std::string bytes(size, '\0');
    size_t received = 0;
    while (received < size) {
        const ssize_t n = recv(m_fd, &bytes[received], size - received, 0);
        if (n <= 0) {
            break;
        }
        received += static_cast<size_t>(n);
    }
    bytes.resize(received);
    return bytes;
}

std::string Peer::ReadToEnd() const {
    std::string all;
    for (;;) {
        const std::string piece = Read(65536);
        all += piece;
        if (piece.size() < 65536) {
            return all;
        }
    }
}

bool Peer::HasEnded() const {
    char bytes[4096];
    ssize_t n = 0;
    do {
        n = recv(m_fd, bytes, sizeof(bytes), 0);
    } while (n > 0);
    return n == 0 || errno == ECONNRESET || errno == EPIPE;
}

void Peer::Close() {
    if (m_fd != -1) {
        close(m_fd);
        m_fd = -1;
    }
}

void Peer::Reset() {
    const linger atOnce{1, 0};
    (void)setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    Close();
}

ConnectedPair::ConnectedPair() : served(-1), peer(-1) {
    const Listener listener;
    peer = Peer::ConnectTo(listener.Port());
    served = listener.Accept();
    EXPECT_NE(served, -1);
    EXPECT_TRUE(peer.IsOpen());
}

struct ManyDescriptors::Impl {
    rlimit before{};
    std::vector<int> open;
};

ManyDescriptors::ManyDescriptors(int lowest) : m_impl(new Impl) {
    if (getrlimit(RLIMIT_NOFILE, &m_impl->before) != 0) {
        return;
    }
    rlimit more = m_impl->before;
    more.rlim_cur = std::max<rlim_t>(more.rlim_cur, static_cast<rlim_t>(lowest) + 1000);
    if (more.rlim_cur > more.rlim_max || setrlimit(RLIMIT_NOFILE, &more) != 0) {
        return;
    }
    int last = -1;
    do {
        last = dup(STDERR_FILENO);
        m_impl->open.push_back(last);
    } while (last != -1 && last < lowest - 1);
    m_done = last != -1;
}

ManyDescriptors::~ManyDescriptors() {
    for (const int fd : m_impl->open) {
        close(fd);
    }
    (void)setrlimit(RLIMIT_NOFILE, &m_impl->before);
}

Running::Running(std::function<void()> body)
    : m_thread([this, run = std::move(body)] {
          m_tid = static_cast<int>(syscall(SYS_gettid));
          run();
          m_ended.Set();
      }) {}

Running::~Running() {
    m_thread.join();
}

bool Running::WaitUntilBlocked() {
    return WaitUntilAsleep(m_tid, [this] { return HasEnded(); });
}

long MsOf(const std::function<void()>& function) {
    const auto start = std::chrono::steady_clock::now();
    function();
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - start)
                                 .count());
}

}  // namespace kpl::test
