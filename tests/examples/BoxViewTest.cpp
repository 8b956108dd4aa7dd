#include "BoxView.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using namespace tv_box;
using guide::Programme;
using nlohmann::json;

constexpr guide::GuideTime kNow = 1773520207;  // 2026-03-14 20:30:07

Programme Make(int channel, guide::GuideTime start, guide::GuideTime end,
               const std::string& title) {
    Programme programme;
    programme.channel = channel;
    programme.start = start;
    programme.end = end;
    programme.title = title;
    return programme;
}

// Two channels; on the first something is on, on the second only something to come.
GuideView SomeView() {
    GuideView view;
    view.isOnline = true;
    view.now = kNow;
    view.channels = {{1, "One"}, {2, "Два"}};
    view.nowAndNext = {Make(1, kNow - 607, kNow + 600, "On"), Make(1, kNow + 600, kNow + 900, "N"),
                       Make(2, kNow + 60, kNow + 120, "Later")};
    return view;
}

// The judge is another reader than ours.
json State(const GuideView& guide, const DeviceView& devices = {}) {
    const std::string text = StateJson("7-12345678", "a file", guide, devices);
    EXPECT_TRUE(json::accept(text)) << text;
    return json::parse(text, nullptr, false);
}

// As a number 1773520207 would be written as 1.77352e+09.
TEST(BoxViewTest, TimesAreStringsToTheSecond) {
    const json state = State(SomeView());
    EXPECT_EQ(state["now"], "2026-03-14 20:30:07");
    EXPECT_EQ(state["date"], "Saturday, 14 March 2026");
    EXPECT_EQ(state["channels"][0]["now"]["start"], "2026-03-14 20:20:00");
    EXPECT_EQ(state["channels"][0]["now"]["end"], "2026-03-14 20:40:07");
    EXPECT_EQ(state["version"], "7-12345678");
}

TEST(BoxViewTest, NowAndNextStandWithTheirChannel) {
    const json channels = State(SomeView())["channels"];
    ASSERT_EQ(channels.size(), 2u);
    EXPECT_EQ(channels[0]["now"]["title"], "On");
    EXPECT_EQ(channels[0]["now"]["percent"], 50);
    EXPECT_EQ(channels[0]["next"]["title"], "N");
    EXPECT_FALSE(channels[0]["next"].contains("percent"));
    EXPECT_EQ(channels[1]["name"], "Два");
    EXPECT_FALSE(channels[1].contains("now"));
    EXPECT_EQ(channels[1]["next"]["title"], "Later");
}

TEST(BoxViewTest, AGuideThatWasNeverHeardHasNoTime) {
    const json state = State(GuideView());
    EXPECT_EQ(state["guide"], "offline");
    EXPECT_TRUE(state["now"].is_null());
    EXPECT_TRUE(state["date"].is_null());
    EXPECT_EQ(state["channels"], json::array());
}

TEST(BoxViewTest, WhatOthersSayIsTextWhateverItIs) {
    GuideView view = SomeView();
    view.channels[0].name = "a\x01\"\\\n\x7Fz";
    DeviceView devices;
    devices.search = SearchState::Searching;
    devices.devices = {{"http://h/", "uuid:\xFF\xFE", "\x1B[2J</script>"}};
    const json state = State(view, devices);
    EXPECT_EQ(state["channels"][0]["name"], "a?\"\\??z");
    EXPECT_EQ(state["devices"][0]["name"], "uuid:??");
    EXPECT_EQ(state["devices"][0]["server"], "?[2J</script>");
    EXPECT_EQ(state["search"], "searching");
}

TEST(BoxViewTest, TheStatesOfTheSearchHaveNames) {
    EXPECT_EQ(State({}, {SearchState::Off, {}})["search"], "off");
    EXPECT_EQ(State({}, {SearchState::NoNetwork, {}})["search"], "no network");
}

TEST(BoxViewTest, PercentOverIsFrom0To100) {
    const Programme programme = Make(1, 1000, 1300, "T");
    EXPECT_EQ(PercentOver(programme, 0), 0);
    EXPECT_EQ(PercentOver(programme, 1000), 0);
    EXPECT_EQ(PercentOver(programme, 1299), 99);
    EXPECT_EQ(PercentOver(programme, 1300), 100);
    EXPECT_EQ(PercentOver(programme, 99999), 100);
    EXPECT_EQ(PercentOver(Make(1, 1000, 1000, "T"), 1000), 0);
}

TEST(BoxViewTest, AScheduleBeginsWithWhatIsOnAndHasTwelveProgrammesAtMost) {
    std::vector<Programme> programmes;
    for (int i = 0; i < 30; ++i) {
        programmes.push_back(Make(1, kNow + (i - 3) * 60, kNow + (i - 2) * 60, std::to_string(i)));
        programmes.back().description = "about " + std::to_string(i);
    }
    const json shown = json::parse(ScheduleJson(programmes, kNow))["programmes"];
    ASSERT_EQ(shown.size(), 12u);
    EXPECT_EQ(shown[0]["title"], "3");
    EXPECT_EQ(shown[0]["description"], "about 3");
    EXPECT_EQ(shown[11]["title"], "14");
    EXPECT_EQ(json::parse(ScheduleJson({}, kNow))["programmes"], json::array());
}

}  // namespace
