#include "bench/support/Contest.h"

#include <stdio.h>
#include <time.h>

#include <utility>

namespace kpl::bench {

double ThreadNs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

Contest::Contest(std::string work, std::string unit, std::string x)
    : m_work(std::move(work)), m_unit(std::move(unit)), m_x(std::move(x)) {}

void Contest::Add(std::string name, std::function<double()> turn) {
    m_contenders.push_back({std::move(name), std::move(turn)});
}

void Contest::Run(int rounds) const {
    for (const Contender& contender : m_contenders) {
        (void)contender.turn();
    }
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < m_contenders.size(); ++i) {
            const Contender& contender =
                m_contenders[(i + static_cast<size_t>(round)) % m_contenders.size()];
            printf("%s\t%s\t%s\t%s\t%d\t%.6g\n", m_work.c_str(), m_x.c_str(),
                   contender.name.c_str(), m_unit.c_str(), round, contender.turn());
        }
    }
    fflush(stdout);
}

}  // namespace kpl::bench
