#ifndef KPL_BENCH_RPC_CALLINGTHREADS_H_
#define KPL_BENCH_RPC_CALLINGTHREADS_H_

#include <vector>

#include "bench/rpc/Peer.h"

namespace kpl::bench {

// One call after the other on each of them, by a thread for each; one may stand there several
// times. Returns how many calls they got done in a second, together.
double CallsPerSecond(const std::vector<Adder*>& adders);

}  // namespace kpl::bench

#endif  // KPL_BENCH_RPC_CALLINGTHREADS_H_
