#include "cli/Statistics.h"

#include <gtest/gtest.h>

namespace {

using kpl::cli::Milliseconds;
using kpl::cli::Statistics;

TEST(StatisticsTest, NothingIsNoLoss) {
    EXPECT_EQ("0 calls, 0 answers, 0% lost\n", Statistics().Text());
}

TEST(StatisticsTest, OneAnswerIsAllOfThem) {
    Statistics statistics;
    statistics.AddAnswer(1500000);
    EXPECT_EQ("1 calls, 1 answers, 0% lost\nmin/p50/p99/max = 1.500/1.500/1.500/1.500 ms\n",
              statistics.Text());
}

TEST(StatisticsTest, PercentilesAreRanksOfTheSortedTimes) {
    Statistics statistics;
    for (int64_t i = 200; i >= 1; --i) {
        statistics.AddAnswer(i * 1000000);
    }
    EXPECT_EQ(
        "200 calls, 200 answers, 0% lost\nmin/p50/p99/max = 1.000/100.000/198.000/200.000 ms\n",
        statistics.Text());
}

TEST(StatisticsTest, ALossIsNeverRoundedAway) {
    Statistics statistics;
    statistics.AddLoss();
    EXPECT_EQ("1 calls, 0 answers, 100% lost\n", statistics.Text());
    statistics.AddAnswer(1);
    EXPECT_EQ(0u, statistics.Text().find("2 calls, 1 answers, 50% lost\n"));
    statistics.AddAnswer(1);
    EXPECT_EQ(0u, statistics.Text().find("3 calls, 2 answers, 33.3% lost\n"));
}

TEST(StatisticsTest, MillisecondsAreRoundedToMicroseconds) {
    EXPECT_EQ("0.000", Milliseconds(499));
    EXPECT_EQ("0.001", Milliseconds(501));
    EXPECT_EQ("1234.568", Milliseconds(1234567891));
}

}  // namespace
