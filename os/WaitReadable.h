// The one way in which the library waits for descriptors. poll-based, because select() corrupts
// memory for descriptors from 1024 on.
#ifndef KPL_OS_WAITREADABLE_H_
#define KPL_OS_WAITREADABLE_H_

#include <poll.h>
#include <stdint.h>
#include <time.h>

namespace kpl::os {

// How long a read with a time-out of `timeoutMs` waits: `timeoutMs / 1000` seconds, and the
// remainder as microseconds, unscaled. The sub-second part is therefore a thousand times shorter
// than its name says; callers have always seen it like that and rely on it.
inline timespec UnscaledTimeout(int64_t timeoutMs) {
    timespec timeout{};
    timeout.tv_sec = static_cast<time_t>(timeoutMs / 1000);
    timeout.tv_nsec = static_cast<long>(timeoutMs % 1000) * 1000;
    return timeout;
}

inline timespec MsTimeout(long timeoutMs) {
    timespec timeout{};
    timeout.tv_sec = timeoutMs / 1000;
    timeout.tv_nsec = (timeoutMs % 1000) * 1000000;
    return timeout;
}

// Nanoseconds of the monotonic clock.
int64_t NowNs();

// ppoll, continued after a signal with the time that is left. A null `timeout` waits without limit,
// a negative one is an error. Returns what ppoll returns.
int PollThroughSignals(pollfd* descriptors, nfds_t count, const timespec* timeout);

// Waits until `fd` can be read; end of file and a hang-up count as readable. Returns 1, 0 after
// `timeout`, -1 for a descriptor that is not open. A null `timeout` waits without limit. A signal
// does not end the wait: it goes on with the time that is left.
int WaitReadable(int fd, const timespec* timeout);

// Waits until `first` or `second` can be read. Returns a mask: bit 0 for `first`, bit 1 for
// `second`; 0 after `timeout`; -1 for a descriptor that is not open.
int WaitEitherReadable(int first, int second, const timespec* timeout);

}  // namespace kpl::os

#endif  // KPL_OS_WAITREADABLE_H_
