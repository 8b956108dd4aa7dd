#include "cli/Relay.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "kpl/ipc/PipePath.h"

namespace kpl::cli {

namespace {

constexpr long kOpenTimeoutMs = 5000;

// Ends the accept step's wait with an announcement of zeros, which is otherwise ignored: the server
// then comes by and removes the FIFOs of connections that have ended.
void WakeAcceptStep(const std::string& server) {
    char path[256] = {};
    (void)ipc::GetPipeServerRootPath(server.c_str(), path, static_cast<int>(sizeof(path)));
    const int fd = open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd != -1) {
        const char zeros[16] = {};
        (void)!write(fd, zeros, sizeof(zeros));
        close(fd);
    }
}

}  // namespace

RelayConnection::RelayConnection(uint32_t number, ipc::IpcStreamerPipeImpl* client,
                                 std::string realName, RecordWriter* file)
    : m_number(number),
      m_realName(std::move(realName)),
      m_publicName(client->GetServerName()),
      m_file(file),
      m_client(client) {
    m_thread = std::thread(&RelayConnection::Serve, this);
}

RelayConnection::~RelayConnection() {
    End();
    m_thread.join();
}

void RelayConnection::End() {
    m_ending = true;
    m_real.CancelConnect();
    const std::lock_guard<std::mutex> lock(m_lock);
    for (ipc::IpcStreamerPipeImpl* const streamer : {m_client, m_server}) {
        if (streamer != nullptr) {
            streamer->Interrupt();
        }
    }
}

void RelayConnection::Serve() {
    ipc::IpcStreamerPipeImpl* const client = m_client;  // set once, before this thread
    if (Record(EntryKind::Opened, nullptr, 0)) {
        RelayBothWays();
    }
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        m_client = nullptr;
        m_server = nullptr;
    }
    m_real.Disconnect();
    client->Close();
    WakeAcceptStep(m_publicName);
    m_ended = true;
}

void RelayConnection::RelayBothWays() {
    if (!m_real.Connect(m_realName.c_str(), nullptr, kOpenTimeoutMs)) {
        (void)Record(EntryKind::Refused, nullptr, 0);
        return;
    }
    ipc::IpcStreamer* const client = m_client;
    ipc::IpcStreamer* const server = m_real.GetStreamer();
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        m_server = dynamic_cast<ipc::IpcStreamerPipeImpl*>(server);
    }
    std::thread back(&RelayConnection::Pump, this, server, client, EntryKind::FromServer);
    Pump(client, server, EntryKind::FromClient);
    back.join();
    (void)Record(EntryKind::Closed, nullptr, 0);
}

// Recorded first: so no answer stands in the file before its call.
void RelayConnection::Pump(ipc::IpcStreamer* from, ipc::IpcStreamer* to, EntryKind kind) {
    constexpr int kReadTimeoutMs = 1000;
    char bytes[16384];
    while (!m_ending) {
        const int got = from->Read(bytes, static_cast<int>(sizeof(bytes)), kReadTimeoutMs);
        if (got == -2) {
            continue;
        }
        if (got <= 0 || !Record(kind, bytes, static_cast<size_t>(got)) ||
            to->Write(bytes, got) != got) {
            break;
        }
    }
    End();
}

bool RelayConnection::Record(EntryKind kind, const char* bytes, size_t size) {
    return m_file->Write(kind, m_number, bytes, size);
}

Relay::Relay(std::string publicName, std::string realName, RecordWriter* file)
    : m_publicName(std::move(publicName)), m_realName(std::move(realName)), m_file(file) {}

Relay::~Relay() {
    Stop();
}

bool Relay::Start() {
    // Before the start, so that no client comes unnoticed.
    (void)m_server.RegisterObserver(this);
    m_started = m_server.Start(m_publicName.c_str(), nullptr);
    return m_started;
}

void Relay::Stop() {
    if (!m_started) {
        return;
    }
    m_started = false;
    (void)m_server.Stop();  // joins the accept thread: no other connection comes
    std::vector<std::unique_ptr<RelayConnection>> connections;
    const std::lock_guard<std::mutex> lock(m_lock);
    connections.swap(m_connections);
    for (const auto& connection : connections) {
        connection->End();
    }
}

uint32_t Relay::ConnectionCount() {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_count;
}

bool Relay::ClientAccepted(ipc::IpcStreamer* streamer) {
    auto* const client = dynamic_cast<ipc::IpcStreamerPipeImpl*>(streamer);
    if (client == nullptr || !client->OpenWithin(kOpenTimeoutMs)) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_lock);
    const auto ended =
        std::remove_if(m_connections.begin(), m_connections.end(),
                       [](const auto& connection) { return connection->HasEnded(); });
    m_connections.erase(ended, m_connections.end());
    m_connections.push_back(
        std::make_unique<RelayConnection>(++m_count, client, m_realName, m_file));
    return true;
}

}  // namespace kpl::cli
