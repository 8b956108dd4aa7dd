#include "kpl/os/CThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <memory>

#include "kpl/os/CEvent.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::os::CEvent;
using kpl::os::CThread;
using kpl::test::kCeilingMs;

// What the threads of these tests do: say that they run, then wait until they are asked to exit.
struct Worker {
    CThread thread{&Worker::Entry, this};
    std::atomic<int> runs{0};
    std::atomic<int> ends{0};
    CEvent started{false};

    static void Entry(void* self) {
        auto* worker = static_cast<Worker*>(self);
        ++worker->runs;
        worker->started.Set();
        CEvent tick(false);
        while (!worker->thread.IsAskToExit()) {
            tick.Wait(1);
        }
        ++worker->ends;
    }

    bool RunAndWait() {
        started.Reset();
        return thread.Run(0) && started.Wait(kCeilingMs);
    }
};

// The size of the calling thread's stack.
size_t StackSize() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    size_t size = 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

size_t DefaultStackSize() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    size_t size = 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

void StoreStackSize(void* size) {
    *static_cast<size_t*>(size) = StackSize();
}

TEST(CThreadTest, ConstructionStartsNothing) {
    const int threads = kpl::test::ThreadCount();
    Worker worker;
    EXPECT_FALSE(worker.thread.IsRun());
    EXPECT_FALSE(worker.thread.IsAskToExit());
    EXPECT_EQ(kpl::test::ThreadCount(), threads);
    EXPECT_EQ(worker.runs, 0);
}

TEST(CThreadTest, RunCallsTheFunctionWithItsArgumentOnAnotherThread) {
    pthread_t id = pthread_self();
    CThread thread([](void* out) { *static_cast<pthread_t*>(out) = pthread_self(); }, &id);
    EXPECT_TRUE(thread.Run(0));
    thread.Exit(true);
    EXPECT_FALSE(pthread_equal(id, pthread_self()));
}

TEST(CThreadTest, ItCountsAsRunningUntilItIsJoinedAlsoAfterTheFunctionHasReturned) {
    CEvent returned(false);
    CThread thread([](void* event) { static_cast<CEvent*>(event)->Set(); }, &returned);
    ASSERT_TRUE(thread.Run(0));
    ASSERT_TRUE(returned.Wait(kCeilingMs));
    EXPECT_TRUE(thread.IsRun());
    EXPECT_FALSE(thread.Run(0));
    thread.Exit(true);
    EXPECT_FALSE(thread.IsRun());
}

TEST(CThreadTest, RunOnARunningThreadReturnsFalseAndClearsAPendingExitRequest) {
    CEvent end(false);
    CThread thread([](void* event) { static_cast<CEvent*>(event)->Wait(-1); }, &end);
    ASSERT_TRUE(thread.Run(0));
    thread.Exit(false);
    EXPECT_TRUE(thread.IsAskToExit());
    EXPECT_FALSE(thread.Run(0));
    EXPECT_FALSE(thread.IsAskToExit());
    EXPECT_TRUE(thread.IsRun());
    end.Set();
}

TEST(CThreadTest, AfterExitWithoutAWaitRunReturnsFalse) {
    Worker worker;
    ASSERT_TRUE(worker.RunAndWait());
    worker.thread.Exit(false);
    EXPECT_TRUE(worker.thread.IsRun());
    EXPECT_TRUE(kpl::test::WaitUntil([&] { return worker.ends == 1; }));
    EXPECT_FALSE(worker.thread.Run(0));
    EXPECT_EQ(worker.runs, 1);
}

TEST(CThreadTest, AfterExitWithAWaitRunStartsAFreshThreadWithTheSameFunctionAndArgument) {
    Worker worker;
    ASSERT_TRUE(worker.RunAndWait());
    worker.thread.Exit(true);
    EXPECT_EQ(worker.ends, 1);
    EXPECT_TRUE(worker.RunAndWait());
    EXPECT_EQ(worker.runs, 2);
    worker.thread.Exit(true);
    EXPECT_EQ(worker.ends, 2);
}

TEST(CThreadTest, TheExitRequestStaysVisibleUntilTheNextRun) {
    Worker worker;
    ASSERT_TRUE(worker.RunAndWait());
    EXPECT_FALSE(worker.thread.IsAskToExit());
    worker.thread.Exit(true);
    EXPECT_TRUE(worker.thread.IsAskToExit());
    EXPECT_FALSE(worker.thread.IsRun());
    ASSERT_TRUE(worker.RunAndWait());
    EXPECT_FALSE(worker.thread.IsAskToExit());
}

TEST(CThreadTest, ExitOnAThreadThatWasNeverRunReturnsAtOnceAndSetsNothing) {
    CThread thread([](void*) {}, nullptr);
    thread.Exit(true);
    EXPECT_FALSE(thread.IsAskToExit());
    EXPECT_FALSE(thread.IsRun());
    thread.Exit(false);
    EXPECT_FALSE(thread.IsAskToExit());
}

TEST(CThreadTest, TheDestructorAsksForTheEndAndJoins) {
    auto worker = std::make_unique<Worker>();
    ASSERT_TRUE(worker->RunAndWait());
    CThread* thread = &worker->thread;
    std::atomic<int>* ends = &worker->ends;
    thread->~CThread();
    EXPECT_EQ(*ends, 1);
    new (thread) CThread([](void*) {}, nullptr);
}

TEST(CThreadTest, TheStackHasTheSizeThatRunWasGiven) {
    // Larger than the default, which a stack left over from another thread has.
    const size_t wanted = DefaultStackSize() * 2;
    size_t size = 0;
    CThread thread(&StoreStackSize, &size);
    ASSERT_TRUE(thread.Run(static_cast<int>(wanted)));
    thread.Exit(true);
    EXPECT_GE(size, wanted);
}

TEST(CThreadTest, AStackSizeOfZeroIsThePlatformsDefault) {
    size_t size = 0;
    CThread thread(&StoreStackSize, &size);
    ASSERT_TRUE(thread.Run(0));
    thread.Exit(true);
    EXPECT_GE(size, DefaultStackSize());
}

TEST(CThreadTest, AStackSmallerThanThePlatformAllowsIsTheDefaultOne) {
    size_t size = 0;
    CThread thread(&StoreStackSize, &size);
    ASSERT_TRUE(thread.Run(1));
    thread.Exit(true);
    EXPECT_GE(size, DefaultStackSize());
}

TEST(CThreadTest, ARunThatFailsReturnsFalseAndCanBeRepeated) {
    Worker worker;
    EXPECT_FALSE(worker.thread.Run(-1));
    EXPECT_FALSE(worker.thread.IsRun());
    EXPECT_EQ(worker.runs, 0);
    EXPECT_TRUE(worker.RunAndWait());
}

TEST(CThreadTest, ARunThatFailsStillClearsTheExitRequest) {
    Worker worker;
    ASSERT_TRUE(worker.RunAndWait());
    worker.thread.Exit(true);
    ASSERT_TRUE(worker.thread.IsAskToExit());
    EXPECT_FALSE(worker.thread.Run(-1));
    EXPECT_FALSE(worker.thread.IsAskToExit());
}

#if !defined(__SANITIZE_ADDRESS__)  // which needs address space of its own at any time
// The kernel refuses the stack: no more address space.
TEST(CThreadTest, WithoutMemoryForTheStackRunReturnsFalse) {
    Worker worker;
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    rlimit none = before;
    none.rlim_cur = 1;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
    const bool ran = worker.thread.Run(0x40000000);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_FALSE(ran);
    EXPECT_FALSE(worker.thread.IsRun());
    EXPECT_TRUE(worker.RunAndWait());
}
#endif

TEST(CThreadTest, AThreadRunsAndJoinsManyTimes) {
    Worker worker;
    const int threads = kpl::test::ThreadCount();
    for (int i = 1; i <= 100; ++i) {
        ASSERT_TRUE(worker.RunAndWait());
        worker.thread.Exit(true);
        ASSERT_EQ(worker.ends, i);
    }
    EXPECT_EQ(kpl::test::SettledThreadCount(threads), threads);
}

}  // namespace
