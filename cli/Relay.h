#ifndef KPL_CLI_RELAY_H_
#define KPL_CLI_RELAY_H_

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/RecordFile.h"
#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/ipc/IpcServerPipeImpl.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"

namespace kpl::cli {

// One client of the relay, and its connection to the real server.
//
// Two threads: one makes the connection and passes on what the client writes; the other, which it
// starts and joins, what the server writes. Each waits in a read or a write of the library. Whoever
// sees an end, or a stop from outside (End), interrupts both streams, and both threads leave.
class RelayConnection {
public:
    // Takes over one use of the open stream: its Close is the connection's. Starts at once.
    RelayConnection(uint32_t number, ipc::IpcStreamerPipeImpl* client, std::string realName,
                    RecordWriter* file);
    ~RelayConnection();  // ends it and waits
    RelayConnection(const RelayConnection&) = delete;
    RelayConnection& operator=(const RelayConnection&) = delete;

    // Any thread.
    void End();
    bool HasEnded() const { return m_ended; }

private:
    void Serve();
    void RelayBothWays();
    void Pump(ipc::IpcStreamer* from, ipc::IpcStreamer* to, EntryKind kind);
    bool Record(EntryKind kind, const char* bytes, size_t size);

    const uint32_t m_number;
    const std::string m_realName;
    const std::string m_publicName;
    RecordWriter* const m_file;
    ipc::IpcClientPipeImpl m_real;

    std::mutex m_lock;
    // Guarded by m_lock; null when not open. The two pumps use their own copies, which stay good
    // until both have left.
    ipc::IpcStreamerPipeImpl* m_client;
    ipc::IpcStreamerPipeImpl* m_server = nullptr;

    std::atomic<bool> m_ending{false};
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

// Serves one name and passes every connection on to the server of another.
class Relay : private ipc::IpcServerObserver {
public:
    Relay(std::string publicName, std::string realName, RecordWriter* file);
    ~Relay() override;  // stops
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    bool Start();

    // Ends every connection and removes the FIFO. Controlling thread.
    void Stop();

    uint32_t ConnectionCount();

private:
    void ServerOpened(const char*) override {}
    bool ClientAccepted(ipc::IpcStreamer* streamer) override;
    void ServerClosed() override {}

    const std::string m_publicName;
    const std::string m_realName;
    RecordWriter* const m_file;
    ipc::IpcServerPipeImpl m_server;
    bool m_started = false;
    std::mutex m_lock;  // the rest is guarded by it
    uint32_t m_count = 0;
    std::vector<std::unique_ptr<RelayConnection>> m_connections;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_RELAY_H_
