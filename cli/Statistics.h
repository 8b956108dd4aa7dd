#ifndef KPL_CLI_STATISTICS_H_
#define KPL_CLI_STATISTICS_H_

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace kpl::cli {

// Round trips, and what came of them.
class Statistics {
public:
    void AddAnswer(int64_t nanoseconds) { m_times.push_back(nanoseconds); }
    void AddLoss() { ++m_lost; }

    size_t Answers() const { return m_times.size(); }

    // "5 calls, 4 answers, 20% lost", and if there was an answer a second line with minimum,
    // median, 99th percentile and maximum. The percentile of p % is the smallest time that at least
    // p % of the answers did not exceed.
    std::string Text() const;

private:
    std::vector<int64_t> m_times;
    size_t m_lost = 0;
};

// Milliseconds with three digits behind the point, rounded.
std::string Milliseconds(int64_t nanoseconds);

}  // namespace kpl::cli

#endif  // KPL_CLI_STATISTICS_H_
