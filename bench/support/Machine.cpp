#include "bench/support/Machine.h"

#include <sched.h>
#include <stdio.h>
#include <sys/utsname.h>

#include <fstream>
#include <string>
#include <thread>

#include "kpl/Version.h"

namespace kpl::bench {

namespace {

std::string Processor() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("model name", 0) == 0) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown processor";
}

}  // namespace

void PrintMachine() {
    utsname system{};
    uname(&system);
    printf("%s, %u cores, %s %s\n", Processor().c_str(), std::thread::hardware_concurrency(),
           system.sysname, system.release);
#if defined(__clang__)
    printf("clang %s", __clang_version__);
#else
    printf("GCC %s", __VERSION__);
#endif
    printf(", build type %s, library %s\n", KPL_BENCH_BUILD_TYPE, KPL_VERSION);
#if !defined(__OPTIMIZE__)
    printf("WARNING: this build is not optimised; its numbers say nothing.\n");
#endif
}

void StayOnOneCore() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &set);
    sched_setaffinity(0, sizeof(set), &set);
}

}  // namespace kpl::bench
