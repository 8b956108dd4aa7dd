// Ending a connection while everything is in motion: the most dangerous moment of the client.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::rpc;

constexpr int kThreads = 8;
constexpr int kRounds = 2000;

// All threads and the test meet here at the begin and the end of a round.
class Barrier {
public:
    explicit Barrier(int count) : m_count(count) {}

    void Meet() {
        std::unique_lock<std::mutex> lock(m_mutex);
        const int round = m_round;
        if (++m_arrived == m_count) {
            m_arrived = 0;
            ++m_round;
            m_changed.notify_all();
            return;
        }
        m_changed.wait(lock, [&] { return m_round != round; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    const int m_count;
    int m_arrived = 0;
    int m_round = 0;
};

// The served functions. Watch answers with callbacks, at once and later from a thread of its own.
class Service {
public:
    Service() {
        m_table.Bind("Add", [](int a, int b) { return a + b; });
        m_table.Bind("Watch", [this](int value, RpcRemoteCallback callback) {
            callback(value);
            std::lock_guard<std::mutex> lock(m_mutex);
            m_watchers.emplace_back(callback, value);
            return value;
        });
        RpcExecutorManager::GetInstance()->RegisterExecutor(&m_table);
        m_publisher = std::thread([this] { Publish(); });
    }
    ~Service() {
        m_stop = true;
        m_publisher.join();
        RpcExecutorManager::GetInstance()->UnregisterExecutor(&m_table);
    }

private:
    void Publish() {
        while (!m_stop) {
            std::vector<std::pair<RpcRemoteCallback, int>> watchers;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                watchers.swap(m_watchers);
            }
            for (const auto& watcher : watchers) {
                watcher.first(watcher.second);
            }
            std::this_thread::yield();
        }
    }

    RpcFunctionTable m_table;
    std::mutex m_mutex;
    std::vector<std::pair<RpcRemoteCallback, int>> m_watchers;
    std::atomic<bool> m_stop{false};
    std::thread m_publisher;
};

struct Counts {
    std::atomic<int> calls{0};      // answered in this round
    std::atomic<int> callbacks{0};  // run in all rounds
    std::atomic<int> wrong{0};      // answers and callbacks with a foreign value
};

// One call of one of the kinds; false once the connection has ended.
bool CallOnce(RpcClient* client, int value, Counts* counts) {
    if (value % 7 == 0) {
        const auto heard = [counts, value](int got) {
            ++counts->callbacks;
            counts->wrong += got == value ? 0 : 1;
        };
        const std::optional<int> watched = Call<int>(*client, -1, "Watch", value, heard);
        counts->wrong += watched.value_or(value) == value ? 0 : 1;
        return watched.has_value();
    }
    const std::optional<int> sum = Call<int>(*client, value % 3 == 0 ? 25000 : -1, "Add", value, 5);
    counts->wrong += sum.value_or(value + 5) == value + 5 ? 0 : 1;
    return sum.has_value();
}

TEST(RpcStressTest, DisconnectAtAnyMomentOfEightCallingThreads) {
    const kpl::test::TempDir directory;
    const kpl::test::LogCapture quiet(kpl::test::LogCapture::Debug::Off);
    kpl::ipc::SetPipeRootPath(directory.c_str());
    const int descriptors = kpl::test::OpenDescriptorCount();
    {
        Service service;
        RpcServer server;
        ASSERT_TRUE(server.Start("Stress", nullptr));
        auto client = std::make_unique<RpcClient>();
        Counts counts;
        Barrier barrier(kThreads + 1);
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                int value = i;
                for (int round = 0; round < kRounds; ++round) {
                    barrier.Meet();
                    for (; CallOnce(client.get(), value, &counts); value += kThreads) {
                        ++counts.calls;
                    }
                    value += kThreads;
                    barrier.Meet();
                }
            });
        }
        std::minstd_rand random(20);
        int longest = 0;
        for (int round = 0; round < kRounds; ++round) {
            counts.calls = 0;
            ASSERT_TRUE(client->Connect("Stress", nullptr, 20000)) << "round " << round;
            barrier.Meet();
            const int target = static_cast<int>(random() % 60);
            EXPECT_TRUE(kpl::test::WaitUntil([&] { return counts.calls >= target; }));
            client->Disconnect();
            longest = std::max(longest, counts.calls.load());
            barrier.Meet();
            if (round % 50 == 49) {
                client = std::make_unique<RpcClient>();  // Waits for the callbacks that run.
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        client.reset();
        server.Stop();
        EXPECT_EQ(counts.wrong, 0);
        EXPECT_GT(counts.callbacks, 0);
        EXPECT_GT(longest, 0);
    }
    EXPECT_TRUE(directory.Entries().empty());
    EXPECT_EQ(kpl::test::OpenDescriptorCount(), descriptors);
    EXPECT_LE(kpl::test::SettledThreadCount(2), 2);  // TSan has one of its own.
}

// Connect and Disconnect from several threads at once: each Connect ends in one way or the other.
TEST(RpcStressTest, ConnectAndDisconnectFromSeveralThreads) {
    const kpl::test::TempDir directory;
    const kpl::test::LogCapture quiet(kpl::test::LogCapture::Debug::Off);
    kpl::ipc::SetPipeRootPath(directory.c_str());
    const int descriptors = kpl::test::OpenDescriptorCount();
    {
        Service service;
        RpcServer server;
        server.SetOpenTimeout(
            50);  // What a client that was cancelled after its announcement costs.
        ASSERT_TRUE(server.Start("Stress", nullptr));
        RpcClient client;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&client, i] {
                Counts counts;
                for (int n = 0; n < 200; ++n) {
                    (void)client.Connect("Stress", nullptr, 20000);
                    (void)CallOnce(&client, n, &counts);
                    if (i % 2 == 0) {
                        client.Disconnect();
                    }
                }
                EXPECT_EQ(counts.wrong, 0);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        client.Disconnect();
        server.Stop();
    }
    EXPECT_TRUE(directory.Entries().empty());
    EXPECT_EQ(kpl::test::OpenDescriptorCount(), descriptors);
}

}  // namespace
