// Datagrams to everybody on the local network, and receiving them.
#ifndef KPL_NET_UDPBROADCAST_H_
#define KPL_NET_UDPBROADCAST_H_

#include "kpl/Export.h"

namespace kpl::net {

// Sends datagrams to everybody.
class KPL_EXPORT UDPBroadcastSender {
public:
    // Sends `length` bytes as one datagram to `port` of the broadcast address of the first
    // interface that is not loopback. That address is the interface's own with 255 at its end,
    // whatever its mask is. Returns true if all of it was sent; false for null, a length below 1,
    // and without an address. Any thread.
    bool Send(const char* data, int length, int port);
};

// Hears what a UDPBroadcastReceiver receives. Not owned by it.
class KPL_EXPORT UDPBroadcastObserver {
public:
    // `data` holds `length` bytes and a zero behind them, during the call only. On the receiving
    // thread, one datagram at a time.
    virtual void OnBroadcastReceived(const char* data, int length) = 0;

    virtual ~UDPBroadcastObserver() = default;
};

// Receives datagrams on a port, on a thread of its own, and hands each to its observers. Start,
// Stop and the destructor belong to one controlling thread; Stop also to an observer.
class KPL_EXPORT UDPBroadcastReceiver {
public:
    UDPBroadcastReceiver();
    ~UDPBroadcastReceiver();  // stops; never from an observer
    UDPBroadcastReceiver(const UDPBroadcastReceiver&) = delete;
    UDPBroadcastReceiver& operator=(const UDPBroadcastReceiver&) = delete;

    // Stops an earlier run and starts a thread that binds `port` and receives. Returns 1 if the
    // thread was started, else 0; a port that cannot be had is only logged. The thread ends with
    // Stop, with the first empty datagram and with the first error, and is not started again by
    // itself; the port stays taken until Stop. Datagrams are cut to 4095 bytes. From an observer it
    // does nothing but return 0.
    int Start(int port);

    // Ends the thread and waits for it, so also for an observer that it has called. From an
    // observer it does not wait: the thread ends when the observer returns. Can be repeated.
    void Stop();

    // Appends an observer; one that is there already stays where it is, null is ignored. Before
    // Start.
    void RegisterObserver(UDPBroadcastObserver* observer);

    // Removes an observer. After Stop.
    void UnregisterObserver(UDPBroadcastObserver* observer);

private:
    class PrivateImpl;
    PrivateImpl* m_impl;
};

}  // namespace kpl::net

#endif  // KPL_NET_UDPBROADCAST_H_
