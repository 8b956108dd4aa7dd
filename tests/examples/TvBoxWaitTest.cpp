// Requests that wait for the next change.
#include <filesystem>

#include "tests/examples/TvBoxPrograms.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::test::HttpAnswer;
using kpl::test::HttpClient;
using kpl::test::kCeilingMs;
using kpl::test::Stopwatch;
using kpl::test::WaitUntil;

class TvBoxWaitTest : public kpl::test::TvBoxTest {
protected:
    Json ReadState(HttpClient* client) {
        const HttpAnswer answer = client->Read();
        EXPECT_EQ(200, answer.status);
        EXPECT_TRUE(answer.HasField("Content-Type: application/json"));
        return Json::parse(answer.body, nullptr, false);
    }

    // Clients that wait for a change, each having been taken by the server.
    std::vector<HttpClient> StartWaits(int count, const std::string& target) const {
        std::vector<HttpClient> clients;
        for (int i = 0; i < count; ++i) {
            clients.emplace_back(m_port);
            // The answer to the first request shows that the second one is next.
            EXPECT_TRUE(clients.back().Send(HttpClient::Get("/api/state")));
            EXPECT_EQ(200, clients.back().Read().status);
            EXPECT_TRUE(clients.back().Send(HttpClient::Get(target)));
        }
        return clients;
    }

    size_t DescriptorCount() const {
        const auto entries =
            std::filesystem::directory_iterator("/proc/" + std::to_string(m_web->Pid()) + "/fd");
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }
};

TEST_F(TvBoxWaitTest, AnotherVersionIsAnsweredAtOnce) {
    StartBoth();
    const Stopwatch watch;
    for (const std::string version : {"", "1-1", "%00", "nonsense"}) {
        HttpClient client(m_port);
        ASSERT_TRUE(client.Send(HttpClient::Get(WaitTarget(version, 60))));
        EXPECT_EQ("online", ReadState(&client)["guide"]);
        EXPECT_TRUE(client.IsEnded());
    }
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST_F(TvBoxWaitTest, TheSameVersionIsAnsweredWhenTheTimeIsOver) {
    StartWeb();  // without a guide server nothing changes
    const std::string version = Version();
    HttpClient client(m_port);
    const Stopwatch watch;
    ASSERT_TRUE(client.Send(HttpClient::Get(WaitTarget(version, 1))));
    const Json state = ReadState(&client);
    EXPECT_GE(watch.ElapsedMs(), 1000);
    EXPECT_LT(watch.ElapsedMs(), 1000 + kCeilingMs);
    EXPECT_EQ(version, state["version"]);
    EXPECT_TRUE(client.IsEnded());
}

// A second of ours is a minute of the guide.
TEST_F(TvBoxWaitTest, AChangeIsAnsweredWhenItComes) {
    StartBoth({"--speed", "60"});
    std::string version = Version();
    for (int i = 0; i < 3; ++i) {
        HttpClient client(m_port);
        ASSERT_TRUE(client.Send(HttpClient::Get(WaitTarget(version, 60))));
        const Stopwatch watch;
        const Json state = ReadState(&client);
        EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
        EXPECT_NE(version, state["version"]);
        version = state["version"];
    }
}

// Fewer connections than one server thread has room for, so that it is the same one that serves the
// others. Their waits last longer than the test may.
TEST_F(TvBoxWaitTest, OthersAreServedMeanwhile) {
    StartBoth({}, {"--source", "here"});
    const std::vector<HttpClient> waiting = StartWaits(24, WaitTarget(Version(), 60));
    const Stopwatch watch;
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ("here", State()["source"]);
    }
    HttpClient page(m_port);
    EXPECT_EQ(200, page.Fetch("/").status);
    EXPECT_LT(watch.ElapsedMs(), 2 * kCeilingMs);
}

TEST_F(TvBoxWaitTest, ManyWaitsAreAllAnswered) {
    StartBoth({"--speed", "10"});  // a change every six seconds
    std::vector<HttpClient> waiting = StartWaits(100, WaitTarget(Version(), 60));
    for (HttpClient& client : waiting) {
        EXPECT_EQ("online", ReadState(&client)["guide"]);
        EXPECT_TRUE(client.IsEnded());
    }
}

// The one behind it would have an answer at once.
TEST_F(TvBoxWaitTest, RequestsBeforeAWaitAreAnsweredAndThoseBehindItAreNot) {
    StartWeb();  // without a guide server nothing changes
    HttpClient client(m_port);
    const std::string version = Version();
    const Stopwatch watch;
    ASSERT_TRUE(client.Send(HttpClient::Get("/api/state") + HttpClient::Get("/none") +
                            HttpClient::Get(WaitTarget(version, 1)) +
                            HttpClient::Get(WaitTarget("another", 60))));
    EXPECT_EQ(version, ReadState(&client)["version"]);
    EXPECT_EQ(404, client.Read().status);
    ASSERT_TRUE(client.Send(HttpClient::Get("/api/state")));
    const HttpAnswer answer = client.Read();
    EXPECT_GE(watch.ElapsedMs(), 1000);
    EXPECT_EQ(200, answer.status);
    EXPECT_TRUE(answer.HasField("Connection: close"));
    EXPECT_TRUE(client.IsEnded());
}

TEST_F(TvBoxWaitTest, ClientsThatGoWhileTheyWaitLeaveNothing) {
    StartBoth({"--speed", "60"});
    const size_t before = DescriptorCount();
    for (int i = 0; i < 5; ++i) {
        StartWaits(20, WaitTarget(Version(), 60));
    }
    EXPECT_TRUE(WaitUntil([&] { return DescriptorCount() <= before; }, 30000));
    const std::string version = Version();
    EXPECT_TRUE(WaitForState([&](const Json& state) { return state["version"] != version; }));
}

TEST_F(TvBoxWaitTest, AnOddTimeIsRefused) {
    StartBoth();
    HttpClient client(m_port);
    for (const char* seconds : {"0", "61", "-1", "1.5", "x", "", "99999999999999999999"}) {
        EXPECT_EQ(400, client.Fetch("/api/wait?seconds=" + std::string(seconds)).status) << seconds;
    }
    EXPECT_EQ(200, client.Fetch("/api/state").status);
}

TEST_F(TvBoxWaitTest, AskedForTheHeadItDoesNotWait) {
    StartBoth();
    HttpClient client(m_port);
    const Stopwatch watch;
    ASSERT_TRUE(client.Send("HEAD " + WaitTarget(Version(), 60) + " HTTP/1.1\r\nHost: h\r\n\r\n"));
    EXPECT_EQ(200, client.Read(true).status);
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
}

TEST_F(TvBoxWaitTest, AStopDoesNotWaitForThem) {
    StartWeb();  // without a guide server nothing changes
    std::vector<HttpClient> waiting = StartWaits(40, WaitTarget(Version(), 60));
    const Stopwatch watch;
    StopWeb();
    EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
    for (HttpClient& client : waiting) {
        EXPECT_EQ(0, client.Read().status);
    }
}

}  // namespace
