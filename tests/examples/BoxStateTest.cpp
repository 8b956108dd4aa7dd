#include "BoxState.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <thread>

namespace {

using namespace tv_box;
using nlohmann::json;
using Clock = BoxState::Clock;

constexpr auto kFar = std::chrono::hours(1);

// Counts its answers and keeps the last one.
class Waiter : public StateWaiter {
public:
    void Answer(const std::string& state) override {
        ++answers;
        last = state;
    }

    int answers = 0;
    std::string last;
};

std::string VersionOf(const std::string& state) {
    return json::parse(state)["version"];
}

GuideView ViewAt(guide::GuideTime now) {
    GuideView view;
    view.isOnline = true;
    view.now = now;
    view.channels = {{1, "One"}};
    return view;
}

class BoxStateTest : public testing::Test {
protected:
    std::string Version() const { return VersionOf(m_state.Json()); }

    bool Wait(Waiter* waiter, Clock::time_point deadline = Clock::now() + kFar) {
        return !m_state.WaitForOther(Version(), deadline, waiter);
    }

    BoxState m_state{"a file"};
};

TEST_F(BoxStateTest, TheVersionChangesWithWhatIsShown) {
    std::set<std::string> versions{Version()};
    m_state.SetGuide(ViewAt(6000));
    versions.insert(Version());
    m_state.SetGuide(ViewAt(6060));  // a minute later
    versions.insert(Version());
    m_state.SetGuideOffline();
    versions.insert(Version());
    m_state.SetDevices({SearchState::Searching, {}});
    versions.insert(Version());
    EXPECT_EQ(versions.size(), 5u);
}

TEST_F(BoxStateTest, TheVersionStaysWhenNothingChangesButTheSecond) {
    m_state.SetGuide(ViewAt(6000));
    const std::string version = Version();
    m_state.SetGuide(ViewAt(6000));
    m_state.SetGuide(ViewAt(6059));
    m_state.SetSchedules({{1, {}}});
    EXPECT_EQ(Version(), version);
    EXPECT_EQ(json::parse(m_state.Json())["now"], "1970-01-01 01:40:59");
}

TEST_F(BoxStateTest, TwoRunsHaveNoVersionInCommon) {
    EXPECT_NE(Version(), VersionOf(BoxState("a file").Json()));
}

TEST_F(BoxStateTest, AnotherVersionIsAnsweredAtOnceAndNotRemembered) {
    Waiter waiter;
    for (const char* version : {"", "0-0", "x"}) {
        EXPECT_EQ(m_state.WaitForOther(version, Clock::now() + kFar, &waiter), m_state.Json());
    }
    m_state.SetGuide(ViewAt(6000));
    EXPECT_EQ(waiter.answers, 0);
}

TEST_F(BoxStateTest, AWaiterIsAnsweredOnceByTheChange) {
    Waiter waiter;
    ASSERT_TRUE(Wait(&waiter));
    EXPECT_EQ(waiter.answers, 0);
    m_state.SetGuide(ViewAt(6000));
    EXPECT_EQ(waiter.answers, 1);
    EXPECT_EQ(waiter.last, m_state.Json());
    m_state.SetGuideOffline();
    m_state.AnswerLate(Clock::now() + 2 * kFar);
    EXPECT_EQ(waiter.answers, 1);
}

TEST_F(BoxStateTest, ASecondThatPassesAnswersNobody) {
    m_state.SetGuide(ViewAt(6000));
    Waiter waiter;
    ASSERT_TRUE(Wait(&waiter));
    m_state.SetGuide(ViewAt(6001));
    EXPECT_EQ(waiter.answers, 0);
}

TEST_F(BoxStateTest, LateOnesAreAnsweredFromTheirDeadlineOnWithTheStateAsItIs) {
    const Clock::time_point deadline = Clock::now() + kFar;
    Waiter waiter;
    Waiter other;
    ASSERT_TRUE(Wait(&waiter, deadline));
    ASSERT_TRUE(Wait(&other, deadline + std::chrono::milliseconds(1)));
    m_state.AnswerLate(deadline - std::chrono::milliseconds(1));
    EXPECT_EQ(waiter.answers, 0);
    m_state.AnswerLate(deadline);
    m_state.AnswerLate(deadline);
    EXPECT_EQ(waiter.answers, 1);
    EXPECT_EQ(waiter.last, m_state.Json());
    EXPECT_EQ(other.answers, 0);
}

TEST_F(BoxStateTest, AWaiterThatIsForgottenIsNotAnswered) {
    Waiter waiter;
    ASSERT_TRUE(Wait(&waiter));
    m_state.Forget(&waiter);
    m_state.Forget(&waiter);
    m_state.SetGuide(ViewAt(6000));
    EXPECT_EQ(waiter.answers, 0);
}

TEST_F(BoxStateTest, AfterTheServerHasGoneItsLastWordIsStillShown) {
    m_state.SetGuide(ViewAt(6000));
    m_state.SetGuideOffline();
    const json state = json::parse(m_state.Json());
    EXPECT_EQ(state["guide"], "offline");
    EXPECT_EQ(state["channels"].size(), 1u);
}

TEST_F(BoxStateTest, AChannelHasASchedule) {
    EXPECT_FALSE(m_state.ChannelJson(1));
    m_state.SetSchedules({{1, {}}});
    EXPECT_EQ(m_state.ChannelJson(1), "{\"programmes\":[]}");
    EXPECT_FALSE(m_state.ChannelJson(2));
}

// No change falls between the look at the version and the wait for the next one.
TEST_F(BoxStateTest, NoChangeIsMissed) {
    constexpr int kChanges = 2000;
    std::thread changing([this] {
        for (int i = 1; i <= kChanges; ++i) {
            m_state.SetGuide(ViewAt(i * 60));
        }
    });
    const std::string last = "1970-01-02 09:20:00";
    std::string seen;
    while (json::parse(seen.empty() ? m_state.Json() : seen)["now"] != last) {
        Waiter waiter;
        const auto now =
            m_state.WaitForOther(seen.empty() ? "" : VersionOf(seen), Clock::now() + kFar, &waiter);
        m_state.Forget(&waiter);  // from here on `waiter` is ours
        seen = now ? *now : waiter.answers > 0 ? waiter.last : seen;
    }
    changing.join();
    EXPECT_EQ(json::parse(m_state.Json())["now"], last);
}

}  // namespace
