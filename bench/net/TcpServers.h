// The echo servers that are compared, each in the way that its users would write it. Each listens
// on a port of its own, writes the port's number (an int) to `said`, and serves until `end` can be
// read.
#ifndef KPL_BENCH_NET_TCPSERVERS_H_
#define KPL_BENCH_NET_TCPSERVERS_H_

namespace kpl::bench {

using TcpServer = void(int said, int end);

// The library's frame: a message is a line, its answer the same line.
TcpServer ServeWithFrame;

// The least that a TCP server costs: one thread, one epoll, every message sent back as it came. No
// buffers, no requests, no protocol.
TcpServer ServeWithEpoll;

// Peers. Both send back what came, whatever it is.
TcpServer ServeWithAsio;
TcpServer ServeWithUv;

}  // namespace kpl::bench

#endif  // KPL_BENCH_NET_TCPSERVERS_H_
