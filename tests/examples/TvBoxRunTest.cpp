// The one command that starts the box.
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "tests/examples/FileHttpPrograms.h"
#include "tests/examples/TvBoxPrograms.h"

namespace {

using kpl::test::HttpAnswer;
using kpl::test::HttpClient;
using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::SourcePath;
using kpl::test::TempDir;
using kpl::test::WaitUntil;

const std::vector<std::string> kPrograms = {"guide_server", "tv_box_web"};

std::string ReadFile(const std::string& path) {
    std::string text;
    for (const std::string& line : kpl::test::LinesOfFile(path)) {
        text += line;
    }
    return text;
}

bool IsRunning(pid_t pid) {
    const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t nameEnd = stat.rfind(')');
    return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") Z") != 0;
}

class TvBoxRunTest : public testing::Test {
protected:
    using Arguments = std::vector<std::string>;
    using Json = nlohmann::json;

    static Arguments Join(Arguments first, const Arguments& second) {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    // The command, with a directory of its own for what it makes.
    Arguments Command(const Arguments& arguments) const {
        return Join({"TMPDIR=" + m_temporary.Path(), "KPL_EMULATOR=" KPL_EMULATOR,
                     SourcePath("examples/tv_box/run")},
                    arguments);
    }

    ProgramResult RunToEnd(const Arguments& arguments) const {
        return RunProgram("/usr/bin/env", Command(arguments));
    }

    void Start(const Arguments& more = {}) {
        const Arguments common = {"--bin",     KPL_BIN_DIR, "--port",  "0",
                                  "--timeout", "20000",     "--start", "2026-03-14 20:30"};
        m_run = std::make_unique<Program>("/usr/bin/env", Command(Join(common, more)));
        ASSERT_TRUE(m_run->WaitForOutput("(Ctrl-C ends it)\n", 60000)) << m_run->Errors();
        const std::string output = m_run->Output();
        m_port = kpl::test::PortIn(output.substr(output.find("tv_box: open ")));
        ASSERT_GT(m_port, 0);
        ASSERT_TRUE(WaitForOnline());
    }

    // The processes that belong to the box, by their programs' names.
    std::map<std::string, pid_t> Children() const {
        std::map<std::string, pid_t> children;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            const pid_t pid = atoi(entry.path().filename().c_str());
            const std::string stat = pid > 0 ? ReadFile(entry.path().string() + "/stat") : "";
            // "12 (name) S 11": the parent stands behind the state.
            const size_t end = stat.rfind(')');
            if (end == std::string::npos || atoi(stat.c_str() + end + 4) != m_run->Pid()) {
                continue;
            }
            const std::string command = ReadFile(entry.path().string() + "/cmdline");
            for (const std::string& name : kPrograms) {
                if (command.find("/" + name + '\0') != std::string::npos) {
                    children[name] = pid;
                }
            }
        }
        return children;
    }

    bool WaitForOnline() const {
        return WaitUntil(
            [&] {
                const HttpAnswer answer = HttpClient(m_port).Fetch("/api/state");
                return answer.status == 200 && Json::parse(answer.body)["guide"] == "online";
            },
            30000);
    }

    // The end of all of it, without a trace.
    void ExpectCleanEnd(int signal) {
        const auto children = Children();
        EXPECT_EQ(2u, children.size());
        m_run->Kill(signal);
        EXPECT_EQ(0, m_run->Wait()) << m_run->Errors();
        for (const auto& [name, pid] : children) {
            EXPECT_FALSE(IsRunning(pid)) << name;
        }
        EXPECT_EQ(Arguments{}, m_temporary.Entries());
        EXPECT_FALSE(HttpClient(m_port).IsConnected());
    }

    TempDir m_temporary;
    std::unique_ptr<Program> m_run;
    int m_port = 0;
};

TEST_F(TvBoxRunTest, CtrlCEndsAllOfItCleanly) {
    Start();
    EXPECT_EQ(0u, m_run->Output().find("tv_box: 8 channels, 414 programmes from "));
    ExpectCleanEnd(SIGINT);
    EXPECT_EQ("", m_run->Errors());
}

TEST_F(TvBoxRunTest, SoDoesSigtermWhileAPageWaits) {
    Start();
    const std::string state = HttpClient(m_port).Fetch("/api/state").body;
    HttpClient waiting(m_port);
    ASSERT_TRUE(waiting.Send(
        HttpClient::Get("/api/wait?version=" + std::string(Json::parse(state)["version"]))));
    ExpectCleanEnd(SIGTERM);
}

TEST_F(TvBoxRunTest, AProgramThatIsKilledIsStartedAgain) {
    Start();
    for (const std::string& name : kPrograms) {
        const pid_t killed = Children()[name];
        ASSERT_GT(killed, 0);
        kill(killed, SIGKILL);
        EXPECT_TRUE(m_run->WaitForOutput(
            "tv_box: " + name + " has ended (status 137) and is started again\ntv_box: " + name +
            " runs again\n"));
        EXPECT_NE(killed, Children()[name]);
        EXPECT_TRUE(WaitForOnline()) << "at the same address";
    }
    ExpectCleanEnd(SIGINT);
}

TEST_F(TvBoxRunTest, WhenTheCommandItselfIsKilledItsProgramsEnd) {
    if (system("command -v setpriv >/dev/null") != 0) {
        GTEST_SKIP() << "there is no setpriv";
    }
    Start();
    const auto children = Children();
    ASSERT_EQ(2u, children.size());
    m_run->Kill(SIGKILL);
    for (const auto& [name, pid] : children) {
        EXPECT_TRUE(WaitUntil([process = pid] { return !IsRunning(process); }, 30000)) << name;
    }
}

TEST_F(TvBoxRunTest, LogsAreInAFolderForEachProgram) {
    const TempDir logs;
    Start({"--logs", logs.Path()});
    EXPECT_EQ((Arguments{"guide_fetch", "guide_server", "tv_box_web"}), logs.Entries());
    for (const std::string& name : logs.Entries()) {
        EXPECT_TRUE(std::filesystem::exists(logs.Path() + "/" + name + "/LogTools0.txt")) << name;
    }
    ExpectCleanEnd(SIGINT);
}

TEST_F(TvBoxRunTest, WhatCannotBeStartedIsSaidAndNothingIsLeft) {
    Start();
    const std::string port = std::to_string(m_port);
    const ProgramResult taken = RunToEnd({"--bin", KPL_BIN_DIR, "--port", port});
    EXPECT_EQ(1, taken.code);
    EXPECT_NE(std::string::npos, taken.errors.find("tv_box_web: cannot have port " + port + "\n"));
    EXPECT_NE(std::string::npos, taken.errors.find("tv_box: tv_box_web does not start\n"));
    EXPECT_EQ(1u, m_temporary.Entries().size()) << "the first one's";
    ExpectCleanEnd(SIGINT);
}

TEST_F(TvBoxRunTest, CalledTheWrongWayItSaysHow) {
    ProgramResult result = RunToEnd({"--prot", "1"});
    EXPECT_EQ(2, result.code);
    EXPECT_EQ("tv_box: unknown option '--prot' (--help lists them)\n", result.errors);
    result = RunToEnd({"--port"});
    EXPECT_EQ(2, result.code);
    EXPECT_EQ("tv_box: option '--port' needs a value\n", result.errors);
    result = RunToEnd({"--bin", m_temporary.Path()});
    EXPECT_EQ(1, result.code);
    EXPECT_EQ("tv_box: there is no guide_fetch in " + m_temporary.Path() + "\n", result.errors);
    EXPECT_EQ(0u, RunToEnd({"--help"}).output.find("usage: run"));
    EXPECT_EQ(Arguments{}, m_temporary.Entries());
}

#ifdef KPL_JAVA_CLASSES

// The whole way: a file by HTTP to Java, to the guide server, by RPC to the front, by HTTP again.
TEST_F(TvBoxRunTest, AGuideAtAnAddressIsFetchedByJava) {
    Program files("file_http_server", {SourcePath("examples/data"), "0"});
    ASSERT_TRUE(files.WaitForOutput("/\n"));
    const std::string address =
        "http://127.0.0.1:" + std::to_string(kpl::test::PortIn(files.Output())) + "/guide.tsv";
    Start({"--guide", address, "--java", KPL_JAVA_CLASSES});
    const Json state = Json::parse(HttpClient(m_port).Fetch("/api/state").body);
    EXPECT_EQ(address, state["source"]);
    EXPECT_EQ(8u, state["channels"].size());
    ExpectCleanEnd(SIGINT);
}

// The machine starts there too, and finds no class.
TEST_F(TvBoxRunTest, WithoutTheClassAGuideAtAnAddressIsReplacedByTheFile) {
    Start({"--guide", "http://127.0.0.1:9/guide.tsv", "--java", m_temporary.Path()});
    const Json state = Json::parse(HttpClient(m_port).Fetch("/api/state").body);
    EXPECT_NE(std::string::npos, std::string(state["source"]).find("examples/data/guide.tsv"));
    EXPECT_NE(std::string::npos, m_run->Errors().find("guide_fetch: http://127.0.0.1:9/guide.tsv"));
    ExpectCleanEnd(SIGINT);
}

#endif  // KPL_JAVA_CLASSES

}  // namespace
