#include "tests/ipc/IpcTestSupport.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "kpl/ipc/PipePath.h"
#include "tests/support/Process.h"
#include "tests/support/ThreadState.h"

namespace kpl::test {

void IpcTest::SetUp() {
    ipc::SetPipeRootPath(m_dir.c_str());
    std::thread([] {}).join();  // with the first one, a sanitizer adds a thread of its own
    m_descriptors = OpenDescriptorCount();
    m_threads = ThreadCount();
}

void IpcTest::TearDown() {
    EXPECT_TRUE(WaitUntil([this] { return m_dir.Entries().empty(); }))
        << "left: " << ::testing::PrintToString(m_dir.Entries());
    EXPECT_TRUE(WaitUntil([this] { return ThreadCount() <= m_threads; }));
    EXPECT_TRUE(WaitUntil([this] { return OpenDescriptorCount() <= m_descriptors; }))
        << OpenDescriptorCount() << " instead of " << m_descriptors;
}

bool IpcTest::Exists(const std::string& entry) const {
    return access(Path(entry).c_str(), F_OK) == 0;
}

bool EchoWorks(ipc::IpcStreamer* streamer, const std::string& text) {
    if (streamer->Write(text.data(), static_cast<int>(text.size())) !=
        static_cast<int>(text.size())) {
        return false;
    }
    std::string back;
    while (back.size() < text.size()) {
        char buf[4096];
        const int got = streamer->Read(buf, sizeof(buf), 10000);
        if (got <= 0) {
            return false;
        }
        back.append(buf, static_cast<size_t>(got));
    }
    return back == text;
}

bool EchoWorks(const RawConnection& connection, const std::string& text) {
    std::string back(text.size(), '\0');
    return WriteAll(connection.writeFd, text.data(), text.size()) &&
           ReadAll(connection.readFd, back.data(), back.size()) && back == text;
}

EchoObserver::~EchoObserver() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (ipc::IpcStreamerPipeImpl* streamer : m_open) {
            streamer->Interrupt();
        }
    }
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

void EchoObserver::ServerOpened(const char*) {
    ++opened;
}

void EchoObserver::ServerClosed() {
    ++closed;
}

bool EchoObserver::ClientAccepted(ipc::IpcStreamer* streamer) {
    const long limit = openTimeoutMs;
    ++offered;
    auto* pipe = static_cast<ipc::IpcStreamerPipeImpl*>(streamer);
    if (!pipe->OpenWithin(limit)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_open.push_back(pipe);
    ++accepted;  // before its client can be done
    m_threads.emplace_back([this, pipe] { Echo(pipe); });
    return true;
}

void EchoObserver::Echo(ipc::IpcStreamerPipeImpl* streamer) {
    char buf[4096];
    for (;;) {
        const int got = streamer->Read(buf, sizeof(buf), 0);
        if (got <= 0 || streamer->Write(buf, got) != got) {
            break;
        }
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& open : m_open) {
            if (open == streamer) {
                std::swap(open, m_open.back());
                m_open.pop_back();
                break;
            }
        }
    }
    streamer->Close();
    ++ended;
}

bool OneWordObserver::ClientAccepted(ipc::IpcStreamer* streamer) {
    if (!streamer->Open()) {
        return false;
    }
    char word[4];
    if (streamer->Read(word, sizeof(word), 10000) == 4) {
        ++served;  // before its client can be done
        (void)streamer->Write(word, sizeof(word));
    }
    streamer->Close();
    return true;
}

WatchedThread::WatchedThread(std::function<void()> body)
    : m_thread([this, body] {
          m_tid = static_cast<pid_t>(syscall(SYS_gettid));
          body();
          m_ended = true;
      }) {}

void WatchedThread::Join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void WatchedThread::WaitUntilBlocked() {
    (void)WaitUntilAsleep(m_tid, [this] { return m_ended.load(); });
}

ipc::IpcStreamerPipeImpl* NewStreamer(const char* name, int id, bool isServer) {
    return static_cast<ipc::IpcStreamerPipeImpl*>(
        ipc::IpcStreamerPipeImpl::Create(name, id, isServer));
}

StreamerPair::StreamerPair(int id)
    : server(NewStreamer("Pair", id, true)), client(NewStreamer("Pair", id, false)) {
    bool serverOpened = false;
    std::thread opener([&] { serverOpened = server->OpenWithin(10000); });
    const bool clientOpened = client->OpenWithin(10000);
    opener.join();
    opened = serverOpened && clientOpened;
}

StreamerPair::~StreamerPair() {
    CloseServer();
    CloseClient();
}

void StreamerPair::CloseServer() {
    if (server != nullptr) {
        server->Close();
        server->Close();
        server = nullptr;
    }
}

void StreamerPair::CloseClient() {
    if (client != nullptr) {
        client->Close();
        client->Close();
        client = nullptr;
    }
}

}  // namespace kpl::test
