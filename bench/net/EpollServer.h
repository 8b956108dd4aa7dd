#ifndef KPL_BENCH_NET_EPOLLSERVER_H_
#define KPL_BENCH_NET_EPOLLSERVER_H_

namespace kpl::bench {

// The least that a TCP server costs: one thread, one epoll, every message sent back as it came. No
// buffers, no requests, no protocol. `listener` listens and does not block. Serves until `end`,
// which blocks, can be read.
void ServeWithEpoll(int listener, int end);

}  // namespace kpl::bench

#endif  // KPL_BENCH_NET_EPOLLSERVER_H_
