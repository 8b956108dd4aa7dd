// What the tests of sockets and of the TCP server frame share.
#ifndef KPL_TESTS_NET_NETTESTSUPPORT_H_
#define KPL_TESTS_NET_NETTESTSUPPORT_H_

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "kpl/os/CEvent.h"
#include "tests/support/LogCapture.h"
#include "tests/support/NoDescriptors.h"

namespace kpl::test {

// Each test leaves no descriptor and no thread behind.
class NetTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

private:
    LogCapture m_quiet{LogCapture::Debug::Off};  // forced messages are expected in many tests
    int m_descriptors = 0;
    int m_threads = 0;
};

// A listening socket on 127.0.0.1, on a port that the system chose.
class Listener {
public:
    explicit Listener(int backlog = 16);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int Port() const { return m_port; }
    int Accept() const;

private:
    int m_fd;
    int m_port;
};

// The other side: plain, blocking system calls. No call waits longer than ten seconds.
class Peer {
public:
    explicit Peer(int fd) : m_fd(fd) {}
    Peer(Peer&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
    ~Peer() { Close(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    Peer& operator=(Peer&& other) noexcept;

    // A socket without a connection. `receiveBuffer` above 0 makes it a small one.
    static Peer Unconnected(int receiveBuffer = 0);

    // To 127.0.0.1; closed if that fails.
    static Peer ConnectTo(int port, int receiveBuffer = 0);
    bool Connect(int port) const;

    bool IsOpen() const { return m_fd != -1; }
    int Fd() const { return m_fd; }
    bool Send(const std::string& bytes) const;

    // Exactly `size` bytes, or fewer if the connection ends before.
    std::string Read(size_t size) const;

    // All bytes until the connection ends.
    std::string ReadToEnd() const;

    // True when the server has closed or reset the connection, after dropping what it sent.
    bool HasEnded() const;
    void Close();

    // Closes with a reset instead of an end of file.
    void Reset();

private:
    int m_fd;
};

// Two connected TCP sockets; whoever takes `served` closes it.
struct ConnectedPair {
    ConnectedPair();
    int served;
    Peer peer;
};

// Raises the limit of descriptors for its lifetime, and opens descriptors until the next one's
// number is at least `lowest`.
class ManyDescriptors {
public:
    explicit ManyDescriptors(int lowest);
    ~ManyDescriptors();
    ManyDescriptors(const ManyDescriptors&) = delete;
    ManyDescriptors& operator=(const ManyDescriptors&) = delete;

    bool Done() const { return m_done; }

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    bool m_done = false;
};

// Runs a function on a thread of its own, whose end can be waited for; the destructor waits.
class Running {
public:
    explicit Running(std::function<void()> body);
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    bool EndsWithin(long timeoutMs) { return m_ended.Wait(timeoutMs); }
    bool HasEnded() { return m_ended.Wait(0); }

    // Waits until the thread is blocked in the kernel, or has ended.
    bool WaitUntilBlocked();
    pthread_t Handle() { return m_thread.native_handle(); }

private:
    std::atomic<int> m_tid{0};
    os::CEvent m_ended{false};
    std::thread m_thread;
};

// Milliseconds that `function` takes.
long MsOf(const std::function<void()>& function);

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_NETTESTSUPPORT_H_
