// Writes any bytes, in any pieces, to a connection of an RpcServer. It must execute the commands
// that stand in them at once, answer each of them, and end at the first bytes that cannot become a
// command, and not before.
#include <android/log.h>
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "fuzz/CommandWords.h"
#include "fuzz/Pieces.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "rpc/CommandCheck.h"
#include "rpc/RpcConnection.h"

// Takes the library's messages and drops them.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using namespace kpl::rpc;
using kpl::fuzz::CommandWords;
using kpl::fuzz::Pieces;
using kpl::ipc::IpcStreamerPipeImpl;

constexpr int kPatienceMs = 10000;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// Of the pipe root, which is gone when the process ends.
class Folder {
public:
    Folder() {
        Require(mkdtemp(m_path) != nullptr);
        kpl::ipc::SetPipeRootPath(m_path);
    }
    ~Folder() { rmdir(m_path); }

private:
    char m_path[32] = "/tmp/kpl_server_fuzz_XXXXXX";
};

// What came out of a stream.
struct Served {
    bool endedByItself = false;
    std::vector<std::string> commands;
    std::vector<unsigned int> answered;  // ids

    bool operator==(const Served& other) const {
        return endedByItself == other.endedByItself && commands == other.commands &&
               answered == other.answered;
    }
};

Served AtOnce(std::string bytes) {
    Served served;
    for (size_t at = 0; at < bytes.size();) {
        const size_t left = std::min(bytes.size() - at, size_t{kMaxCommandSize});
        const int size = static_cast<int>(left);
        const RpcCommandDemuxer command(bytes.data() + at, size);
        if (!command.IsValidCommand()) {
            served.endedByItself = !CanBecomeInvoke(bytes.data() + at, size);
            break;
        }
        if (command.GetCommandType() != RPC_COMMAND_INVOKE ||
            command.GetFunctionName() == nullptr) {
            served.endedByItself = true;
            break;
        }
        served.commands.push_back(CommandWords(command));
        served.answered.push_back(command.GetId());
        at += static_cast<size_t>(command.GetSize());
    }
    return served;
}

// Notes what is executed. Functions whose name begins with '-' it does not know.
class Notes : public RpcExecutor {
public:
    Notes() { Require(RpcExecutorManager::GetInstance()->RegisterExecutor(this)); }
    ~Notes() override { (void)RpcExecutorManager::GetInstance()->UnregisterExecutor(this); }

    RpcCommandMuxer* Execute(RpcCommandDemuxer* command, RpcCallback*) override {
        commands.push_back(CommandWords(*command));
        const bool isKnown = command->GetFunctionName()[0] != '-';
        const bool isAnswered = isKnown && m_muxer.Push(command->GetSize()) &&
                                m_muxer.Finish(RPC_COMMAND_RESULT, nullptr, command->GetId()) > 0;
        return isAnswered ? &m_muxer : nullptr;
    }

    std::vector<std::string> commands;  // the connection's thread, until that has ended

private:
    char m_buffer[256];
    RpcCommandMuxer m_muxer{m_buffer, sizeof(m_buffer)};
};

class Connection : private RpcConnectionOwner {
public:
    Connection() {
        char toServer[256];
        char toClient[256];
        Require(kpl::ipc::GetPipeServerPath("Fuzz", 1, toServer, sizeof(toServer)) &&
                kpl::ipc::GetPipeClientPath("Fuzz", 1, toClient, sizeof(toClient)));
        Require(mkfifo(toServer, 0600) == 0 && mkfifo(toClient, 0600) == 0);
        m_results = open(toClient, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        m_commands = open(toServer, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        auto* const streamer =
            static_cast<IpcStreamerPipeImpl*>(IpcStreamerPipeImpl::Create("Fuzz", 1, true));
        Require(m_results != -1 && m_commands != -1);
        m_streamer = streamer;
        m_connection = new RpcConnection(this, "Fuzz", streamer, kPatienceMs, kPatienceMs);
        Require(m_connection->Run());
        while (m_connection->GetState() == RpcConnection::State::Opening) {
            sched_yield();
        }
    }
    ~Connection() override {
        close(m_results);
        m_connection->Join();
        m_connection->Release();  // the thread's
        m_connection->Release();
        m_streamer->Close();
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Returns when the connection has taken it.
    void Write(std::string_view piece) {
        Require(write(m_commands, piece.data(), piece.size()) ==
                static_cast<ssize_t>(piece.size()));
        int left = 1;
        while (left > 0 && !m_connection->WaitForEnd(0)) {
            sched_yield();
            Receive();
            Require(ioctl(m_commands, FIONREAD, &left) == 0);
        }
    }
    bool HasEnded() { return m_connection->WaitForEnd(0); }
    bool AwaitEnd() { return m_connection->WaitForEnd(kPatienceMs); }
    void Leave() {
        close(m_commands);
        m_commands = -1;
    }
    void Receive() {
        char bytes[4096];
        for (ssize_t size = 1; size > 0;) {
            size = read(m_results, bytes, sizeof(bytes));
            m_received.append(bytes, size > 0 ? static_cast<size_t>(size) : 0);
        }
    }
    // The ids of the results, which must be nothing but results.
    std::vector<unsigned int> Answered() {
        std::vector<unsigned int> ids;
        for (size_t at = 0; at < m_received.size();) {
            const RpcCommandDemuxer result(m_received.data() + at,
                                           static_cast<int>(m_received.size() - at));
            Require(result.IsValidCommand() && result.GetCommandType() == RPC_COMMAND_RESULT);
            ids.push_back(result.GetId());
            at += static_cast<size_t>(result.GetSize());
        }
        return ids;
    }

private:
    void ConnectionEnded(RpcConnection*) override {}

    int m_results = -1;
    int m_commands = -1;
    IpcStreamerPipeImpl* m_streamer = nullptr;
    RpcConnection* m_connection = nullptr;
    std::string m_received;
};

Served InPieces(const std::string& bytes, uint32_t seed, bool endsByItself) {
    static const Folder folder;
    Notes notes;
    Served served;
    Connection connection;
    for (Pieces pieces(bytes, seed); !pieces.IsEmpty() && !connection.HasEnded();) {
        connection.Write(pieces.Next(bytes.size()));
    }
    // It has read all; whether it will end by itself, time must tell only if it should.
    served.endedByItself = endsByItself ? connection.AwaitEnd() : connection.HasEnded();
    connection.Leave();
    Require(connection.AwaitEnd());
    connection.Receive();
    served.answered = connection.Answered();
    served.commands = notes.commands;
    return served;
}

}  // namespace

// The first four bytes say how the others are cut into pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) {
        return 0;
    }
    uint32_t seed = 0;
    memcpy(&seed, data, sizeof(seed));
    const std::string bytes(reinterpret_cast<const char*>(data) + 4, size - 4);
    const Served expected = AtOnce(bytes);
    Require(InPieces(bytes, seed, expected.endedByItself) == expected);
    return 0;
}
