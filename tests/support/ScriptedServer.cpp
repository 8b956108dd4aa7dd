#include "tests/support/ScriptedServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include "kpl/ipc/PipePath.h"

namespace kpl::test {

namespace {

uint32_t Word(const std::string& bytes, size_t offset) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + offset, sizeof(word));
    return word;
}

}  // namespace

ScriptedServer::ScriptedServer(const char* name) {
    m_server.RegisterObserver(this);
    m_server.Start(name, nullptr);
}

ScriptedServer::~ScriptedServer() {
    m_server.Stop();
    for (ipc::IpcStreamer* streamer : m_waiting) {
        streamer->Close();
    }
    if (m_streamer != nullptr) {
        m_streamer->Close();
    }
}

bool ScriptedServer::ClientAccepted(ipc::IpcStreamer* streamer) {
    if (!streamer->Open()) {
        return false;
    }
    os::CAutoLock lock(&m_lock);
    m_waiting.push_back(streamer);
    ++m_clients;
    m_accepted.Set();
    return true;
}

bool ScriptedServer::AwaitClient() {
    CloseConnection();
    if (!m_accepted.Wait(10000)) {
        return false;
    }
    os::CAutoLock lock(&m_lock);
    m_streamer = m_waiting.front();
    m_waiting.erase(m_waiting.begin());
    if (m_waiting.empty()) {
        m_accepted.Reset();
    }
    return true;
}

std::string ScriptedServer::ReadCommand() {
    while (m_received.size() < 16 || m_received.size() < Word(m_received, 8)) {
        char bytes[16384];
        const int received = m_streamer->Read(bytes, sizeof(bytes), 10000);
        if (received <= 0) {
            return "";
        }
        m_received.append(bytes, static_cast<size_t>(received));
    }
    const std::string command = m_received.substr(0, Word(m_received, 8));
    m_received.erase(0, command.size());
    return command;
}

unsigned int ScriptedServer::ReadId() {
    const std::string command = ReadCommand();
    return command.empty() ? 0xFFFFFFFFU : Word(command, 4);
}

bool ScriptedServer::Write(const std::string& bytes) {
    return m_streamer->Write(bytes.data(), static_cast<int>(bytes.size())) ==
           static_cast<int>(bytes.size());
}

void ScriptedServer::CloseConnection() {
    if (m_streamer != nullptr) {
        m_streamer->Close();
        m_streamer = nullptr;
        WakeAcceptStep();
    }
    m_received.clear();
}

// The server's own reference goes with its next accept step; an announcement of no known magic is
// one.
void ScriptedServer::WakeAcceptStep() {
    char path[256];
    ipc::GetPipeServerRootPath(m_server.GetServerName(), path, sizeof(path));
    const int descriptor = open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const char wake[16] = {};
    EXPECT_EQ(write(descriptor, wake, sizeof(wake)), 16);
    close(descriptor);
}

int ScriptedServer::ClientCount() {
    os::CAutoLock lock(&m_lock);
    return m_clients;
}

}  // namespace kpl::test
