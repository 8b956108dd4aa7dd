// What a message costs while the log is off, beside a loop that does nothing and beside the
// formatting that is saved.
#include <benchmark/benchmark.h>
#include <stdio.h>

#include "kpl/tools/DebugLog.h"

namespace {

void EmptyLoop(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++i);
    }
}
BENCHMARK(EmptyLoop);

void DisabledDumpDbgMsg(benchmark::State& state) {
    kpl::tools::EnableDumpLog(false, false);
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++i);
        kpl::tools::DumpDbgMsg("Bench::Run(): step %d of %s\n", i, "many");
    }
}
BENCHMARK(DisabledDumpDbgMsg);

void FormattingAlone(benchmark::State& state) {
    char text[4096];
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++i);
        snprintf(text, sizeof(text), "Bench::Run(): step %d of %s\n", i, "many");
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(FormattingAlone);

}  // namespace
