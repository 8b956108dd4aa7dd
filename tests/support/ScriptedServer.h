#ifndef KPL_TESTS_SUPPORT_SCRIPTEDSERVER_H_
#define KPL_TESTS_SUPPORT_SCRIPTEDSERVER_H_

#include <string>
#include <vector>

#include "kpl/ipc/IpcServerPipeImpl.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCommandMuxer.h"

namespace kpl::test {

// The bytes of one command of that type and id with the given parameters.
template <class... Args>
std::string CommandBytes(int type, unsigned int id, Args... args) {
    char buffer[32768];
    rpc::RpcCommandMuxer muxer(buffer, sizeof(buffer));
    const bool pushed = (muxer.Push(args) && ...);
    const int size = pushed ? muxer.Finish(type, nullptr, id) : 0;
    return std::string(buffer, static_cast<size_t>(size));
}

template <class... Args>
std::string ResultBytes(unsigned int id, Args... args) {
    return CommandBytes(rpc::RPC_COMMAND_RESULT, id, args...);
}

template <class... Args>
std::string CallbackBytes(unsigned int id, int index, Args... args) {
    return CommandBytes(rpc::RPC_COMMAND_CALLBACK, id, index, args...);
}

// A server whose every byte is the test's. It takes one client after the other.
class ScriptedServer : private ipc::IpcServerObserver {
public:
    explicit ScriptedServer(const char* name);
    ~ScriptedServer() override;  // closes the connection and stops

    // Waits for the next client; false after ten seconds.
    bool AwaitClient();

    // Reads one whole command; empty when the client has gone or nothing comes in ten seconds.
    std::string ReadCommand();
    // The same, and the id in it.
    unsigned int ReadId();

    bool Write(const std::string& bytes);
    void CloseConnection();
    int ClientCount();

private:
    void ServerOpened(const char*) override {}
    bool ClientAccepted(ipc::IpcStreamer* streamer) override;
    void ServerClosed() override {}
    void WakeAcceptStep();

    ipc::IpcServerPipeImpl m_server;
    os::CCritSec m_lock;
    os::CEvent m_accepted{false};
    std::vector<ipc::IpcStreamer*> m_waiting;
    int m_clients = 0;
    ipc::IpcStreamer* m_streamer = nullptr;
    std::string m_received;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_SCRIPTEDSERVER_H_
