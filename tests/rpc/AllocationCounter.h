// Linked into a program, it counts every allocation of the process: such a program has nothing else
// to do, because it replaces malloc and operator new.
#ifndef KPL_TESTS_RPC_ALLOCATIONCOUNTER_H_
#define KPL_TESTS_RPC_ALLOCATIONCOUNTER_H_

#include <atomic>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KPL_COUNTS_MALLOC 0  // the sanitizers bring a malloc of their own
#else
#define KPL_COUNTS_MALLOC 1
#endif

namespace kpl::test {

extern std::atomic<int> allocations;

}  // namespace kpl::test

#endif  // KPL_TESTS_RPC_ALLOCATIONCOUNTER_H_
