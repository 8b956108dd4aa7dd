#ifndef KPL_BENCH_SUPPORT_MACHINE_H_
#define KPL_BENCH_SUPPORT_MACHINE_H_

namespace kpl::bench {

// Prints the processor, the system, the compiler, and a warning if the build is not optimised.
void PrintMachine();

// Keeps the calling thread, and those that it makes, on the core that it is on.
void StayOnOneCore();

}  // namespace kpl::bench

#endif  // KPL_BENCH_SUPPORT_MACHINE_H_
