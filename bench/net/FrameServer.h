#ifndef KPL_BENCH_NET_FRAMESERVER_H_
#define KPL_BENCH_NET_FRAMESERVER_H_

#include "kpl/net/server/CSocketServerEx.h"

namespace kpl::bench {

// The same as a protocol on the library's server: a message is a line, its answer the same line.
class FrameServer : public net::server::CSocketServerEx {
public:
    FrameServer() : CSocketServerEx(0) {}

private:
    net::server::CServerThreadManager* CreateThreadManager() override;
};

}  // namespace kpl::bench

#endif  // KPL_BENCH_NET_FRAMESERVER_H_
