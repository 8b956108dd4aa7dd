#include "bench/net/EpollServer.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kpl::bench {

namespace {

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

void ServeWithEpoll(int listener, int end) {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    Watch(epoll, listener);
    Watch(epoll, end);
    for (;;) {
        epoll_event events[64];
        const int count = epoll_wait(epoll, events, 64, -1);
        for (int i = 0; i < count; ++i) {
            const int descriptor = events[i].data.fd;
            if (descriptor == end) {
                close(epoll);
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
