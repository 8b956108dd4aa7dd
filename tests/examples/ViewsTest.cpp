#include "Views.h"

#include <gtest/gtest.h>

#include "Utf8.h"
#include "tests/examples/Program.h"

namespace {

using namespace guide;

const GuideTime kEight = *ParseTime("2026-03-14 20:00");

Programme Make(int channel, const std::string& name, int startMinute, int endMinute, int age,
               const std::string& title) {
    return {channel,
            name,
            kEight + startMinute * kMinute,
            kEight + endMinute * kMinute,
            age,
            "Film",
            title,
            "What happens."};
}

TEST(GuideViewsTest, NowTableShowsWhatIsOnHowFarAndWhatIsNext) {
    const std::vector<Programme> programmes = {Make(1, "Cinéma", -60, 60, 12, "La Dame"),
                                               Make(1, "Cinéma", 60, 90, 0, "Bobines"),
                                               Make(2, "月見台テレビ", -10, 70, 0, "川を渡る"),
                                               Make(2, "月見台テレビ", 70, 90, 0, "終点")};
    EXPECT_EQ(
        "No  Channel       On now    Age  Time         So far    Next\n"
        "──  ────────────  ────────  ───  ───────────  ────────  ─────────────\n"
        " 1  Cinéma        La Dame   12+  19:00–21:00  ████░░░░  21:00 Bobines\n"
        " 2  月見台テレビ  川を渡る       19:50–21:10  █░░░░░░░  21:10 終点\n",
        NowTable(programmes, kEight));
}

TEST(GuideViewsTest, NowTableShowsGapsAndTheLastProgramme) {
    const std::vector<Programme> programmes = {
        Make(1, "Early", -60, 60, 0, "Last"), Make(2, "Later", 5, 60, 0, "First"),
        Make(3, "Both", 0, 60, 0, "On"), Make(3, "Both", 60, 61, 0, "Next")};
    EXPECT_EQ(
        "No  Channel  On now  Age  Time         So far    Next\n"
        "──  ───────  ──────  ───  ───────────  ────────  ───────────\n"
        " 1  Early    Last         19:00–21:00  ████░░░░\n"
        " 2  Later    –                                   20:05 First\n"
        " 3  Both     On           20:00–21:00  ░░░░░░░░  21:00 Next\n",
        NowTable(programmes, kEight));
}

TEST(GuideViewsTest, TheBarFillsWithTheProgramme) {
    const Programme programme = Make(1, "One", 0, 80, 0, "T");
    EXPECT_EQ("░░░░░░░░", ProgressBar(programme, kEight - kHour));
    EXPECT_EQ("░░░░░░░░", ProgressBar(programme, kEight));
    EXPECT_EQ("█░░░░░░░", ProgressBar(programme, kEight + 10 * kMinute));
    EXPECT_EQ("███████░", ProgressBar(programme, kEight + 80 * kMinute - 1));
    EXPECT_EQ("████████", ProgressBar(programme, kEight + 80 * kMinute));
    EXPECT_EQ("████████", ProgressBar(programme, kEight + kDay));
}

TEST(GuideViewsTest, StartLineNamesGenreAndAgeIfThereAre) {
    Programme programme = Make(1, "月見台", 0, 10, 12, "川");
    EXPECT_EQ("20:00  月見台             川, Film, 12+\n", StartLine(programme));
    programme.genre.clear();
    programme.age = 0;
    EXPECT_EQ("20:00  月見台             川\n", StartLine(programme));
    programme.channelName = "A name that is too long";
    EXPECT_EQ("20:00  A name that is too long  川\n", StartLine(programme));
}

TEST(GuideViewsTest, FoundTableSaysHowManyAreNotShown) {
    const std::string table = FoundTable({{Make(1, "One", 0, 10, 0, "T")}, 8});
    EXPECT_EQ(
        "Start      Channel  Age  Genre  Programme\n"
        "─────────  ───────  ───  ─────  ─────────\n"
        "Sat 20:00  One           Film   T\n"
        "… and 7 more\n",
        table);
}

TEST(GuideViewsTest, NoTableIsWiderThanAHundredColumns) {
    Programme programme = Make(100, std::string(31, 'c'), 0, 10, 18, std::string(200, 't'));
    programme.genre = std::string(100, 'g');
    programme.description = std::string(1000, 'd');
    Programme next = programme;
    next.start = programme.end;
    const std::string all = NowTable({programme, next}, kEight) + DayTable({programme}) +
                            FoundTable({{programme}, 1}) + ChannelTable({{100, next.channelName}});
    for (const std::string& line : kpl::test::Lines(all)) {
        EXPECT_LE(DisplayWidth(line), 100) << line;
    }
}

}  // namespace
