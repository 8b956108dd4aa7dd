// RpcClient over IPC that is not ours. A program of its own, because it puts another
// IpcClientFactory in the place of the library's.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/IpcClient.h"
#include "kpl/ipc/IpcClientFactory.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcClient.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Stopwatch.h"

namespace {

using namespace kpl::rpc;
using kpl::ipc::IpcClient;
using kpl::ipc::IpcStreamer;
using kpl::test::ResultBytes;
using kpl::test::Stopwatch;
using kpl::test::WaitUntil;

// The other end of a stream, which the test plays, and what it tells the stream to do.
struct Peer {
    // What the stream does.
    std::atomic<bool> refusesToOpen{false};
    std::atomic<bool> failsToWrite{false};

    // What became of it.
    std::atomic<int> references{0};
    std::atomic<int> reads{0};
    std::atomic<int> timedOutReads{0};
    std::atomic<int> readTimeout{0};
    std::atomic<bool> isReading{false};

    void Send(const std::string& bytes) {
        std::lock_guard<std::mutex> lock(mutex);
        toClient += bytes;
        changed.notify_all();
    }
    void Leave() {
        std::lock_guard<std::mutex> lock(mutex);
        left = true;
        changed.notify_all();
    }
    // The id of the next command from the client, which it takes.
    unsigned int AwaitCommand() {
        std::unique_lock<std::mutex> lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(10),
                                     [this] { return !fromClient.empty(); }));
        unsigned int id = 0;
        memcpy(&id, fromClient.front().data() + 4, sizeof(id));
        fromClient.erase(fromClient.begin());
        return id;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::string toClient;
    std::vector<std::string> fromClient;
    bool left = false;
};

// A stream in memory that knows nothing but the published interface.
class MemoryStreamer : public IpcStreamer {
public:
    explicit MemoryStreamer(Peer* peer) : m_peer(peer) { m_peer->references = 1; }

    bool Open() override {
        if (m_peer->refusesToOpen) {
            return false;
        }
        ++m_peer->references;
        return true;
    }
    void Close() override {
        if (--m_peer->references == 0) {
            delete this;
        }
    }
    int SetOption(int, int) override { return 0; }
    int GetOption(int) override { return -1; }
    bool IsOpened() override { return true; }

    int Read(char* buf, int len, int timeout) override {
        m_peer->readTimeout = timeout;
        ++m_peer->reads;
        m_peer->isReading = true;
        const int received = Receive(buf, len, timeout);
        m_peer->isReading = false;
        return received;
    }

    int Write(const char* buf, int len) override {
        if (m_peer->failsToWrite) {
            return -1;
        }
        std::lock_guard<std::mutex> lock(m_peer->mutex);
        m_peer->fromClient.emplace_back(buf, static_cast<size_t>(len));
        m_peer->changed.notify_all();
        return len;
    }

private:
    ~MemoryStreamer() override = default;

    int Receive(char* buf, int len, int timeout) {
        std::unique_lock<std::mutex> lock(m_peer->mutex);
        if (!m_peer->changed.wait_for(lock, std::chrono::milliseconds(timeout), [this] {
                return !m_peer->toClient.empty() || m_peer->left;
            })) {
            ++m_peer->timedOutReads;
            return -2;
        }
        const size_t size = std::min(m_peer->toClient.size(), static_cast<size_t>(len));
        memcpy(buf, m_peer->toClient.data(), size);
        m_peer->toClient.erase(0, size);
        return static_cast<int>(size);
    }

    Peer* const m_peer;
};

// What the factory below hands out, and what it has handed out.
struct Factory {
    bool createsNothing = false;
    bool connects = true;
    bool hasStreamer = true;
    Peer* peer = nullptr;
    int created = 0;
    int destroyed = 0;
    std::vector<std::string> names;
};

Factory* factory = nullptr;

// Holds its streamer's first reference, as every IPC client does.
class MemoryClient : public IpcClient {
public:
    ~MemoryClient() override { Disconnect(); }
    bool Connect(const char* serverName, void*) override {
        factory->names.emplace_back(serverName);
        if (factory->connects && factory->hasStreamer) {
            m_streamer = new MemoryStreamer(factory->peer);
        }
        return factory->connects;
    }
    void Disconnect() override {
        if (m_streamer != nullptr) {
            m_streamer->Close();
            m_streamer = nullptr;
        }
    }
    IpcStreamer* GetStreamer() override { return m_streamer; }

private:
    IpcStreamer* m_streamer = nullptr;
};

}  // namespace

// In the place of the shared library's.
IpcClient* kpl::ipc::IpcClientFactory::Create(int kind) {
    EXPECT_EQ(kind, 0);
    ++factory->created;
    return factory->createsNothing ? nullptr : new MemoryClient;
}

void kpl::ipc::IpcClientFactory::Destroy(IpcClient* client) {
    ++factory->destroyed;
    delete client;
}

namespace {

class ForeignIpcTest : public testing::Test {
protected:
    ForeignIpcTest() : m_log(kpl::test::LogCapture::Debug::Off) {
        m_factory.peer = &peer;
        factory = &m_factory;
    }
    ~ForeignIpcTest() override {
        client.reset();
        EXPECT_EQ(peer.references, 0);
        EXPECT_EQ(m_factory.destroyed, m_factory.createsNothing ? 0 : m_factory.created);
        EXPECT_FALSE(peer.isReading);
        factory = nullptr;
    }

    Peer peer;

private:
    kpl::test::LogCapture m_log;
    Factory m_factory;

protected:
    std::unique_ptr<RpcClient> client = std::make_unique<RpcClient>();
};

// --- Connecting ---

TEST_F(ForeignIpcTest, WithoutAnIpcClientConnectIsFalse) {
    factory->createsNothing = true;
    EXPECT_FALSE(client->Connect("x", nullptr));
    EXPECT_FALSE(client->Connect("x", nullptr, 1000));
    EXPECT_EQ(factory->created, 2);
    EXPECT_EQ(client->GetServerName(), nullptr);
}

TEST_F(ForeignIpcTest, AnIpcClientThatDoesNotConnectIsKeptUntilTheNextRelease) {
    factory->connects = false;
    EXPECT_FALSE(client->Connect("x", nullptr));
    EXPECT_EQ(client->GetServerName(), nullptr);
    EXPECT_EQ(factory->destroyed, 0);
    EXPECT_FALSE(client->Connect("x", nullptr));
    EXPECT_EQ(factory->created, 2);
    EXPECT_EQ(factory->destroyed, 1);
    client->Disconnect();
    EXPECT_EQ(factory->destroyed, 2);
}

TEST_F(ForeignIpcTest, AStreamerThatRefusesToOpenStaysStoredAndASecondConnectIsTrueAtOnce) {
    peer.refusesToOpen = true;
    EXPECT_FALSE(client->Connect("x", nullptr));
    EXPECT_STREQ(client->GetServerName(), "x");
    EXPECT_TRUE(client->Connect("x", nullptr));
    EXPECT_EQ(factory->created, 1);
    EXPECT_EQ(peer.references, 1);  // The IPC client's own.
    EXPECT_FALSE(client->IsAlive());
    EXPECT_EQ(peer.reads, 0);
}

TEST_F(ForeignIpcTest, CallsOverAStreamerThatRefusesToOpenAreFalseAtOnce) {
    peer.refusesToOpen = true;
    EXPECT_FALSE(client->Connect("x", nullptr));
    EXPECT_FALSE(client->Invoke("f"));
    EXPECT_FALSE(client->Invoke("f", 60000));
    EXPECT_EQ(Call<int>(*client, "f"), std::nullopt);
}

TEST_F(ForeignIpcTest, AStreamerThatRefusedIsReleasedByDisconnectAndTheNextConnectOpens) {
    peer.refusesToOpen = true;
    EXPECT_FALSE(client->Connect("x", nullptr));
    client->Disconnect();
    EXPECT_EQ(peer.references, 0);
    EXPECT_EQ(client->GetServerName(), nullptr);
    peer.refusesToOpen = false;
    EXPECT_TRUE(client->Connect("x", nullptr));
    EXPECT_TRUE(client->IsAlive());
    peer.Leave();
}

TEST_F(ForeignIpcTest, AStreamerThatRefusedIsReleasedByAConnectToAnotherName) {
    peer.refusesToOpen = true;
    EXPECT_FALSE(client->Connect("x", nullptr));
    peer.refusesToOpen = false;
    EXPECT_TRUE(client->Connect("y", nullptr));
    EXPECT_EQ(factory->names, (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(factory->destroyed, 1);
    EXPECT_STREQ(client->GetServerName(), "y");
    EXPECT_TRUE(client->IsAlive());
    peer.Leave();
}

TEST_F(ForeignIpcTest, AnIpcClientWithoutAStreamerIsAsOneWhoseStreamerRefuses) {
    factory->hasStreamer = false;
    EXPECT_FALSE(client->Connect("x", nullptr));
    EXPECT_TRUE(client->Connect("x", nullptr));
    EXPECT_FALSE(client->Invoke("f"));
    EXPECT_FALSE(client->IsAlive());
}

// --- A connection ---

class ConnectedForeignIpcTest : public ForeignIpcTest {
protected:
    ConnectedForeignIpcTest() { EXPECT_TRUE(client->Connect("x", nullptr, 5000)); }
    ~ConnectedForeignIpcTest() override { peer.Leave(); }

    // A call of `f` on a thread of its own.
    std::future<std::optional<int>> CallElsewhere(long timeoutMs = 10000) {
        return std::async(std::launch::async,
                          [this, timeoutMs] { return Call<int>(*client, timeoutMs, "f", 1); });
    }
};

TEST_F(ConnectedForeignIpcTest, CallsAndCallbacksWork) {
    std::promise<int> heard;
    auto answered = std::async(std::launch::async, [&] {
        return Call<int>(*client, "f", 1, [&heard](int value) { heard.set_value(value); });
    });
    const unsigned int id = peer.AwaitCommand();
    EXPECT_EQ(peer.references, 3);  // The IPC client's, the connection's, the call's.
    peer.Send(kpl::test::CallbackBytes(id, 0, 6) + ResultBytes(id, 5));
    EXPECT_EQ(answered.get(), 5);
    EXPECT_EQ(heard.get_future().get(), 6);
    EXPECT_EQ(peer.references, 2);
}

TEST_F(ConnectedForeignIpcTest, AReadThatTimesOutIsRepeated) {
    auto answered = CallElsewhere();
    const unsigned int id = peer.AwaitCommand();
    EXPECT_TRUE(WaitUntil([this] { return peer.timedOutReads >= 1; }));
    EXPECT_EQ(peer.readTimeout, 1000);
    EXPECT_TRUE(client->IsAlive());
    peer.Send(ResultBytes(id, 5));
    EXPECT_EQ(answered.get(), 5);
}

TEST_F(ConnectedForeignIpcTest, APeerThatLeavesEndsTheReaderAndTimedCalls) {
    auto answered = CallElsewhere(60000);
    EXPECT_EQ(peer.AwaitCommand(), 0U);
    const Stopwatch watch;
    peer.Leave();
    EXPECT_EQ(answered.get(), std::nullopt);
    EXPECT_TRUE(WaitUntil([this] { return !client->IsAlive(); }));
    EXPECT_LT(watch.ElapsedMs(), 20000);
}

TEST_F(ConnectedForeignIpcTest, DisconnectEndsACallThatWaitsAndTheReaderAtItsNextLook) {
    auto answered = CallElsewhere(-1);
    EXPECT_EQ(peer.AwaitCommand(), 0U);
    EXPECT_TRUE(WaitUntil([this] { return peer.isReading.load(); }));
    const Stopwatch watch;
    std::thread disconnect([this] { client->Disconnect(); });
    EXPECT_EQ(answered.get(), std::nullopt);  // Does not wait for the reader.
    disconnect.join();
    EXPECT_LT(watch.ElapsedMs(), 5000);  // A read lasts 1000 ms at most.
    EXPECT_FALSE(peer.isReading);
    EXPECT_FALSE(client->IsAlive());
    EXPECT_EQ(peer.references, 0);
}

TEST_F(ConnectedForeignIpcTest, ATimedCallWaitsItsTimeAlsoWhenItsWriteFails) {
    peer.failsToWrite = true;
    const Stopwatch watch;
    EXPECT_EQ(Call<int>(*client, 30, "f"), std::nullopt);
    EXPECT_GE(watch.ElapsedMs(), 30);
    EXPECT_TRUE(client->IsAlive());
    EXPECT_EQ(peer.references, 2);
}

TEST_F(ConnectedForeignIpcTest, CanConnectAgain) {
    client->Disconnect();
    ASSERT_TRUE(client->Connect("x", nullptr));
    auto answered = CallElsewhere();
    peer.Send(ResultBytes(peer.AwaitCommand(), 8));
    EXPECT_EQ(answered.get(), 8);
}

// --- The server's side ---

TEST_F(ForeignIpcTest, TheServerRefusesAStreamerOfAnotherKindAndTakesNoReference) {
    RpcServer server;
    auto* const streamer = new MemoryStreamer(&peer);
    EXPECT_FALSE(server.ClientAccepted(streamer));
    EXPECT_EQ(peer.references, 1);
    EXPECT_EQ(server.GetConnectionCount(), 0);
    streamer->Close();
}

}  // namespace
