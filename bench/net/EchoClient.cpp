#include "bench/net/EchoClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace kpl::bench {

namespace {

constexpr char kLine[] = "sixty-four characters, the last of which is the end of the line\n";
constexpr size_t kSize = sizeof(kLine) - 1;
static_assert(kSize == 64);

// Fewer than a server lets wait to be accepted.
constexpr int kConnectionsAtOnce = 50;

void Require(bool condition, const char* what) {
    if (!condition) {
        perror(what);
        exit(1);
    }
}

int ConnectTo(int port) {
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Require(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0,
            "connect");
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return client;
}

}  // namespace

EchoClient::EchoClient(int port, int connections) : m_epoll(epoll_create1(EPOLL_CLOEXEC)) {
    for (int i = 0; i < connections; ++i) {
        const int client = ConnectTo(port);
        m_sockets.push_back(client);
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = client;
        epoll_ctl(m_epoll, EPOLL_CTL_ADD, client, &event);
        if (i % kConnectionsAtOnce == 0) {
            Send(client);
            Require(Receive(client), "an answer");
        }
    }
}

EchoClient::~EchoClient() {
    for (const int client : m_sockets) {
        close(client);
    }
    close(m_epoll);
}

void EchoClient::Send(int socket) {
    Require(send(socket, kLine, kSize, MSG_NOSIGNAL) == static_cast<ssize_t>(kSize), "send");
}

// Lines are so short that they come in one piece.
bool EchoClient::Receive(int socket) {
    char buffer[kSize];
    return recv(socket, buffer, kSize, 0) == static_cast<ssize_t>(kSize) &&
           memcmp(buffer, kLine, kSize) == 0;
}

double EchoClient::Run(double seconds) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const std::chrono::duration<double> limit(seconds);
    long lines = 0;
    for (const int client : m_sockets) {
        Send(client);
    }
    size_t underWay = m_sockets.size();
    while (underWay > 0) {
        epoll_event events[64];
        const int count = epoll_wait(m_epoll, events, 64, 10000);
        Require(count > 0, "waiting for an answer");
        const bool isOver = Clock::now() - start > limit;
        for (int i = 0; i < count; ++i) {
            Require(Receive(events[i].data.fd), "an answer");
            ++lines;
            if (isOver) {
                --underWay;
            } else {
                Send(events[i].data.fd);
            }
        }
    }
    const std::chrono::duration<double> took = Clock::now() - start;
    return static_cast<double>(lines) / took.count();
}

}  // namespace kpl::bench
