#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/net/TcpServers.h"

namespace kpl::bench {

namespace {

int ListenOnLoopback(int* port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener, 128) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        perror("listen");
        exit(1);
    }
    *port = ntohs(address.sin_port);
    return listener;
}

void Watch(int epoll, int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event);
}

void Echo(int client) {
    char buffer[8192];
    const ssize_t count = recv(client, buffer, sizeof(buffer), 0);
    if (count < 1 || send(client, buffer, static_cast<size_t>(count), MSG_NOSIGNAL) != count) {
        close(client);
    }
}

}  // namespace

void ServeWithEpoll(int said, int end) {
    int port = 0;
    const int listener = ListenOnLoopback(&port);
    (void)!write(said, &port, sizeof(port));
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    Watch(epoll, listener);
    Watch(epoll, end);
    for (;;) {
        epoll_event events[64];
        const int count = epoll_wait(epoll, events, 64, -1);
        for (int i = 0; i < count; ++i) {
            const int descriptor = events[i].data.fd;
            if (descriptor == end) {
                return;
            }
            if (descriptor == listener) {
                Watch(epoll, accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
            } else {
                Echo(descriptor);
            }
        }
    }
}

}  // namespace kpl::bench
