#include "net/server/Arrivals.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace kpl::net::server {

namespace {

constexpr uint64_t kTick = 0;
constexpr long kLongestTick = 4;

void CloseIfOpen(int* fd) {
    if (*fd != -1) {
        close(*fd);
        *fd = -1;
    }
}

}  // namespace

Arrivals::Arrivals(long tickNs) : m_tickNs(tickNs), m_nextTickNs(tickNs), m_isUsable(Open()) {}

Arrivals::~Arrivals() {
    Close();
}

// Without a tick no wait would end by itself, and none could be ended: all or nothing.
bool Arrivals::Open() {
    m_epoll = epoll_create1(EPOLL_CLOEXEC);
    m_clock = m_epoll != -1 ? timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK) : -1;
    if (m_clock == -1 || !Watch(m_clock, kTick)) {
        Close();
        return false;
    }
    SetClock(m_nextTickNs);
    return true;
}

void Arrivals::Close() {
    CloseIfOpen(&m_clock);
    CloseIfOpen(&m_epoll);
}

bool Arrivals::Watch(int fd, uint64_t serial) const {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    event.data.u64 = serial;
    if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &event) == 0) {
        return true;
    }
    return errno == EEXIST && epoll_ctl(m_epoll, EPOLL_CTL_MOD, fd, &event) == 0;
}

void Arrivals::TickNow() const {
    SetClock(1);
}

// Once, so that a thread that comes late to its ticks is not woken for each of them.
void Arrivals::SetClock(long ns) const {
    itimerspec once{};
    once.it_value.tv_nsec = ns;
    (void)timerfd_settime(m_clock, 0, &once, nullptr);
}

int Arrivals::TakeSome(bool mayWait, uint64_t* serials, short* events) {
    epoll_event taken[kAtOnce];
    const int count = epoll_wait(m_epoll, taken, kAtOnce, mayWait ? -1 : 0);
    if (count < 0 && errno == EINTR) {
        return 0;
    }
    for (int i = 0; i < count; ++i) {
        if (taken[i].data.u64 == kTick) {
            m_nextTickNs =
                m_hasTold ? std::min(m_nextTickNs * 2, m_tickNs * kLongestTick) : m_tickNs;
            m_hasTold = false;
            SetClock(m_nextTickNs);
        } else {
            m_hasTold = true;
        }
        serials[i] = taken[i].data.u64;
        events[i] = static_cast<short>(taken[i].events);  // they have the values of poll's
    }
    return count;
}

}  // namespace kpl::net::server
