#include "os/WaitReadable.h"

#include <errno.h>

namespace kpl::os {

namespace {

// The end of a wait that starts now; one that lies beyond the clock's range counts as its last
// instant.
int64_t DeadlineNs(const timespec& timeout) {
    const int64_t now = NowNs();
    const int64_t longestSeconds = (INT64_MAX - now) / 1000000000 - 1;
    if (timeout.tv_sec > longestSeconds) {
        return INT64_MAX;
    }
    return now + int64_t{timeout.tv_sec} * 1000000000 + timeout.tv_nsec;
}

timespec TimeLeft(int64_t deadlineNs) {
    const int64_t now = NowNs();
    const int64_t left = deadlineNs > now ? deadlineNs - now : 0;
    timespec timeout{};
    timeout.tv_sec = static_cast<time_t>(left / 1000000000);
    timeout.tv_nsec = static_cast<long>(left % 1000000000);
    return timeout;
}

}  // namespace

int64_t NowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

int PollThroughSignals(pollfd* descriptors, nfds_t count, const timespec* timeout) {
    if (timeout == nullptr) {
        int ready = 0;
        do {
            ready = ppoll(descriptors, count, nullptr, nullptr);
        } while (ready < 0 && errno == EINTR);
        return ready;
    }
    if (timeout->tv_sec < 0 || timeout->tv_nsec < 0) {
        return -1;
    }
    // The clock is read only if a signal may shorten the wait.
    const bool waits = timeout->tv_sec != 0 || timeout->tv_nsec != 0;
    const int64_t deadline = waits ? DeadlineNs(*timeout) : 0;
    timespec left = *timeout;
    for (;;) {
        const int ready = ppoll(descriptors, count, &left, nullptr);
        if (ready >= 0 || errno != EINTR) {
            return ready;
        }
        if (waits) {
            left = TimeLeft(deadline);
        }
    }
}

int WaitReadable(int fd, const timespec* timeout) {
    if (fd < 0) {
        return -1;  // poll would ignore it and wait for nothing.
    }
    pollfd descriptor{fd, POLLIN, 0};
    const int ready = PollThroughSignals(&descriptor, 1, timeout);
    if (ready > 0 && (descriptor.revents & POLLNVAL) != 0) {
        return -1;
    }
    return ready;
}

int WaitEitherReadable(int first, int second, const timespec* timeout) {
    if (first < 0 || second < 0) {
        return -1;
    }
    pollfd descriptors[2] = {{first, POLLIN, 0}, {second, POLLIN, 0}};
    const int ready = PollThroughSignals(descriptors, 2, timeout);
    if (ready <= 0) {
        return ready;
    }
    int mask = 0;
    for (int i = 0; i < 2; ++i) {
        if ((descriptors[i].revents & POLLNVAL) != 0) {
            return -1;
        }
        if (descriptors[i].revents != 0) {
            mask |= 1 << i;
        }
    }
    return mask;
}

}  // namespace kpl::os
