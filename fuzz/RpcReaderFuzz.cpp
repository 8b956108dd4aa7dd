// Answers a client's call with any bytes, in any pieces. The result that the call returns with, and
// the callbacks that run, must be those that stand in the bytes read at once.
#include <android/log.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "fuzz/CommandWords.h"
#include "fuzz/Pieces.h"
#include "kpl/ipc/IpcClient.h"
#include "kpl/ipc/IpcClientFactory.h"
#include "kpl/rpc/RpcClient.h"
#include "rpc/CommandBuffer.h"

// Takes the library's messages and drops them.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using namespace kpl::rpc;
using kpl::fuzz::CommandWords;
using kpl::fuzz::Pieces;
using kpl::ipc::IpcClient;
using kpl::ipc::IpcStreamer;

constexpr int kCallbacks = 2;
constexpr std::chrono::seconds kPatience(10);

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// What the call's bytes mean to a client.
struct Outcome {
    bool isAnswered = false;
    std::string result;  // the last one for the call: they all come during its write
    std::vector<std::string> callbacks;  // in their order

    bool operator==(const Outcome& other) const {
        return isAnswered == other.isAnswered && result == other.result &&
               callbacks == other.callbacks;
    }
};

Outcome AtOnce(std::string bytes) {
    Outcome outcome;
    for (size_t at = 0; at < bytes.size();) {
        const size_t size = std::min(bytes.size() - at, size_t{kMaxCommandSize});
        const RpcCommandDemuxer command(bytes.data() + at, static_cast<int>(size));
        if (!command.IsValidCommand()) {
            break;
        }
        at += static_cast<size_t>(command.GetSize());
        if (command.GetId() != 0) {
            continue;
        }
        const int index = command.Get<int>(0);
        if (command.GetCommandType() == RPC_COMMAND_RESULT) {
            outcome.isAnswered = true;
            outcome.result = CommandWords(command);
        } else if (command.GetCommandType() == RPC_COMMAND_CALLBACK && index >= 0 &&
                   index < kCallbacks) {
            outcome.callbacks.push_back(CommandWords(command));
        }
    }
    if (!outcome.isAnswered) {
        outcome.callbacks.clear();  // A call that fails forgets its callbacks.
    }
    return outcome;
}

// The server's bytes begin to flow when the call is written, and all have arrived when that write
// returns.
class Stream : public IpcStreamer {
public:
    Stream(const std::string& bytes, uint32_t seed) : m_pieces(bytes, seed) {}

    // Whose reader may end before it has read all.
    void Watch(const RpcClient* client) { m_client = client; }

    bool Open() override {
        ++m_references;
        return true;
    }
    void Close() override {
        if (--m_references == 0) {
            delete this;
        }
    }
    int SetOption(int, int) override { return 0; }
    int GetOption(int) override { return -1; }
    bool IsOpened() override { return true; }

    int Read(char* buf, int len, int timeout) override {
        std::unique_lock<std::mutex> lock(m_lock);
        if (!m_changed.wait_for(lock, std::chrono::milliseconds(timeout),
                                [this] { return m_isFlowing; })) {
            return -2;
        }
        if (m_pieces.IsEmpty()) {
            m_isOver = true;
            m_changed.notify_all();
            return 0;
        }
        const std::string_view piece = m_pieces.Next(static_cast<size_t>(len));
        memcpy(buf, piece.data(), piece.size());
        return static_cast<int>(piece.size());
    }

    int Write(const char*, int len) override {
        std::unique_lock<std::mutex> lock(m_lock);
        m_isFlowing = true;
        m_changed.notify_all();
        while (!m_isOver && m_client->IsAlive()) {
            m_changed.wait_for(lock, std::chrono::milliseconds(1));
        }
        return len;
    }

private:
    ~Stream() override = default;

    std::atomic<int> m_references{1};
    std::mutex m_lock;
    std::condition_variable m_changed;
    const RpcClient* m_client = nullptr;
    Pieces m_pieces;
    bool m_isFlowing = false;
    bool m_isOver = false;
};

Stream* nextStream = nullptr;

class MemoryClient : public IpcClient {
public:
    ~MemoryClient() override { Disconnect(); }
    bool Connect(const char*, void*) override {
        m_streamer = nextStream;
        return true;
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

// What the callback thread has run.
class Ran {
public:
    void Add(const RpcCommandDemuxer& command) {
        std::lock_guard<std::mutex> lock(m_lock);
        m_words.push_back(CommandWords(command));
        m_changed.notify_all();
    }
    std::vector<std::string> Await(size_t count) {
        std::unique_lock<std::mutex> lock(m_lock);
        m_changed.wait_for(lock, kPatience, [&] { return m_words.size() >= count; });
        return m_words;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(m_lock);
        m_words.clear();
    }

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<std::string> m_words;
};

Ran ran;

void Note(void*, RpcCommandDemuxer* command) {
    ran.Add(*command);
}

Outcome InPieces(const std::string& bytes, uint32_t seed, size_t callbacks) {
    RpcClient client;
    nextStream = new Stream(bytes, seed);
    nextStream->Watch(&client);
    ran.Clear();
    Require(client.Connect("Fuzz", nullptr));
    for (int i = 0; i < kCallbacks; ++i) {
        Require(client.GetCommandMuxer()->Push(RpcCallbackContext(&ran, Note)));
    }
    Outcome outcome;
    outcome.isAnswered = client.Invoke("Call", 60000);
    if (outcome.isAnswered) {
        outcome.result = CommandWords(*client.GetCommandDemuxer());
    }
    outcome.callbacks = ran.Await(callbacks);
    return outcome;
}

}  // namespace

// In the place of the shared library's.
IpcClient* kpl::ipc::IpcClientFactory::Create(int) {
    return new MemoryClient;
}

void kpl::ipc::IpcClientFactory::Destroy(IpcClient* client) {
    delete client;
}

// The first four bytes say how the others are cut into pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) {
        return 0;
    }
    uint32_t seed = 0;
    memcpy(&seed, data, sizeof(seed));
    const std::string bytes(reinterpret_cast<const char*>(data) + 4, size - 4);
    const Outcome expected = AtOnce(bytes);
    Require(InPieces(bytes, seed, expected.callbacks.size()) == expected);
    return 0;
}
