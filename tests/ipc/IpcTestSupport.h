// What the tests of the FIFO transport share.
#ifndef KPL_TESTS_IPC_IPCTESTSUPPORT_H_
#define KPL_TESTS_IPC_IPCTESTSUPPORT_H_

#include <gtest/gtest.h>
#include <stdint.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kpl/ipc/IpcServer.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RawConnection.h"
#include "tests/support/TempDir.h"

namespace kpl::test {

// Each test has a fresh directory as pipe root, and leaves no FIFO in it, no descriptor and no
// thread behind.
class IpcTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string Path(const std::string& entry) const { return m_dir.Path() + "/" + entry; }
    bool Exists(const std::string& entry) const;
    const TempDir& Dir() const { return m_dir; }

private:
    TempDir m_dir;
    LogCapture m_quiet{LogCapture::Debug::Off};  // forced messages are expected in many tests
    int m_descriptors = 0;
    int m_threads = 0;
};

// Sends `text` and waits until it has come back.
bool EchoWorks(ipc::IpcStreamer* streamer, const std::string& text);
bool EchoWorks(const RawConnection& connection, const std::string& text);

// Echoes what its clients send, each on a thread of its own. Its end interrupts and joins them.
class EchoObserver : public ipc::IpcServerObserver {
public:
    explicit EchoObserver(long openTimeout = -1) : openTimeoutMs(openTimeout) {}
    ~EchoObserver() override;

    void ServerOpened(const char* name) override;
    bool ClientAccepted(ipc::IpcStreamer* streamer) override;
    void ServerClosed() override;

    // What the next client gets to come; looked at before `offered` is counted.
    std::atomic<long> openTimeoutMs;
    std::atomic<int> opened{0};
    std::atomic<int> offered{0};
    std::atomic<int> accepted{0};
    std::atomic<int> ended{0};
    std::atomic<int> closed{0};

private:
    void Echo(ipc::IpcStreamerPipeImpl* streamer);

    std::mutex m_mutex;
    std::vector<ipc::IpcStreamerPipeImpl*> m_open;
    std::vector<std::thread> m_threads;
};

// Serves a client within ClientAccepted: one word back, then it closes.
class OneWordObserver : public ipc::IpcServerObserver {
public:
    void ServerOpened(const char*) override {}
    bool ClientAccepted(ipc::IpcStreamer* streamer) override;
    void ServerClosed() override {}

    std::atomic<int> served{0};
};

// A thread whose state can be looked at.
class WatchedThread {
public:
    explicit WatchedThread(std::function<void()> body);
    ~WatchedThread() { Join(); }
    void Join();

    // Waits until the thread is blocked in the kernel; it may have ended too.
    void WaitUntilBlocked();
    bool HasEnded() const { return m_ended; }
    pthread_t Handle() { return m_thread.native_handle(); }

private:
    std::atomic<int> m_tid{0};
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

// Milliseconds that `function` takes.
template <typename Function>
long MsOf(Function function) {
    const auto start = std::chrono::steady_clock::now();
    function();
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - start)
                                 .count());
}

// What "promptly" means: far below any time limit, far above a busy machine's hiccups.
constexpr long kPromptMs = 4000;

// Two ends of one connection, both open.
class StreamerPair {
public:
    explicit StreamerPair(int id = 7);
    ~StreamerPair();

    // Drops both references of one end.
    void CloseServer();
    void CloseClient();

    ipc::IpcStreamerPipeImpl* server = nullptr;
    ipc::IpcStreamerPipeImpl* client = nullptr;
    bool opened = false;
};

ipc::IpcStreamerPipeImpl* NewStreamer(const char* name, int id, bool isServer);

}  // namespace kpl::test

#endif  // KPL_TESTS_IPC_IPCTESTSUPPORT_H_
