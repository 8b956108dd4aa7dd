// What has become readable since it was last asked for.
#ifndef KPL_NET_SERVER_ARRIVALS_H_
#define KPL_NET_SERVER_ARRIVALS_H_

#include <stdint.h>

namespace kpl::net::server {

// Asking costs the same however many descriptors there are, because the kernel keeps the list. It
// tells of each change once: who does not read all that there is has to look again by himself.
class Arrivals {
public:
    // A wait ends after `tickNs` at the latest. The clock ticks by itself: a time-out of its own
    // for each wait would have to be set and taken back each time.
    explicit Arrivals(long tickNs);
    ~Arrivals();
    Arrivals(const Arrivals&) = delete;
    Arrivals& operator=(const Arrivals&) = delete;

    // False if the system had not enough for it, descriptors for example; it keeps none then, and
    // only Watch may be called, in vain.
    bool IsUsable() const { return m_isUsable; }

    // From now on, until the descriptor is closed. What can be read already counts as arrived. The
    // serial, which is not 0, is what Take calls it by: the number may be another's by then. One
    // that is watched already gets the new serial. False if it cannot be watched. Any thread.
    bool Watch(int fd, uint64_t serial) const;

    // Ends the wait, or the next one, as a tick does. Any thread, as long as the object lives.
    void TickNow() const;

    // Calls `tell` for each one that has something to read now, and had it not when it was last
    // told of: its serial, and poll's events. Waits for one, or a tick, if it may. False: it cannot
    // wait any more, somebody has closed its descriptor. One thread.
    template <typename Tell>
    bool Take(bool mayWait, Tell tell) {
        uint64_t serials[kAtOnce];
        short events[kAtOnce];
        int count = 0;
        do {
            count = TakeSome(mayWait, serials, events);
            for (int i = 0; i < count; ++i) {
                tell(serials[i], events[i]);
            }
            mayWait = false;
        } while (count == kAtOnce);
        return count >= 0;
    }

private:
    static constexpr int kAtOnce = 64;

    bool Open();
    void Close();
    // How many they are; none after a signal. Negative: it cannot wait any more.
    int TakeSome(bool mayWait, uint64_t* serials, short* events);
    void SetClock(long ns) const;

    int m_epoll = -1;  // as Open has left it; so is the clock
    int m_clock = -1;
    const long m_tickNs;
    long m_nextTickNs;
    const bool m_isUsable;   // behind what Open sets and uses
    bool m_hasTold = false;  // since the last tick
};

}  // namespace kpl::net::server

#endif  // KPL_NET_SERVER_ARRIVALS_H_
