// Many connections at once. A lighter load under the sanitizers, which make everything slower.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/examples/FileHttpPrograms.h"

namespace {

using kpl::test::FileHttpProgramTest;
using kpl::test::HttpAnswer;
using kpl::test::HttpClient;

#ifdef KPL_LIGHT_LOAD
constexpr int kKept = 128;
constexpr int kRounds = 20;
constexpr int kShort = 200;
constexpr int kStalled = 50;
constexpr int kServed = 20;
#else
constexpr int kKept = 512;
constexpr int kRounds = 100;
constexpr int kShort = 2000;
constexpr int kStalled = 200;
constexpr int kServed = 50;
#endif
constexpr int kFiles = 16;
constexpr int kThreads = 4;

class FileHttpLoadTest : public FileHttpProgramTest {
protected:
    FileHttpLoadTest() {
        for (int i = 0; i < kFiles; ++i) {
            Write(Target(i).substr(1), Content(i));
        }
        Start();
    }

    static std::string Target(int i) { return "/file" + std::to_string(i % kFiles); }

    // A different length for each, from 10 bytes to 30,000.
    static std::string Content(int i) {
        const int file = i % kFiles;
        return std::string(static_cast<size_t>(10 + file * 2000), static_cast<char>('a' + file));
    }

    bool IsRight(const HttpAnswer& answer, int i) {
        const bool isRight = answer.status == 200 && answer.body == Content(i);
        m_right += isRight ? 1 : 0;
        return isRight;
    }

    // Runs `work` with numbers from 0 on, one thread each.
    void InThreads(const std::function<void(int)>& work) {
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(work, i);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    std::vector<HttpClient> Connect(int count) const {
        std::vector<HttpClient> clients;
        for (int i = 0; i < count; ++i) {
            clients.emplace_back(m_port);
            EXPECT_TRUE(clients.back().IsConnected());
        }
        return clients;
    }

    // Every client asks, before any answer is read.
    void AskAll(std::vector<HttpClient>* clients, int round) {
        for (size_t i = 0; i < clients->size(); ++i) {
            EXPECT_TRUE((*clients)[i].Send(HttpClient::Get(Target(static_cast<int>(i) + round))));
        }
        for (size_t i = 0; i < clients->size(); ++i) {
            EXPECT_TRUE(IsRight((*clients)[i].Read(), static_cast<int>(i) + round));
        }
    }

    std::atomic<int> m_right{0};
};

TEST_F(FileHttpLoadTest, KeptConnectionsGetEveryAnswer) {
    InThreads([&](int) {
        std::vector<HttpClient> clients = Connect(kKept / kThreads);
        for (int round = 0; round < kRounds && !HasFailure(); ++round) {
            AskAll(&clients, round);
        }
    });
    EXPECT_EQ(kKept * kRounds, m_right);
}

TEST_F(FileHttpLoadTest, ConnectionsWithOneRequestEachAreAllServed) {
    InThreads([&](int thread) {
        for (int i = thread; i < kShort && !HasFailure(); i += kThreads) {
            HttpClient client(m_port);
            ASSERT_TRUE(client.Send(HttpClient::HalfGet(Target(i)) + "Connection: close\r\n\r\n"));
            EXPECT_TRUE(IsRight(client.Read(), i));
            EXPECT_TRUE(client.IsEnded());
        }
    });
    EXPECT_EQ(kShort, m_right);
}

TEST_F(FileHttpLoadTest, ConnectionsThatStallInTheMiddleDoNotDisturbOthers) {
    std::vector<HttpClient> stalled = Connect(kStalled);
    for (size_t i = 0; i < stalled.size(); ++i) {
        const std::string half = HttpClient::HalfGet(Target(static_cast<int>(i)));
        ASSERT_TRUE(stalled[i].Send(half.substr(0, 1 + i % half.size())));
    }
    std::vector<HttpClient> served = Connect(kServed);
    for (int round = 0; round < 20; ++round) {
        AskAll(&served, round);
    }
    EXPECT_EQ(kServed * 20, m_right);
    // They have only been waiting.
    for (size_t i = 0; i < stalled.size(); ++i) {
        const std::string whole = HttpClient::Get(Target(static_cast<int>(i)));
        ASSERT_TRUE(stalled[i].Send(whole.substr(1 + i % (whole.size() - 2))));
        EXPECT_TRUE(IsRight(stalled[i].Read(), static_cast<int>(i)));
    }
    EXPECT_EQ(kServed * 20 + kStalled, m_right);
}

}  // namespace
