// A program that logs without a test framework and with the library's own __android_log_print:
//
//   kpl_log_program fresh   one ordinary and one forced message before anything was enabled
//   kpl_log_program heap    1000 messages; prints how many pieces of memory they took
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

#include "kpl/tools/DebugLog.h"

namespace {

std::atomic<long> allocations{0};

int LogBeforeAnythingIsEnabled() {
    kpl::tools::DumpDbgMsg("ordinary\n");
    kpl::tools::ForceDumpDbgMsg("forced %d\n", 1);
    return 0;
}

int CountAllocations() {
    kpl::tools::EnableDumpLog(true, true);
    kpl::tools::DumpDbgMsg("the first one lets the stream take its buffer\n");
    const long before = allocations;
    for (int i = 0; i < 1000; ++i) {
        kpl::tools::DumpDbgMsg("Class::Method(): message %d of %s\n", i, "many");
    }
    printf("%ld\n", allocations - before);
    return 0;
}

}  // namespace

#if defined(KPL_COUNT_ALLOCATIONS)
extern "C" void* __libc_malloc(size_t size);
extern "C" void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
#endif

int main(int argc, char** argv) {
    const bool heap = argc == 2 && strcmp(argv[1], "heap") == 0;
    return heap ? CountAllocations() : LogBeforeAnythingIsEnabled();
}
