#ifndef KPL_BENCH_NET_SERVERPROCESS_H_
#define KPL_BENCH_NET_SERVERPROCESS_H_

#include <sys/types.h>

#include "bench/net/TcpServers.h"

namespace kpl::bench {

// A server in a process of its own, which ends when this object does. Ends the program if it does
// not start. Before any thread exists.
class ServerProcess {
public:
    explicit ServerProcess(TcpServer* serve);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    int Port() const { return m_port; }

    // What of its memory is in RAM.
    double ResidentKiB() const;

private:
    int m_end[2];
    pid_t m_child;
    int m_port = 0;
};

}  // namespace kpl::bench

#endif  // KPL_BENCH_NET_SERVERPROCESS_H_
