#include "Guide.h"

#include <gtest/gtest.h>

namespace {

using namespace guide;

Programme Make(const std::string& channel, GuideTime start, GuideTime end,
               const std::string& title) {
    Programme programme;
    programme.channelName = channel;
    programme.start = start;
    programme.end = end;
    programme.title = title;
    return programme;
}

std::string Titles(const Guide::Programmes& programmes) {
    std::string titles;
    for (const Programme* programme : programmes) {
        titles += programme->title + " ";
    }
    return titles;
}

// Two channels; the first has a gap from 300 to 400.
class GuideTest : public testing::Test {
protected:
    GuideTest() {
        EXPECT_TRUE(m_guide.Add(Make("One", 100, 200, "a")));
        EXPECT_TRUE(m_guide.Add(Make("Two", 100, 250, "p")));
        EXPECT_TRUE(m_guide.Add(Make("One", 200, 300, "b")));
        EXPECT_TRUE(m_guide.Add(Make("One", 400, 500, "c")));
        EXPECT_TRUE(m_guide.Add(Make("Two", 250, 500, "q")));
    }

    Guide m_guide;
};

TEST_F(GuideTest, ChannelsAreNumberedAsTheyFirstAppear) {
    EXPECT_EQ(2, m_guide.ChannelCount());
    EXPECT_EQ("One", m_guide.ChannelName(1));
    EXPECT_EQ("Two", m_guide.ChannelName(2));
    EXPECT_EQ(5, m_guide.ProgrammeCount());
    EXPECT_EQ(2, m_guide.NextAfter(2, 0)->channel);
}

TEST_F(GuideTest, AProgrammeThatOverlapsTheLastOneIsRefused) {
    EXPECT_FALSE(m_guide.Add(Make("One", 499, 600, "d")));
    EXPECT_TRUE(m_guide.Add(Make("One", 500, 600, "d")));
    EXPECT_EQ(6, m_guide.ProgrammeCount());
}

TEST_F(GuideTest, AProgrammeIsOnFromItsStartToBeforeItsEnd) {
    EXPECT_EQ(nullptr, m_guide.OnAt(1, 99));
    EXPECT_EQ("a", m_guide.OnAt(1, 100)->title);
    EXPECT_EQ("a", m_guide.OnAt(1, 199)->title);
    EXPECT_EQ("b", m_guide.OnAt(1, 200)->title);
    EXPECT_EQ(nullptr, m_guide.OnAt(1, 300)) << "a gap";
    EXPECT_EQ(nullptr, m_guide.OnAt(1, 500)) << "the end";
}

TEST_F(GuideTest, TheNextProgrammeIsTheFirstThatStartsLater) {
    EXPECT_EQ("a", m_guide.NextAfter(1, 99)->title);
    EXPECT_EQ("b", m_guide.NextAfter(1, 100)->title);
    EXPECT_EQ("c", m_guide.NextAfter(1, 350)->title);
    EXPECT_EQ(nullptr, m_guide.NextAfter(1, 400));
}

TEST_F(GuideTest, NothingIsOnAChannelThatDoesNotExist) {
    for (const int channel : {-1, 0, 3}) {
        EXPECT_EQ(nullptr, m_guide.OnAt(channel, 100));
        EXPECT_EQ(nullptr, m_guide.NextAfter(channel, 100));
        EXPECT_TRUE(m_guide.Starting(channel, 0, 1000).empty());
    }
}

TEST_F(GuideTest, StartingTakesTheFirstInstantAndNotTheLast) {
    EXPECT_EQ("a b ", Titles(m_guide.Starting(1, 100, 400)));
    EXPECT_EQ("b c ", Titles(m_guide.Starting(1, 101, 401)));
    EXPECT_EQ("", Titles(m_guide.Starting(1, 400, 400)));
    EXPECT_EQ("", Titles(m_guide.Starting(1, 500, 100)));
}

TEST_F(GuideTest, StartingOnAllChannelsIsInTheOrderOfStartsThenChannels) {
    EXPECT_EQ("a p b q c ", Titles(m_guide.Starting(0, 1000)));
}

TEST_F(GuideTest, NextStartIsTheEarliestOfAllChannels) {
    EXPECT_EQ(100, m_guide.NextStart(0));
    EXPECT_EQ(200, m_guide.NextStart(100));
    EXPECT_EQ(250, m_guide.NextStart(200));
    EXPECT_EQ(std::nullopt, m_guide.NextStart(400));
}

TEST_F(GuideTest, FindLooksAtTitlesAndDescriptionsWithoutCase) {
    Programme programme = Make("Два", 150, 160, "Северный перегон");
    programme.description = "ПОЕЗД стоит.";
    programme.genre = "Film";
    EXPECT_TRUE(m_guide.Add(programme));
    EXPECT_EQ("Северный перегон ", Titles(m_guide.Find("поезд")));
    EXPECT_EQ("Северный перегон ", Titles(m_guide.Find("СЕВЕР")));
    EXPECT_EQ("", Titles(m_guide.Find("film"))) << "genres are not searched";
    EXPECT_EQ("", Titles(m_guide.Find("z")));
}

TEST_F(GuideTest, FindGivesTheOrderOfStarts) {
    EXPECT_EQ("a p b q c ", Titles(m_guide.Find("")));
}

TEST(EmptyGuideTest, HasNothing) {
    const Guide guide;
    EXPECT_EQ(0, guide.ChannelCount());
    EXPECT_EQ(0, guide.ProgrammeCount());
    EXPECT_EQ(0, guide.Begin());
    EXPECT_EQ(std::nullopt, guide.NextStart(0));
    EXPECT_TRUE(guide.Find("").empty());
}

TEST(EmptyGuideTest, BeginIsTheEarliestStartOfAllChannels) {
    Guide guide;
    guide.Add(Make("One", 300, 400, "a"));
    guide.Add(Make("Two", 200, 400, "b"));
    EXPECT_EQ(200, guide.Begin());
}

}  // namespace
