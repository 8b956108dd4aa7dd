#include "GuideTime.h"

#include <gtest/gtest.h>

namespace {

using namespace guide;

constexpr GuideTime kPiDay = 1773446400;  // 2026-03-14 00:00

TEST(GuideTimeTest, ATimeIsReadAndWritten) {
    const GuideTime time = kPiDay + 20 * kHour + 5 * kMinute;
    EXPECT_EQ(time, ParseTime("2026-03-14 20:05"));
    EXPECT_EQ("20:05", FormatTime(time));
    EXPECT_EQ("Sat 20:05", FormatDayTime(time));
    EXPECT_EQ("Saturday, 14 March 2026", FormatDate(time));
    EXPECT_EQ("Thursday, 1 January 1970", FormatDate(0));
}

TEST(GuideTimeTest, ADateIsItsMidnight) {
    EXPECT_EQ(kPiDay, ParseDate("2026-03-14"));
    EXPECT_EQ(std::nullopt, ParseDate("2026-03-14 20:05"));
    EXPECT_EQ(std::nullopt, ParseDate(""));
}

TEST(GuideTimeTest, OnlyTheExactFormIsATime) {
    for (const char* text :
         {"", "20:05", "2026-3-14 20:05", " 2026-03-14 20:05", "2026-03-14 20:05 ",
          "2026-03-14  20:05", "2026-03-14 20:05:00", "14.03.2026 20:05"}) {
        EXPECT_EQ(std::nullopt, ParseTime(text)) << "'" << text << "'";
    }
}

TEST(GuideTimeTest, ATimeThatDoesNotExistIsNone) {
    EXPECT_EQ(std::nullopt, ParseTime("2026-02-29 12:00"));
    EXPECT_EQ(std::nullopt, ParseTime("2026-02-31 12:00"));
    EXPECT_EQ(std::nullopt, ParseTime("2026-13-01 12:00"));
    EXPECT_EQ(std::nullopt, ParseTime("2026-03-14 24:00"));
    EXPECT_NE(std::nullopt, ParseTime("2028-02-29 12:00"));
}

TEST(GuideTimeTest, TimesBefore1970AreNone) {
    EXPECT_EQ(std::nullopt, ParseTime("1969-12-31 23:59"));
    EXPECT_EQ(0, ParseTime("1970-01-01 00:00"));
}

}  // namespace
