#include "tests/examples/HttpClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <utility>

namespace kpl::test {

bool HttpAnswer::HasField(const std::string& line) const {
    return head.find("\r\n" + line + "\r\n") != std::string::npos;
}

HttpClient::HttpClient(int port, const char* host)
    : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit{20, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, host, &address.sin_addr);
    if (connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(std::exchange(m_socket, -1));
    }
}

HttpClient::~HttpClient() {
    if (m_socket >= 0) {
        close(m_socket);
    }
}

HttpClient::HttpClient(HttpClient&& other) noexcept
    : m_socket(std::exchange(other.m_socket, -1)), m_received(std::move(other.m_received)) {}

bool HttpClient::Send(const std::string& bytes) const {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 1) {
            return false;
        }
        sent += static_cast<size_t>(count);
    }
    return true;
}

std::string HttpClient::HalfGet(const std::string& target) {
    return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n";
}

bool HttpClient::Receive() {
    char buffer[65536];
    const ssize_t count = recv(m_socket, buffer, sizeof(buffer), 0);
    if (count > 0) {
        m_received.append(buffer, static_cast<size_t>(count));
    }
    return count > 0;
}

HttpAnswer HttpClient::Read(bool isHead) {
    size_t end = m_received.find("\r\n\r\n");
    while (end == std::string::npos) {
        if (!Receive()) {
            return {};
        }
        end = m_received.find("\r\n\r\n");
    }
    HttpAnswer answer;
    answer.head = m_received.substr(0, end + 2);
    m_received.erase(0, end + 4);
    const size_t field = answer.head.find("\r\nContent-Length: ");
    const size_t length = isHead || field == std::string::npos
                              ? 0
                              : strtoul(answer.head.c_str() + field + 18, nullptr, 10);
    while (m_received.size() < length) {
        if (!Receive()) {
            return {};
        }
    }
    answer.body = m_received.substr(0, length);
    m_received.erase(0, length);
    answer.status =
        answer.head.compare(0, 9, "HTTP/1.1 ") == 0 ? atoi(answer.head.c_str() + 9) : -1;
    return answer;
}

HttpAnswer HttpClient::Fetch(const std::string& target) {
    return Send(Get(target)) ? Read() : HttpAnswer();
}

std::string HttpClient::ReadBytes(size_t count) {
    while (m_received.size() < count && Receive()) {
    }
    const std::string bytes = m_received.substr(0, count);
    m_received.erase(0, count);
    return bytes;
}

bool HttpClient::ReadUntilEnd(size_t count) {
    size_t total = 0;
    do {
        total += m_received.size();
        m_received.clear();
    } while (Receive());
    return total >= count;
}

bool HttpClient::IsEnded() {
    char byte = 0;
    return m_received.empty() && recv(m_socket, &byte, 1, 0) == 0;
}

int PortIn(const std::string& output) {
    const std::string line = output.substr(0, output.find('\n'));
    const size_t end = line.find_last_of("0123456789");
    const size_t start = line.find_last_not_of("0123456789", end);
    return end == std::string::npos ? 0 : atoi(line.c_str() + start + 1);
}

}  // namespace kpl::test
