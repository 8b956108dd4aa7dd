#include "kpl/tools/CommandProcessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::os::CEvent;
using kpl::test::kCeilingMs;
using kpl::test::SettledThreadCount;
using kpl::test::ThreadCount;
using kpl::test::WaitUntil;
using kpl::tools::CommandProcessor;
using kpl::tools::CommandQueue;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Commands = std::vector<int>;

// Remembers what it was given; `m_onExecute` decides what a command does, by default it succeeds.
class Recorder : public CommandProcessor<int> {
public:
    explicit Recorder(std::function<bool(int)> onExecute = nullptr)
        : m_onExecute(std::move(onExecute)) {}

    bool Execute(int command) override {
        EXPECT_EQ(++m_running, 1);
        Add(&m_executed, command);
        const bool result = !m_onExecute || m_onExecute(command);
        --m_running;
        return result;
    }

    void OnCommandDone(int command) override { Add(&m_done, command); }

    Commands Executed() const { return Copy(m_executed); }
    Commands Done() const { return Copy(m_done); }

    bool HasDone(int command) const {
        const Commands done = Done();
        return std::find(done.begin(), done.end(), command) != done.end();
    }

    bool WaitForExecuted(size_t count) const {
        return WaitUntil([&] { return Executed().size() >= count; });
    }

    bool WaitForDone(size_t count) const {
        return WaitUntil([&] { return Done().size() >= count; });
    }

private:
    void Add(Commands* list, int command) {
        std::lock_guard<std::mutex> lock(m_mutex);
        list->push_back(command);
    }

    Commands Copy(const Commands& list) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return list;
    }

    const std::function<bool(int)> m_onExecute;
    std::atomic<int> m_running{0};
    mutable std::mutex m_mutex;
    Commands m_executed;
    Commands m_done;
};

// A Recorder whose commands wait until they are let go.
class Gated : public Recorder {
public:
    Gated()
        : Recorder([this](int) {
              m_entered.Set();
              return m_gate.Wait(kCeilingMs * 6);
          }) {}

    // Returns once a command is being executed.
    bool WaitUntilEntered() { return m_entered.Wait(kCeilingMs); }
    void Open() { m_gate.Set(); }

private:
    CEvent m_entered{false};
    CEvent m_gate{false};
};

// Runs `body` in a thread of its own.
class Background {
public:
    explicit Background(const std::function<void()>& body)
        : m_thread([this, body] {
              m_started.Set();
              body();
              m_ended.Set();
          }) {
        m_started.Wait(-1);
    }

    ~Background() { m_thread.join(); }

    bool HasEnded(long timeoutMs) { return m_ended.Wait(timeoutMs); }

private:
    CEvent m_started{false};
    CEvent m_ended{false};
    std::thread m_thread;
};

TEST(CommandQueueTest, CommandsAreExecutedOneAtATimeInTheOrderOfPosting) {
    Recorder recorder;
    CommandQueue<int> queue(&recorder);
    Commands posted;
    for (int i = 0; i < 1000; ++i) {
        queue.Post(i);
        posted.push_back(i);
    }
    ASSERT_TRUE(recorder.WaitForDone(1000));
    EXPECT_EQ(recorder.Executed(), posted);
    EXPECT_EQ(recorder.Done(), posted);
}

TEST(CommandQueueTest, EachCommandIsDoneBeforeTheNextIsExecuted) {
    Commands doneAtExecute;
    Recorder* self = nullptr;
    Recorder recorder([&](int) {
        doneAtExecute.push_back(static_cast<int>(self->Done().size()));
        return true;
    });
    self = &recorder;
    CommandQueue<int> queue(&recorder);
    for (int i = 0; i < 4; ++i) {
        queue.Post(i);
    }
    ASSERT_TRUE(recorder.WaitForDone(4));
    EXPECT_THAT(doneAtExecute, ElementsAre(0, 1, 2, 3));
}

TEST(CommandQueueTest, TheFirstPostStartsTheWorkerAndStopEndsIt) {
    const int threads = ThreadCount();
    Recorder recorder;
    CommandQueue<int> queue(&recorder);
    EXPECT_EQ(ThreadCount(), threads);
    queue.Post(1);
    queue.Post(2);
    ASSERT_TRUE(recorder.WaitForDone(2));
    EXPECT_EQ(ThreadCount(), threads + 1);
    queue.Stop();
    EXPECT_EQ(SettledThreadCount(threads), threads);
}

TEST(CommandQueueTest, WithANullProcessorCommandsPileUpAndNoThreadStarts) {
    const int threads = ThreadCount();
    CommandQueue<int> queue(nullptr);
    queue.SetLimit(2);
    queue.Post(1);
    EXPECT_FALSE(queue.IsFull());
    queue.Post(2);
    EXPECT_TRUE(queue.IsFull());
    EXPECT_EQ(ThreadCount(), threads);
    queue.Stop();
    EXPECT_FALSE(queue.IsFull());
}

TEST(CommandQueueTest, HasAWorkerFromTheFirstPostToTheStop) {
    Recorder recorder;
    CommandQueue<int> queue(&recorder);
    EXPECT_FALSE(queue.HasWorker());
    queue.Post(1);
    EXPECT_TRUE(queue.HasWorker());
    queue.Stop();
    EXPECT_FALSE(queue.HasWorker());
    CommandQueue<int> idle(nullptr);
    idle.Post(1);
    EXPECT_FALSE(idle.HasWorker());
}

TEST(CommandQueueTest, WithALimitOfTwoAThirdPostBlocksUntilTheWorkerHasPoppedOne) {
    Gated gated;
    CommandQueue<int> queue(&gated);
    queue.SetLimit(2);
    queue.Post(1);
    queue.Post(2);
    ASSERT_TRUE(gated.WaitUntilEntered());
    Background third([&] { queue.Post(3); });
    EXPECT_FALSE(third.HasEnded(50));
    gated.Open();
    EXPECT_TRUE(third.HasEnded(kCeilingMs));
    EXPECT_TRUE(gated.WaitForDone(3));
    EXPECT_THAT(gated.Executed(), ElementsAre(1, 2, 3));
}

TEST(CommandQueueTest, TheCommandThatIsBeingExecutedStillCountsForTheLimit) {
    Gated gated;
    CommandQueue<int> queue(&gated);
    queue.SetLimit(1);
    queue.Post(1);
    ASSERT_TRUE(gated.WaitUntilEntered());
    EXPECT_TRUE(queue.IsFull());
    gated.Open();
    EXPECT_TRUE(WaitUntil([&] { return !queue.IsFull(); }));
}

TEST(CommandQueueTest, ALimitBelowOneIsNoLimit) {
    CommandQueue<int> queue(nullptr);
    for (int limit : {-1, 0}) {
        queue.SetLimit(limit);
        for (int i = 0; i < 100; ++i) {
            queue.Post(i);
        }
        EXPECT_FALSE(queue.IsFull());
    }
}

TEST(CommandQueueTest, WithoutSetLimitThereIsNone) {
    CommandQueue<int> queue(nullptr);
    for (int i = 0; i < 1000; ++i) {
        queue.Post(i);
    }
    EXPECT_FALSE(queue.IsFull());
}

TEST(CommandQueueTest, AHigherLimitReleasesABlockedPoster) {
    CommandQueue<int> queue(nullptr);
    queue.SetLimit(1);
    queue.Post(1);
    Background second([&] { queue.Post(2); });
    EXPECT_FALSE(second.HasEnded(30));
    queue.SetLimit(2);
    EXPECT_TRUE(second.HasEnded(kCeilingMs));
    EXPECT_TRUE(queue.IsFull());
}

TEST(CommandQueueTest, StopOnAQueueThatNeverReceivedAPostStartsNothingAndDrainsNothing) {
    const int threads = ThreadCount();
    Recorder recorder;
    CommandQueue<int> queue(&recorder);
    queue.Stop();
    EXPECT_EQ(ThreadCount(), threads);
    EXPECT_THAT(recorder.Executed(), IsEmpty());
    EXPECT_THAT(recorder.Done(), IsEmpty());
}

// Posts until a stop has been asked for: from then on a command comes straight back.
void WaitUntilStopping(CommandQueue<int>* queue, const Recorder& recorder, int probe) {
    EXPECT_TRUE(WaitUntil([&] {
        queue->Post(probe);
        return recorder.HasDone(probe);
    }));
}

TEST(CommandQueueTest, CommandsStillQueuedWhenStopRunsAreDoneButNeverExecuted) {
    Gated gated;
    CommandQueue<int> queue(&gated);
    for (int i = 1; i <= 4; ++i) {
        queue.Post(i);
    }
    ASSERT_TRUE(gated.WaitUntilEntered());
    {
        Background stop([&] { queue.Stop(); });
        WaitUntilStopping(&queue, gated, 0);
        EXPECT_FALSE(stop.HasEnded(0));
        gated.Open();
    }
    EXPECT_THAT(gated.Executed(), ElementsAre(1));
    Commands done = gated.Done();
    done.erase(std::remove(done.begin(), done.end(), 0), done.end());
    EXPECT_THAT(done, ElementsAre(1, 2, 3, 4));
}

TEST(CommandQueueTest, StopWaitsForARunningExecute) {
    Gated gated;
    CommandQueue<int> queue(&gated);
    queue.Post(1);
    ASSERT_TRUE(gated.WaitUntilEntered());
    Background stop([&] { queue.Stop(); });
    EXPECT_FALSE(stop.HasEnded(50));
    gated.Open();
    EXPECT_TRUE(stop.HasEnded(kCeilingMs));
    EXPECT_THAT(gated.Done(), ElementsAre(1));
}

TEST(CommandQueueTest, ARefusedCommandStaysFirstAndIsOfferedAgainByTheNextPost) {
    int offers = 0;
    Recorder recorder([&](int) { return ++offers > 1; });
    CommandQueue<int> queue(&recorder);
    queue.Post(1);
    ASSERT_TRUE(recorder.WaitForExecuted(1));
    CEvent(false).Wait(50);  // allow-sleep: nothing may happen meanwhile
    EXPECT_THAT(recorder.Executed(), ElementsAre(1));
    EXPECT_THAT(recorder.Done(), IsEmpty());
    queue.Post(2);
    ASSERT_TRUE(recorder.WaitForDone(2));
    EXPECT_THAT(recorder.Executed(), ElementsAre(1, 1, 2));
    EXPECT_THAT(recorder.Done(), ElementsAre(1, 2));
}

// Both posts come while another command is executed; they make up one offer, not two.
TEST(CommandQueueTest, ARefusedCommandIsNotOfferedAgainByPostsThatCameBeforeItsOffer) {
    CEvent entered(false);
    CEvent gate(false);
    Recorder recorder([&](int command) {
        entered.Set();
        return command == 0 && gate.Wait(kCeilingMs);
    });
    CommandQueue<int> queue(&recorder);
    queue.Post(0);
    ASSERT_TRUE(entered.Wait(kCeilingMs));
    queue.Post(1);
    queue.Post(2);
    gate.Set();
    ASSERT_TRUE(recorder.WaitForExecuted(2));
    CEvent(false).Wait(50);  // allow-sleep: nothing may happen meanwhile
    EXPECT_THAT(recorder.Executed(), ElementsAre(0, 1));
}

// A post that comes while a command is being refused is the next post: it makes another offer.
TEST(CommandQueueTest, APostDuringARefusalIsNotLost) {
    CEvent entered(false);
    CEvent gate(false);
    int offers = 0;
    Recorder recorder([&](int) {
        entered.Set();
        return gate.Wait(kCeilingMs) && ++offers > 1;
    });
    CommandQueue<int> queue(&recorder);
    queue.Post(1);
    ASSERT_TRUE(entered.Wait(kCeilingMs));
    queue.Post(2);
    gate.Set();
    EXPECT_TRUE(recorder.WaitForDone(2));
    EXPECT_THAT(recorder.Executed(), ElementsAre(1, 1, 2));
}

TEST(CommandQueueTest, ARefusedCommandIsDoneByStop) {
    Recorder recorder([](int) { return false; });
    CommandQueue<int> queue(&recorder);
    queue.Post(1);
    ASSERT_TRUE(recorder.WaitForExecuted(1));
    queue.Stop();
    EXPECT_THAT(recorder.Done(), ElementsAre(1));
}

TEST(CommandQueueTest, PostFromInsideExecuteGoesOnWithoutEnd) {
    CommandQueue<int>* self = nullptr;
    Recorder recorder([&](int command) {
        self->Post(command + 1);
        return true;
    });
    CommandQueue<int> queue(&recorder);
    self = &queue;
    queue.Post(0);
    ASSERT_TRUE(recorder.WaitForDone(500));
    queue.Stop();
    const Commands executed = recorder.Executed();
    for (size_t i = 0; i < executed.size(); ++i) {
        ASSERT_EQ(executed[i], static_cast<int>(i));
    }
    // The last one posted was waiting, or came too late.
    EXPECT_EQ(recorder.Done().size(), executed.size() + 1);
}

TEST(CommandQueueTest, StopCanBeRepeated) {
    Recorder recorder;
    CommandQueue<int> queue(&recorder);
    queue.Post(1);
    ASSERT_TRUE(recorder.WaitForDone(1));
    queue.Stop();
    queue.Stop();
    EXPECT_THAT(recorder.Done(), ElementsAre(1));
}

TEST(CommandQueueTest, APostAfterStopReachesOnlyOnCommandDone) {
    const int threads = ThreadCount();
    Recorder recorder;
    CommandQueue<int> queue(&recorder);
    queue.Stop();
    queue.Post(7);
    EXPECT_THAT(recorder.Done(), ElementsAre(7));
    EXPECT_THAT(recorder.Executed(), IsEmpty());
    EXPECT_EQ(ThreadCount(), threads);
}

TEST(CommandQueueTest, APostAfterStopDoesNotBlockOnALimit) {
    CommandQueue<int> queue(nullptr);
    queue.SetLimit(1);
    queue.Post(1);
    queue.Stop();
    queue.Post(2);
    queue.Post(3);
    EXPECT_FALSE(queue.IsFull());
}

TEST(CommandQueueTest, TheDestructorStops) {
    const int threads = ThreadCount();
    Gated gated;
    gated.Open();
    {
        CommandQueue<int> queue(&gated);
        queue.Post(1);
        ASSERT_TRUE(gated.WaitUntilEntered());
        queue.Post(2);
    }
    EXPECT_THAT(gated.Done(), ElementsAre(1, 2));
    EXPECT_EQ(SettledThreadCount(threads), threads);
}

// Commands that own something: nothing of it is left once they are done or handed back.
class Owner : public CommandProcessor<std::shared_ptr<int>> {
public:
    bool Execute(std::shared_ptr<int> command) override { return *command == 0; }
};

TEST(CommandQueueTest, NoCopyOfACommandStaysBehind) {
    auto executed = std::make_shared<int>(0);
    auto drained = std::make_shared<int>(1);
    Owner owner;
    {
        CommandQueue<std::shared_ptr<int>> queue(&owner);
        queue.Post(executed);
        EXPECT_TRUE(WaitUntil([&] { return executed.use_count() == 1; }));
        queue.Post(drained);
        queue.Stop();
        queue.Post(drained);
    }
    EXPECT_EQ(drained.use_count(), 1);
}

// Each command is posted only after the one before is done, so that every post finds the worker
// on its way to sleep: a lost one would never be executed.
void PostOneByOne(CommandQueue<int>* queue, const std::atomic<int>* done, int poster, int count) {
    for (int i = 0; i < count; ++i) {
        queue->Post(poster);
        const kpl::test::Stopwatch watch;
        while (done[poster] <= i) {
            std::this_thread::yield();
            if (watch.ElapsedMs() > kCeilingMs) {
                FAIL() << "post " << i << " was lost";
            }
        }
    }
}

class Counter : public CommandProcessor<int> {
public:
    bool Execute(int) override { return true; }
    void OnCommandDone(int poster) override { ++m_done[poster]; }
    const std::atomic<int>* Done() const { return m_done; }

private:
    std::atomic<int> m_done[2] = {};
};

TEST(CommandQueueTest, NoPostIsLostWhileTheWorkerFallsAsleep) {
    constexpr int kPosts = 10000;
    Counter counter;
    CommandQueue<int> queue(&counter);
    Background other([&] { PostOneByOne(&queue, counter.Done(), 1, kPosts); });
    PostOneByOne(&queue, counter.Done(), 0, kPosts);
    EXPECT_TRUE(other.HasEnded(kCeilingMs * 6));
}

TEST(CommandQueueTest, PostersBlockedOnAFullQueueAreReleasedByStopAndTheirCommandsNeverExecuted) {
    for (int round = 0; round < 20; ++round) {
        Gated gated;
        CommandQueue<int> queue(&gated);
        queue.SetLimit(1);
        queue.Post(1);
        ASSERT_TRUE(gated.WaitUntilEntered());
        {
            Background second([&] { queue.Post(2); });
            Background third([&] { queue.Post(3); });
            EXPECT_FALSE(second.HasEnded(1));
            EXPECT_FALSE(third.HasEnded(1));
            Background stop([&] { queue.Stop(); });
            EXPECT_TRUE(second.HasEnded(kCeilingMs));
            EXPECT_TRUE(third.HasEnded(kCeilingMs));
            gated.Open();
            EXPECT_TRUE(stop.HasEnded(kCeilingMs));
        }
        EXPECT_THAT(gated.Executed(), ElementsAre(1));
        EXPECT_THAT(gated.Done(), UnorderedElementsAre(1, 2, 3));
    }
}

// A command that tells when it is copied: a poster moves it into Post, and the queue copies it when
// it appends it.
struct CopyTeller {
    explicit CopyTeller(std::function<void()> onCopy) : m_onCopy(std::move(onCopy)) {}
    CopyTeller(CopyTeller&&) = default;
    CopyTeller(const CopyTeller& other) : m_onCopy(other.m_onCopy) {
        if (m_onCopy) {
            m_onCopy();
        }
    }

    std::function<void()> m_onCopy;
};

// Returns whether the poster was blocked when the stop came, rather than too late to block.
bool StopWithABlockedPoster() {
    CommandQueue<CopyTeller> queue(nullptr);
    queue.SetLimit(1);
    queue.Post(CopyTeller(nullptr));
    std::atomic<bool> appends{false};
    CEvent stopped(false);
    Background poster([&] {
        queue.Post(CopyTeller([&] {
            appends = true;
            EXPECT_FALSE(stopped.Wait(20)) << "stopped while a poster is still inside";
        }));
    });
    EXPECT_FALSE(poster.HasEnded(5));
    queue.Stop();
    stopped.Set();
    EXPECT_TRUE(poster.HasEnded(kCeilingMs));
    return appends;
}

TEST(CommandQueueTest, StopReturnsOnlyAfterABlockedPosterHasLeft) {
    int blocked = 0;
    for (int round = 0; round < 100 && blocked < 5; ++round) {
        blocked += StopWithABlockedPoster() ? 1 : 0;
    }
    EXPECT_EQ(blocked, 5);
}

TEST(CommandQueueTest, TheFirstPostFromTwoThreadsMakesOneWorker) {
    for (int round = 0; round < 200; ++round) {
        std::set<std::thread::id> workers;
        Recorder recorder([&](int) {
            workers.insert(std::this_thread::get_id());
            return true;
        });
        CommandQueue<int> queue(&recorder);
        std::atomic<int> ready{0};
        const auto post = [&] {
            ++ready;
            while (ready < 2) {
                std::this_thread::yield();
            }
            queue.Post(round);
        };
        {
            Background other(post);
            post();
        }
        ASSERT_TRUE(recorder.WaitForDone(2));
        queue.Stop();
        ASSERT_EQ(workers.size(), 1u);
    }
}

TEST(CommandQueueTest, ManyPostersWithALimitAreAllServed) {
    Counter counter;
    CommandQueue<int> queue(&counter);
    queue.SetLimit(3);
    {
        const auto postMany = [&](int poster) {
            for (int i = 0; i < 2000; ++i) {
                queue.Post(poster);
            }
        };
        Background first([&] { postMany(0); });
        Background second([&] { postMany(1); });
        Background third([&] { postMany(1); });
    }
    EXPECT_TRUE(WaitUntil([&] { return counter.Done()[0] + counter.Done()[1] == 6000; }));
    EXPECT_EQ(counter.Done()[0], 2000);
}

}  // namespace
