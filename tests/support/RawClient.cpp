#include "tests/support/RawClient.h"

#include <poll.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

namespace kpl::test {

namespace {

void AppendWord(std::string* bytes, uint32_t word) {
    bytes->append(reinterpret_cast<const char*>(&word), sizeof(word));
}

}  // namespace

bool RawClient::Receive() {
    pollfd waiting{m_connection.readFd, POLLIN, 0};
    if (poll(&waiting, 1, 10000) != 1) {
        return false;
    }
    char bytes[65536];
    const ssize_t received = read(m_connection.readFd, bytes, sizeof(bytes));
    if (received > 0) {
        m_received.append(bytes, static_cast<size_t>(received));
    }
    return received > 0;
}

std::string RawClient::ReadCommand() {
    const auto size = [this] {
        uint32_t total = 0;
        memcpy(&total, m_received.data() + 8, sizeof(total));
        return size_t{total};
    };
    while (m_received.size() < 16 || m_received.size() < size()) {
        if (!Receive()) {
            return "";
        }
    }
    const std::string command = m_received.substr(0, size());
    m_received.erase(0, command.size());
    return command;
}

bool RawClient::AwaitEnd() {
    pollfd waiting{m_connection.readFd, POLLIN, 0};
    while (poll(&waiting, 1, 10000) == 1) {
        char bytes[65536];
        if (read(m_connection.readFd, bytes, sizeof(bytes)) <= 0) {
            return true;
        }
    }
    return false;
}

std::string RawInvoke(unsigned int id, const std::string& name, int argument) {
    std::string bytes;
    AppendWord(&bytes, 10001);
    AppendWord(&bytes, id);
    AppendWord(&bytes, static_cast<uint32_t>(16 + 12 + 8 + name.size() + 1));
    AppendWord(&bytes, 2);
    AppendWord(&bytes, 2);
    AppendWord(&bytes, 4);
    AppendWord(&bytes, static_cast<uint32_t>(argument));
    AppendWord(&bytes, 50);
    AppendWord(&bytes, static_cast<uint32_t>(name.size() + 1));
    bytes.append(name.c_str(), name.size() + 1);
    return bytes;
}

}  // namespace kpl::test
