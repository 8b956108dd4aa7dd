#include "cli/Statistics.h"

#include <stdio.h>

#include <algorithm>

namespace kpl::cli {

namespace {

int64_t Percentile(const std::vector<int64_t>& sorted, size_t percent) {
    const size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[std::max<size_t>(rank, 1) - 1];
}

// With one digit behind the point where a whole number would hide a loss.
std::string LossText(size_t lost, size_t calls) {
    char text[32];
    const double percent =
        calls > 0 ? 100.0 * static_cast<double>(lost) / static_cast<double>(calls) : 0;
    const bool isWhole = lost * 100 % std::max<size_t>(calls, 1) == 0;
    snprintf(text, sizeof(text), isWhole ? "%.0f" : "%.1f", percent);
    return std::string(text) + "% lost";
}

}  // namespace

std::string Milliseconds(int64_t nanoseconds) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f", static_cast<double>(nanoseconds) / 1e6);
    return text;
}

std::string Statistics::Text() const {
    const size_t calls = m_times.size() + m_lost;
    std::string text = std::to_string(calls) + " calls, " + std::to_string(m_times.size()) +
                       " answers, " + LossText(m_lost, calls) + "\n";
    if (m_times.empty()) {
        return text;
    }
    std::vector<int64_t> sorted = m_times;
    std::sort(sorted.begin(), sorted.end());
    return text + "min/p50/p99/max = " + Milliseconds(sorted.front()) + "/" +
           Milliseconds(Percentile(sorted, 50)) + "/" + Milliseconds(Percentile(sorted, 99)) + "/" +
           Milliseconds(sorted.back()) + " ms\n";
}

}  // namespace kpl::cli
