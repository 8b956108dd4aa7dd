// What the peers have to do. Each runs in a process that has no threads yet.
#ifndef KPL_BENCH_RPC_WORKS_H_
#define KPL_BENCH_RPC_WORKS_H_

namespace kpl::bench {

// One round trip after the other, with both processes on one core or wherever the scheduler puts
// them.
void ComparePinnedCalls(int rounds);
void CompareFreeCalls(int rounds);

// Two threads that call at the same time, everything on one core.
void CompareTwoThreads(int rounds);

// What more and more clients, and threads of one client, get done together; what a client costs.
void GrowClients(int rounds);
void GrowThreads(int rounds);
void GrowMemory(int rounds);

}  // namespace kpl::bench

#endif  // KPL_BENCH_RPC_WORKS_H_
