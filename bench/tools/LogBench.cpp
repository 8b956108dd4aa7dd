// What a message costs while the log is off, beside an empty loop and the formatting that is saved.
//
//   log_bench [rounds]
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

#include "bench/support/Contest.h"
#include "bench/support/Machine.h"
#include "kpl/tools/DebugLog.h"

namespace {

using kpl::bench::Contest;
using kpl::bench::Keep;
using kpl::bench::NsPerRun;

void MeasureDisabled(int rounds) {
    kpl::tools::EnableDumpLog(false, false);
    Contest contest("disabled message", "ns");
    int i = 0;
    contest.Add("ours", NsPerRun([&i] {
                    kpl::tools::DumpDbgMsg("Bench::Run(): step %d of %s\n", ++i, "many");
                }));
    contest.Add("raw: nothing", NsPerRun([&i] { Keep(++i); }));
    char text[4096];
    contest.Add("vsnprintf alone", NsPerRun([&i, &text] {
                    snprintf(text, sizeof(text), "Bench::Run(): step %d of %s\n", ++i, "many");
                    Keep(text);
                }));
    contest.Run(rounds);
}

}  // namespace

int main(int argc, char** argv) {
    kpl::bench::StayOnOneCore();
    MeasureDisabled(std::max(argc > 1 ? atoi(argv[1]) : 15, 1));
    return 0;
}
