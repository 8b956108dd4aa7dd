#include "GuideFile.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "tests/examples/Program.h"

namespace {

using namespace guide;

// What is wrong with a guide of this text; "none" if nothing is.
std::string Fault(const std::string& text) {
    std::istringstream in(text);
    std::string error = "none";
    const std::optional<Guide> guide = ReadGuide(in, "g.tsv", &error);
    EXPECT_EQ(guide.has_value(), error == "none");
    return error;
}

std::string Line(const std::string& channel, const std::string& start, const std::string& minutes,
                 const std::string& age, const std::string& title) {
    return channel + "\t" + start + "\t" + minutes + "\tFilm\t" + age + "\t" + title + "\tText\n";
}

const std::string kGood = Line("One", "2026-03-14 20:00", "90", "12", "Title");

TEST(GuideFileTest, AProgrammeHasWhatItsColumnsSay) {
    std::istringstream in("One\t2026-03-14 20:00\t90\tFilm\t12\tL'Été\tUne ferme.\n");
    std::string error;
    const std::optional<Guide> guide = ReadGuide(in, "g.tsv", &error);
    ASSERT_TRUE(guide.has_value()) << error;
    const GuideTime start = *ParseTime("2026-03-14 20:00");
    const Programme* const programme = guide->OnAt(1, start);
    ASSERT_NE(nullptr, programme);
    EXPECT_EQ(1, programme->channel);
    EXPECT_EQ("One", programme->channelName);
    EXPECT_EQ(start, programme->start);
    EXPECT_EQ(start + 90 * kMinute, programme->end);
    EXPECT_EQ(12, programme->age);
    EXPECT_EQ("Film", programme->genre);
    EXPECT_EQ("L'Été", programme->title);
    EXPECT_EQ("Une ferme.", programme->description);
}

TEST(GuideFileTest, GenreAndDescriptionMayBeEmpty) {
    EXPECT_EQ("none", Fault("One\t2026-03-14 20:00\t90\t\t12\tTitle\t\n"));
}

TEST(GuideFileTest, CommentsAndEmptyLinesAreSkippedButCounted) {
    EXPECT_EQ("none", Fault("# comment\n\n" + kGood));
    EXPECT_EQ("g.tsv:4: 7 columns expected, 1 found", Fault("# comment\n\n" + kGood + "x\n"));
}

TEST(GuideFileTest, TheLastLineNeedsNoLineEnd) {
    EXPECT_EQ("none", Fault(kGood.substr(0, kGood.size() - 1)));
}

TEST(GuideFileTest, AWrongNumberOfColumnsIsRefused) {
    EXPECT_EQ("g.tsv:1: 7 columns expected, 3 found", Fault("a\tb\tc\n"));
    EXPECT_EQ("g.tsv:1: 7 columns expected, 8 found",
              Fault(kGood.substr(0, kGood.size() - 1) + "\tx\n"));
}

TEST(GuideFileTest, AChannelNameMustBeThereAndFitItsRecord) {
    const std::string fault = "g.tsv:1: the channel's name is empty or longer than 31 bytes";
    EXPECT_EQ(fault, Fault(Line("", "2026-03-14 20:00", "90", "12", "T")));
    EXPECT_EQ(fault, Fault(Line(std::string(32, 'c'), "2026-03-14 20:00", "90", "12", "T")));
    EXPECT_EQ("none", Fault(Line(std::string(31, 'c'), "2026-03-14 20:00", "90", "12", "T")));
}

TEST(GuideFileTest, AStartThatIsNoTimeIsRefused) {
    EXPECT_EQ("g.tsv:1: '2026-02-30 20:00' is no time (YYYY-MM-DD HH:MM)",
              Fault(Line("One", "2026-02-30 20:00", "90", "12", "T")));
}

TEST(GuideFileTest, MinutesAreFrom1To1440) {
    for (const char* minutes : {"0", "1441", "-5", "", "ninety", "90 ", "9.5", "99999999999"}) {
        EXPECT_EQ("g.tsv:1: '" + std::string(minutes) + "' is no number of minutes (1 to 1440)",
                  Fault(Line("One", "2026-03-14 20:00", minutes, "12", "T")));
    }
    EXPECT_EQ("none", Fault(Line("One", "2026-03-14 20:00", "1", "12", "T")));
    EXPECT_EQ("none", Fault(Line("One", "2026-03-14 20:00", "1440", "12", "T")));
}

TEST(GuideFileTest, AgesAreFrom0To18) {
    for (const char* age : {"-1", "19", "", "PG"}) {
        EXPECT_EQ("g.tsv:1: '" + std::string(age) + "' is no age (0 to 18)",
                  Fault(Line("One", "2026-03-14 20:00", "90", age, "T")));
    }
}

TEST(GuideFileTest, AProgrammeWithoutATitleIsRefused) {
    EXPECT_EQ("g.tsv:1: no title", Fault(Line("One", "2026-03-14 20:00", "90", "12", "")));
}

TEST(GuideFileTest, OverlappingProgrammesOfAChannelAreRefused) {
    EXPECT_EQ("g.tsv:2: 'Late' starts before the channel's last programme has ended",
              Fault(kGood + Line("One", "2026-03-14 21:29", "10", "0", "Late")));
    EXPECT_EQ("none", Fault(kGood + Line("One", "2026-03-14 21:30", "10", "0", "Late")));
    EXPECT_EQ("none", Fault(kGood + Line("Two", "2026-03-14 21:29", "10", "0", "Late")));
}

TEST(GuideFileTest, BrokenTextAndControlCharactersAreRefused) {
    EXPECT_EQ("g.tsv:1: not UTF-8", Fault(Line("One", "2026-03-14 20:00", "90", "12", "\xFF")));
    EXPECT_EQ("g.tsv:1: a control character",
              Fault(Line("One", "2026-03-14 20:00", "90", "12", "\x1B[2J")));
    EXPECT_EQ("g.tsv:1: a control character", Fault("# comment\r\n" + kGood));
}

TEST(GuideFileTest, ALineThatWouldNotFitIntoACommandIsRefused) {
    const size_t rest = kGood.size() - 1 - std::string("Title").size();
    EXPECT_EQ("none", Fault(Line("One", "2026-03-14 20:00", "90", "12",
                                 std::string(kMaxLineSize - rest, 't'))));
    EXPECT_EQ("g.tsv:1: longer than 4096 bytes",
              Fault(Line("One", "2026-03-14 20:00", "90", "12",
                         std::string(kMaxLineSize - rest + 1, 't'))));
}

TEST(GuideFileTest, MoreChannelsThanFitIntoACommandAreRefused) {
    std::string text;
    for (int i = 0; i < kMaxChannels; ++i) {
        text += Line("C" + std::to_string(i), "2026-03-14 20:00", "90", "12", "T");
    }
    EXPECT_EQ("none", Fault(text));
    EXPECT_EQ("g.tsv:101: more than 100 channels",
              Fault(text + Line("one more", "2026-03-14 20:00", "90", "12", "T")));
}

TEST(GuideFileTest, AGuideWithoutProgrammesIsRefused) {
    EXPECT_EQ("g.tsv: no programmes", Fault(""));
    EXPECT_EQ("g.tsv: no programmes", Fault("# nothing\n"));
}

TEST(GuideFileTest, AMissingFileAndADirectoryAreRefusedWithTheReason) {
    std::string error;
    EXPECT_FALSE(LoadGuide("/no/such/file", &error).has_value());
    EXPECT_EQ("cannot read guide file '/no/such/file': No such file or directory", error);
    EXPECT_FALSE(LoadGuide("/", &error).has_value());
    EXPECT_EQ("cannot read guide file '/': Is a directory", error);
}

// The guide that is shipped.
class ShippedGuideTest : public testing::Test {
protected:
    void SetUp() override {
        std::string error;
        m_guide = LoadGuide(kpl::test::SourcePath("examples/data/guide.tsv"), &error);
        ASSERT_TRUE(m_guide.has_value()) << error;
        m_all = m_guide->Starting(0, m_guide->Begin() + 365 * kDay);
    }

    std::optional<Guide> m_guide;
    Guide::Programmes m_all;
};

TEST_F(ShippedGuideTest, HasSixChannelsAndSeveralHundredProgrammes) {
    EXPECT_GE(m_guide->ChannelCount(), 6);
    EXPECT_GE(m_guide->ProgrammeCount(), 300);
}

TEST_F(ShippedGuideTest, EveryChannelIsOnForFortyEightHoursWithoutAGap) {
    const GuideTime end = m_guide->Begin() + 2 * kDay;
    for (int channel = 1; channel <= m_guide->ChannelCount(); ++channel) {
        GuideTime time = m_guide->Begin();
        for (const Programme* programme : m_guide->Starting(channel, 0, end)) {
            EXPECT_EQ(time, programme->start) << programme->title;
            time = programme->end;
        }
        EXPECT_EQ(end, time) << m_guide->ChannelName(channel);
        EXPECT_EQ(nullptr, m_guide->OnAt(channel, end));
    }
}

TEST_F(ShippedGuideTest, SomeTextsAreEmptyAndSomeAreNotAscii) {
    int withoutGenre = 0;
    int withoutDescription = 0;
    int notAscii = 0;
    std::set<GuideTime> lengths;
    std::set<int> ages;
    for (const Programme* programme : m_all) {
        withoutGenre += programme->genre.empty() ? 1 : 0;
        withoutDescription += programme->description.empty() ? 1 : 0;
        notAscii += static_cast<signed char>(programme->title[0]) < 0 ? 1 : 0;
        lengths.insert(programme->end - programme->start);
        ages.insert(programme->age);
    }
    EXPECT_GE(withoutGenre, 5);
    EXPECT_GE(withoutDescription, 20);
    EXPECT_GE(notAscii, 50);
    EXPECT_GE(lengths.size(), 20u);
    EXPECT_GE(ages.size(), 4u);
}

}  // namespace
