#ifndef KPL_BENCH_NET_ECHOCLIENT_H_
#define KPL_BENCH_NET_ECHOCLIENT_H_

#include <vector>

namespace kpl::bench {

// Connections to an echo server on this machine, each with one line of 64 bytes under way
// all the time.
class EchoClient {
public:
    // Ends the program if it cannot connect.
    EchoClient(int port, int connections);
    ~EchoClient();
    EchoClient(const EchoClient&) = delete;
    EchoClient& operator=(const EchoClient&) = delete;

    // Sends and receives for that long; returns the lines that came back per second. Ends the
    // program when one does not come back as it was.
    double Run(double seconds);

private:
    void Send(int socket);
    bool Receive(int socket);

    int m_epoll;
    std::vector<int> m_sockets;
};

}  // namespace kpl::bench

#endif  // KPL_BENCH_NET_ECHOCLIENT_H_
