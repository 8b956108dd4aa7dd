#include "StartAnnouncer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "GuideProtocol.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "tests/support/Process.h"

namespace {

using namespace guide;
using kpl::rpc::RpcCommandDemuxer;
using kpl::rpc::RpcCommandMuxer;
using kpl::rpc::RpcRemoteCallback;
using kpl::test::WaitUntil;

// Stands for a client: takes callbacks until it "goes".
class FakeClient : public kpl::rpc::RpcCallback {
public:
    // Goes after that many.
    explicit FakeClient(int patience) : m_patience(patience) {}
    ~FakeClient() override = default;

    bool Send(RpcCommandMuxer*, unsigned int) override { return ++m_calls <= m_patience; }
    void AddRef() override { ++m_references; }
    void Release() override { --m_references; }

    int Calls() const { return m_calls; }
    int References() const { return m_references; }

private:
    const int m_patience;
    std::atomic<int> m_calls{0};
    std::atomic<int> m_references{0};
};

// One channel with a programme a minute, for ten hours.
Guide MakeGuide() {
    Guide guide;
    for (int i = 0; i < 600; ++i) {
        Programme programme;
        programme.channelName = "One";
        programme.title = "T";
        programme.start = i * kMinute;
        programme.end = programme.start + kMinute;
        guide.Add(programme);
    }
    return guide;
}

class StartAnnouncerTest : public testing::Test {
protected:
    const Guide m_guide = MakeGuide();
    const GuideClock m_fastClock{0, 60000};  // a programme a millisecond
    const GuideClock m_slowClock{0, 1};
};

TEST_F(StartAnnouncerTest, FollowersAreNumberedFromOne) {
    FakeClient client(0);
    StartAnnouncer announcer(m_guide, m_slowClock);
    EXPECT_EQ(1, announcer.Follow(RpcRemoteCallback(&client, 0, 0)));
    EXPECT_EQ(2, announcer.Follow(RpcRemoteCallback(&client, 0, 0)));
}

TEST_F(StartAnnouncerTest, AFollowerWhoseClientHasGoneIsDropped) {
    FakeClient leaver(2);
    FakeClient stayer(1000000);
    StartAnnouncer announcer(m_guide, m_fastClock);
    announcer.Follow(RpcRemoteCallback(&leaver, 0, 0));
    announcer.Follow(RpcRemoteCallback(&stayer, 0, 0));
    ASSERT_TRUE(announcer.Start());
    ASSERT_TRUE(WaitUntil([&] { return stayer.Calls() >= 20; }));
    EXPECT_EQ(3, leaver.Calls()) << "two that it took, and the one that told that it has gone";
    EXPECT_TRUE(WaitUntil([&] { return leaver.References() == 0; }));
    EXPECT_GE(stayer.References(), 1);
}

TEST_F(StartAnnouncerTest, StopDoesNotWaitForTheNextProgramme) {
    StartAnnouncer announcer(m_guide, m_slowClock);
    ASSERT_TRUE(announcer.Start());
    const auto before = std::chrono::steady_clock::now();
    announcer.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20));
}

TEST_F(StartAnnouncerTest, StopForgetsTheFollowers) {
    FakeClient client(1000000);
    StartAnnouncer announcer(m_guide, m_slowClock);
    announcer.Follow(RpcRemoteCallback(&client, 0, 0));
    ASSERT_TRUE(announcer.Start());
    EXPECT_EQ(1, client.References());
    announcer.Stop();
    EXPECT_EQ(0, client.References());
}

TEST_F(StartAnnouncerTest, TheLastProgrammeIsAnnouncedAndNothingAfterIt) {
    FakeClient client(1000000);
    const GuideClock clock(599 * kMinute - 1, 10);
    StartAnnouncer announcer(m_guide, clock);
    announcer.Follow(RpcRemoteCallback(&client, 0, 0));
    ASSERT_TRUE(announcer.Start());
    EXPECT_TRUE(WaitUntil([&] { return client.Calls() == 1; }));
    announcer.Stop();
    EXPECT_EQ(1, client.Calls());
}

}  // namespace
