#include <signal.h>

#include <chrono>
#include <regex>

#include "tests/cli/Tool.h"

namespace {

using kpl::test::ProgramResult;

class PingTest : public kpl::test::ToolTest {};

const char kTimes[] = R"(min/p50/p99/max = \d+\.\d{3}/\d+\.\d{3}/\d+\.\d{3}/\d+\.\d{3} ms\n)";

void ExpectMatch(const std::string& pattern, const std::string& text) {
    EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << text;
}

TEST_F(PingTest, CountsAndMeasures) {
    const auto server = StartServer("Foo");
    const ProgramResult result = Run({"ping", "Foo", "-c", "3", "-i", "0", "--timeout", "20000"});
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("", result.errors);
    ExpectMatch(std::string(R"(answer 1: \d+\.\d{3} ms\nanswer 2: \d+\.\d{3} ms\n)"
                            R"(answer 3: \d+\.\d{3} ms\n--- Foo: 3 calls, 3 answers, 0% lost\n)") +
                    kTimes,
                result.output);
}

TEST_F(PingTest, WaitsTheInterval) {
    const auto server = StartServer("Foo");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(0, Run({"ping", "Foo", "-c", "3", "-i", "150", "--timeout", "20000"}).code);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(300));
}

TEST_F(PingTest, CtrlCEndsItWithTheStatistics) {
    const auto server = StartServer("Foo");
    const auto ping = Start({"ping", "Foo", "-i", "60000", "--timeout", "20000"});
    ASSERT_TRUE(ping->WaitForOutput("answer 1"));
    ping->Kill(SIGINT);
    EXPECT_EQ(0, ping->Wait());
    EXPECT_NE(std::string::npos,
              ping->Output().find("--- Foo: 1 calls, 1 answers, 0% lost\nmin/p50/p99/max = "));
}

TEST_F(PingTest, ABusyServerIsLoss) {
    const auto server = StartServer("Foo");
    const auto busy = Start({"call", "Foo", "Hang"});
    // Clients that begin in one millisecond would take the same id.
    ASSERT_TRUE(kpl::test::WaitUntil([&] { return m_root.Entries().size() == 3; }, 30000));
    ASSERT_TRUE(kpl::test::WaitUntil(
        [&] {
            const ProgramResult probe = Run({"ping", "Foo", "-c", "1", "--timeout", "200"});
            return probe.output.find("none") != std::string::npos;
        },
        30000));
    const ProgramResult result = Run({"ping", "Foo", "-c", "2", "-i", "0", "--timeout", "200"});
    EXPECT_EQ(4, result.code);
    EXPECT_EQ(
        "answer 1: none within 200 ms\nanswer 2: none within 200 ms\n"
        "--- Foo: 2 calls, 0 answers, 100% lost\n",
        result.output);
}

TEST_F(PingTest, AServerThatGoesEndsIt) {
    const auto server = StartServer("Foo");
    const auto ping = Start({"ping", "Foo", "-i", "10", "--timeout", "20000"});
    ASSERT_TRUE(ping->WaitForOutput("answer 2"));
    server->Kill(SIGKILL);
    EXPECT_EQ(5, ping->Wait());
    EXPECT_NE(std::string::npos, ping->Output().find("--- Foo: "));
}

TEST_F(PingTest, WithoutAServerItSaysWhereToLook) {
    Expect({"ping", "Foo"}, 3, "",
           "kpl-rpc: no server 'Foo' in " + m_root.Path() + "; `kpl-rpc list " + m_root.Path() +
               "` shows the ones there are\n");
}

TEST_F(PingTest, WhatIsNoNumberIsRefused) {
    Expect({"ping", "Foo", "-c", "0"}, 2, "",
           "kpl-rpc: '0' is no value for -c (1 to 2147483647); see `kpl-rpc help ping`\n");
    Expect({"ping", "Foo", "Bar"}, 2, "", "kpl-rpc: too many words; see `kpl-rpc help ping`\n");
}

}  // namespace
