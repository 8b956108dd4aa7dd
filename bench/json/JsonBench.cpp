// Our JSON beside nlohmann/json: three documents parsed to a tree and destroyed, and written. Both
// take turns on one core, round by round; printed are the medians and how many times faster ours
// is.
//
//   json_bench [rounds]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/json/Documents.h"
#include "bench/support/Machine.h"
#include "kpl/json/JSON.h"

namespace {

using Task = std::function<size_t()>;

volatile size_t sink = 0;

double Milliseconds(const Task& task) {
    timespec begin{};
    timespec end{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
    sink = sink + task();
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    return static_cast<double>(end.tv_sec - begin.tv_sec) * 1e3 +
           static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e6;
}

double Median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// `raw` is the least that any program could do: look at each byte, or copy it.
void Measure(const char* what, int rounds, const Task& ours, const Task& peer, const Task& raw) {
    std::vector<double> times[3];
    for (int round = 0; round <= rounds; ++round) {
        const double now[] = {Milliseconds(ours), Milliseconds(peer), Milliseconds(raw)};
        for (int i = 0; i < 3 && round > 0; ++i) {  // the first round only warms up
            times[i].push_back(now[i]);
        }
    }
    const double our = Median(times[0]);
    const double other = Median(times[1]);
    printf("%-24s %8.3f ms %8.3f ms %8.3f ms   %5.2f\n", what, our, other, Median(times[2]),
           other / our);
}

void MeasureDocument(const std::string& name, const std::string& text, int rounds) {
    Measure((name + ", parse").c_str(), rounds,
            [&] { return std::unique_ptr<JSONValue>(JSON::Parse(text.c_str()))->IsNull() ? 1 : 0; },
            [&] { return nlohmann::json::parse(text).size(); },
            [&] { return static_cast<size_t>(std::count(text.begin(), text.end(), ',')); });
    const std::unique_ptr<JSONValue> ours(JSON::Parse(text.c_str()));
    const nlohmann::json peers = nlohmann::json::parse(text);
    const std::string written = ours->Stringify();
    // The peer refuses bytes of 128 and above that are not UTF-8 unless it is told to ignore them.
    Measure((name + ", write").c_str(), rounds, [&] { return ours->Stringify().size(); },
            [&] { return peers.dump().size(); }, [&] { return std::string(written).size(); });
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = std::max(argc > 1 ? atoi(argv[1]) : 51, 1);
    kpl::bench::StayOnOneCore();
    kpl::bench::PrintMachine();
    printf("nlohmann/json %d.%d.%d, sizeof(JSONValue) %zu, %d rounds on one core\n",
           NLOHMANN_JSON_VERSION_MAJOR, NLOHMANN_JSON_VERSION_MINOR, NLOHMANN_JSON_VERSION_PATCH,
           sizeof(JSONValue), rounds);
    printf("%-24s %11s %11s %11s %7s\n", "median", "ours", "nlohmann", "raw bytes", "ratio");
    MeasureDocument("programme guide", kpl::bench::ProgrammeGuide(), rounds);
    MeasureDocument("numbers", kpl::bench::Numbers(), rounds);
    MeasureDocument("strings with escapes", kpl::bench::EscapedStrings(), rounds);
    return 0;
}
