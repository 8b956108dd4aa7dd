#ifndef KPL_BENCH_SUPPORT_CONTEST_H_
#define KPL_BENCH_SUPPORT_CONTEST_H_

#include <functional>
#include <string>
#include <vector>

namespace kpl::bench {

// Several ways to do the same work, side by side: in every round each contender has its turn, and
// each round begins with another one, so whatever disturbs the machine disturbs all of them.
//
// Prints one line for each turn, of fields with tabs between them, which bench/report.py reads:
//
//   work  x  contender  unit  round  value
//
// A unit that ends in "/s" is better when it is higher, any other when it is lower.
class Contest {
public:
    // `x` says where a point of a series stands, as 32 for 32 connections; empty if it is none.
    Contest(std::string work, std::string unit, std::string x = "");

    // `turn` does the work as often as it takes to be measured, and returns the value in `unit`.
    // The library's own contender is called "ours", the limits begin with "raw".
    void Add(std::string name, std::function<double()> turn);

    // Each contender has one turn before, which is not printed.
    void Run(int rounds) const;

private:
    struct Contender {
        std::string name;
        std::function<double()> turn;
    };

    std::string m_work;
    std::string m_unit;
    std::string m_x;
    std::vector<Contender> m_contenders;
};

// Nanoseconds of processor time that the calling thread has had, so that only what it does counts.
double ThreadNs();

template <typename Run>
double NsOf(Run& run, long count) {
    const double begin = ThreadNs();
    for (long i = 0; i < count; ++i) {
        run();
    }
    return ThreadNs() - begin;
}

// A turn that calls `run` over and over for about that long, and gives the nanoseconds of one call.
template <typename Run>
std::function<double()> NsPerRun(Run run, double turnMs = 20) {
    return [run, turnMs, count = 0L]() mutable {
        // The first turn only warms up: it finds out how often.
        for (long tries = 1; count == 0; tries *= 2) {
            const double took = NsOf(run, tries);
            if (took >= turnMs * 1e6 / 4) {
                count = static_cast<long>(static_cast<double>(tries) * turnMs * 1e6 / took) + 1;
            }
        }
        return NsOf(run, count) / static_cast<double>(count);
    };
}

// The compiler may not drop what computes this value, nor expect memory to be as it was.
template <typename T>
void Keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace kpl::bench

#endif  // KPL_BENCH_SUPPORT_CONTEST_H_
