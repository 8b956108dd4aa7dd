#include "GuideProtocol.h"

#include <gtest/gtest.h>

namespace {

using namespace guide;

Programme MakeProgramme() {
    return {3,
            "月見台",
            *ParseTime("2026-03-14 20:00"),
            *ParseTime("2026-03-14 21:15"),
            12,
            "Film",
            "L'Été",
            "Une ferme."};
}

TEST(GuideProtocolTest, AProgrammeComesBackFromItsRecord) {
    const Programme programme = MakeProgramme();
    const Programme back = FromRecord(ToRecord(programme, Detail::Full));
    EXPECT_EQ(programme.channel, back.channel);
    EXPECT_EQ(programme.channelName, back.channelName);
    EXPECT_EQ(programme.start, back.start);
    EXPECT_EQ(programme.end, back.end);
    EXPECT_EQ(programme.age, back.age);
    EXPECT_EQ(programme.genre, back.genre);
    EXPECT_EQ(programme.title, back.title);
    EXPECT_EQ(programme.description, back.description);
}

TEST(GuideProtocolTest, ABriefRecordHasNoDescription) {
    const Programme programme = MakeProgramme();
    EXPECT_EQ("", FromRecord(ToRecord(programme, Detail::Brief)).description);
    EXPECT_EQ("L'Été", FromRecord(ToRecord(programme, Detail::Brief)).title);
}

TEST(GuideProtocolTest, EmptyTextsTakeNoBytesOfTheList) {
    Programme programme = MakeProgramme();
    programme.genre.clear();
    programme.description.clear();
    EpgData record = ToRecord(programme, Detail::Full);
    const size_t texts = programme.title.size() + 1 + programme.channelName.size() + 1;
    EXPECT_EQ(static_cast<int>(8 + 48 + texts),
              GetSizeEpgDataList::GetSize(EpgDataList{1, &record}));
    EXPECT_EQ("", FromRecord(record).genre);
}

TEST(GuideProtocolTest, TimesFarAheadFitIntoARecord) {
    Programme programme = MakeProgramme();
    programme.start = *ParseTime("9999-12-31 23:59");
    programme.end = programme.start + kDay;
    const Programme back = FromRecord(ToRecord(programme, Detail::Full));
    EXPECT_EQ(programme.start, back.start);
    EXPECT_EQ(programme.end, back.end);
}

}  // namespace
