#include "kpl/ipc/IpcStreamer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/support/VirtualSlot.h"

namespace {

using kpl::ipc::IpcStreamer;
using kpl::ipc::IpcStreamerRefCnt;
using kpl::test::LogCapture;
using kpl::test::SlotOf;
using Messages = std::vector<std::string>;

constexpr const char* kConstructed = "IpcStreamerRefCnt::IpcStreamerRefCnt(): ....\n";
constexpr const char* kDestroyed = "IpcStreamerRefCnt::~IpcStreamerRefCnt(): ....\n";

// A transport that only counts its hooks, and writes down its own end.
class FakeStreamer : public IpcStreamerRefCnt {
public:
    struct Calls {
        int opens = 0;
        int closes = 0;
        bool destroyed = false;
    };

    explicit FakeStreamer(Calls* calls) : m_calls(calls) {}
    ~FakeStreamer() override { m_calls->destroyed = true; }

    int SetOption(int, int) override { return 0; }
    int GetOption(int) override { return -1; }
    int Read(char*, int, int) override { return -1; }
    int Write(const char*, int) override { return -1; }
    bool IsOpened() override { return false; }
    bool DoOpen() override {
        ++m_calls->opens;
        return openResult;
    }
    void DoClose() override {
        ++m_calls->closes;
        delete this;
    }

    bool openResult = true;

private:
    Calls* const m_calls;
};

TEST(IpcStreamerTest, TheVirtualOperationsKeepTheirSlots) {
    EXPECT_EQ(SlotOf(&IpcStreamer::Open), 0);
    EXPECT_EQ(SlotOf(&IpcStreamer::SetOption), 1);
    EXPECT_EQ(SlotOf(&IpcStreamer::GetOption), 2);
    EXPECT_EQ(SlotOf(&IpcStreamer::Read), 3);
    EXPECT_EQ(SlotOf(&IpcStreamer::Write), 4);
    EXPECT_EQ(SlotOf(&IpcStreamer::Close), 5);
    EXPECT_EQ(SlotOf(&IpcStreamer::IsOpened), 6);
    // The destructor takes two.
    EXPECT_EQ(SlotOf(&IpcStreamerRefCnt::DoOpen), 9);
    EXPECT_EQ(SlotOf(&IpcStreamerRefCnt::DoClose), 10);
}

TEST(IpcStreamerRefCntTest, OpenedTwiceAndClosedTwiceItLivesWithOneReferenceAndAThirdCloseEndsIt) {
    LogCapture log;
    FakeStreamer::Calls calls;
    auto* streamer = new FakeStreamer(&calls);
    EXPECT_EQ(streamer->GetRefCount(), 1);
    EXPECT_TRUE(streamer->Open());
    EXPECT_TRUE(streamer->Open());
    EXPECT_EQ(calls.opens, 1);
    EXPECT_EQ(streamer->GetRefCount(), 3);
    streamer->Close();
    streamer->Close();
    EXPECT_EQ(streamer->GetRefCount(), 1);
    EXPECT_EQ(calls.closes, 0);
    EXPECT_FALSE(calls.destroyed);
    streamer->Close();
    EXPECT_EQ(calls.closes, 1);
    EXPECT_TRUE(calls.destroyed);
    EXPECT_EQ(log.Messages(),
              (Messages{kConstructed, "IpcStreamerRefCnt::Open(): Ref counter=2\n",
                        "IpcStreamerRefCnt::Open(): Ref counter=3\n",
                        "IpcStreamerRefCnt::Close(): Ref counter=2\n",
                        "IpcStreamerRefCnt::Close(): Ref counter=1\n",
                        "IpcStreamerRefCnt::Close(): Ref counter=0\n", kDestroyed}));
}

TEST(IpcStreamerRefCntTest, AFailedOpenChangesNothingAndOneCloseEndsIt) {
    LogCapture log;
    FakeStreamer::Calls calls;
    auto* streamer = new FakeStreamer(&calls);
    streamer->openResult = false;
    EXPECT_FALSE(streamer->Open());
    EXPECT_EQ(streamer->GetRefCount(), 1);
    EXPECT_FALSE(streamer->Open());
    EXPECT_EQ(calls.opens, 2);
    streamer->Close();
    EXPECT_TRUE(calls.destroyed);
    EXPECT_EQ(log.Messages(),
              (Messages{kConstructed, "IpcStreamerRefCnt::Close(): Ref counter=0\n", kDestroyed}));
}

TEST(IpcStreamerRefCntTest, DestroyedWithItsReferenceItDropsThatWithoutTheHook) {
    LogCapture log;
    FakeStreamer::Calls calls;
    { FakeStreamer streamer(&calls); }
    EXPECT_EQ(calls.closes, 0);
    EXPECT_EQ(log.Messages(),
              (Messages{kConstructed, kDestroyed, "IpcStreamerRefCnt::Close(): Ref counter=0\n"}));
}

TEST(IpcStreamerRefCntTest, ReferencesDroppedByTwoThreadsAtOnceEndItExactlyOnce) {
    constexpr int kEach = 20000;
    for (int round = 0; round < 20; ++round) {
        FakeStreamer::Calls calls;
        auto* streamer = new FakeStreamer(&calls);
        for (int i = 1; i < 2 * kEach; ++i) {
            ASSERT_TRUE(streamer->Open());
        }
        std::atomic<int> here{0};
        const auto dropAll = [streamer, &here] {
            ++here;
            while (here != 2) {
                std::this_thread::yield();
            }
            for (int i = 0; i < kEach; ++i) {
                streamer->Close();
            }
        };
        std::thread other(dropAll);
        dropAll();
        other.join();
        ASSERT_EQ(calls.closes, 1);
        ASSERT_TRUE(calls.destroyed);
    }
}

}  // namespace
