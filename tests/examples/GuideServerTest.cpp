#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "tests/examples/GuidePrograms.h"

namespace {

using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::SourcePath;
using kpl::test::WaitUntil;

constexpr char kTwoLines[] =
    "One\t2026-03-14 20:00\t60\tFilm\t12\tTitle\tText\n"
    "One\t2026-03-14 21:00\t60\tFilm\t12\tOther\tText\n";

class GuideServerTest : public kpl::test::GuideProgramsTest {
protected:
    void ExpectFailure(const Arguments& arguments, int code, const std::string& line) const {
        const ProgramResult result = RunProgram("guide_server", arguments);
        EXPECT_EQ(code, result.code);
        EXPECT_EQ("guide_server: " + line + "\n", result.errors);
        EXPECT_EQ("", result.output);
        EXPECT_TRUE(m_root.Entries().empty());
    }

    // The same, with a good guide and the pipe root.
    void ExpectFailureWith(const Arguments& more, int code, const std::string& line) const {
        ExpectFailure(Join({"--guide", WriteGuide(kTwoLines), "--root", m_root.Path()}, more), code,
                      line);
    }
};

TEST_F(GuideServerTest, AnUnknownOptionIsOneLineAndStatusTwo) {
    ExpectFailureWith({"--port", "1"}, 2, "unknown option '--port' (--help lists them)");
}

TEST_F(GuideServerTest, AnOptionWithoutItsValueIsOneLineAndStatusTwo) {
    ExpectFailureWith({"--name"}, 2, "option '--name' needs a value");
}

TEST_F(GuideServerTest, AnArgumentThatIsNoOptionIsOneLineAndStatusTwo) {
    ExpectFailureWith({"now"}, 2, "unexpected argument 'now'");
}

TEST_F(GuideServerTest, WithoutAGuideItIsOneLineAndStatusTwo) {
    ExpectFailure({"--root", m_root.Path()}, 2, "no guide file given (--guide FILE)");
}

TEST_F(GuideServerTest, ASpeedOutOfRangeIsOneLineAndStatusTwo) {
    for (const std::string speed : {"0", "100001", "fast", ""}) {
        ExpectFailureWith({"--speed", speed}, 2, "'" + speed + "' is no speed (1 to 100000)");
    }
}

TEST_F(GuideServerTest, AStartThatIsNoTimeIsOneLineAndStatusTwo) {
    ExpectFailureWith({"--start", "tomorrow"}, 2, "'tomorrow' is no time (YYYY-MM-DD HH:MM)");
}

TEST_F(GuideServerTest, AnUnreadableGuideIsOneLineAndStatusOne) {
    ExpectFailure({"--root", m_root.Path(), "--guide", "/no/such.tsv"}, 1,
                  "cannot read guide file '/no/such.tsv': No such file or directory");
}

TEST_F(GuideServerTest, AMalformedLineIsNamedByItsNumber) {
    const std::string guide =
        WriteGuide(std::string(kTwoLines) + "# comment\nThree\tcolumns\tonly\n");
    ExpectFailure({"--root", m_root.Path(), "--guide", guide}, 1,
                  guide + ":4: 7 columns expected, 3 found");
}

TEST_F(GuideServerTest, AMissingPipeRootIsOneLineAndStatusOne) {
    const std::string root = m_root.Path() + "/none";
    ExpectFailureWith({"--root", root}, 1, "pipe root '" + root + "' is no directory");
}

TEST_F(GuideServerTest, APipeRootThatIsAFileIsOneLineAndStatusOne) {
    const std::string file = WriteGuide(kTwoLines);
    ExpectFailure({"--guide", file, "--root", file}, 1, "pipe root '" + file + "' is no directory");
}

TEST_F(GuideServerTest, APipeRootWithoutRoomForFifosIsOneLineAndStatusOne) {
    ExpectFailureWith({"--root", "/proc"}, 1, "cannot make a FIFO in '/proc'");
}

TEST_F(GuideServerTest, ANameThatIsTooLongIsOneLineAndStatusOne) {
    const std::string name(300, 'n');
    const size_t length = m_root.Path().size() + 1 + 300 + sizeof("Server2147483647") - 1;
    ExpectFailureWith({"--name", name}, 1,
                      "the server's name is too long: its FIFO paths would take " +
                          std::to_string(length) + " characters of 255");
}

TEST_F(GuideServerTest, TheLongestNameIsServed) {
    const size_t room = 255 - m_root.Path().size() - sizeof("/Server2147483647") + 1;
    ExpectFailureWith({"--name", std::string(room + 1, 'n')}, 1,
                      "the server's name is too long: its FIFO paths would take 256 characters of "
                      "255");
    const std::string name(room, 'n');
    StartServer(WriteGuide(kTwoLines), {"--name", name});
    EXPECT_EQ(0, RunClient({"--name", name, "channels"}).code);
    StopServer();
}

TEST_F(GuideServerTest, ANameThatIsNoFileNameIsOneLineAndStatusOne) {
    ExpectFailureWith({"--name", ""}, 1, "'' is no server name");
    ExpectFailureWith({"--name", "a/b"}, 1, "'a/b' is no server name");
}

TEST_F(GuideServerTest, HelpIsPrintedAndNothingServed) {
    const ProgramResult result = RunProgram("guide_server", {"--help"});
    EXPECT_EQ(0, result.code);
    EXPECT_EQ(0u, result.output.find("usage: guide_server")) << result.output;
    EXPECT_EQ("", result.errors);
}

TEST_F(GuideServerTest, SaysInOneLineThatItIsReady) {
    StartServer(WriteGuide(kTwoLines), {"--start", "2026-03-14 20:30"});
    EXPECT_EQ(
        "guide_server: 'ProgrammeGuide' is ready: 1 channels, 2 programmes, "
        "Saturday, 14 March 2026, 20:30, speed 1\n",
        m_server->Output());
    StopServer();
}

TEST_F(GuideServerTest, BothStopSignalsEndItAndLeaveNoFifo) {
    for (const int signal : {SIGTERM, SIGINT}) {
        StartServer(WriteGuide(kTwoLines), {});
        EXPECT_EQ(0, RunClient({"channels"}).code);
        EXPECT_FALSE(m_root.Entries().empty());
        m_server->Kill(signal);
        EXPECT_EQ(0, m_server->Wait());
        EXPECT_EQ("", m_server->Errors());
        EXPECT_TRUE(m_root.Entries().empty());
    }
}

TEST_F(GuideServerTest, EndsWhileAClientFollows) {
    StartServer(SourcePath("examples/data/guide.tsv"), {"--speed", "1200"});
    const auto client = StartClient({"follow", "600"});
    ASSERT_TRUE(client->WaitForOutput(":"));
    StopServer();
    EXPECT_EQ(1, client->Wait());
    EXPECT_EQ("guide_client: the server has gone\n", client->Errors());
}

TEST_F(GuideServerTest, NoticesAKilledFollowerAndServesTheNextClient) {
    StartServer(SourcePath("examples/data/guide.tsv"), {"--speed", "1200"});
    const auto client = StartClient({"follow", "600"});
    ASSERT_TRUE(client->WaitForOutput(":"));
    client->Kill(SIGKILL);
    EXPECT_EQ(128 + SIGKILL, client->Wait());
    EXPECT_TRUE(m_server->WaitForOutput("follower 1 has gone"));
    EXPECT_EQ(0, RunClient({"now"}).code);
    EXPECT_TRUE(WaitUntil([&] {
        return m_root.Entries() == std::vector<std::string>{"ProgrammeGuideRoot"};
    })) << "the FIFOs of both connections go with them";
    StopServer();
}

// Ten hours of a programme a minute.
std::string BusyGuide() {
    std::string text;
    for (int minute = 0; minute < 600; ++minute) {
        char line[300];
        snprintf(line, sizeof(line), "Busy\t2026-03-14 %02d:%02d\t1\t\t0\tT\t%s\n", minute / 60,
                 minute % 60, std::string(200, 'd').c_str());
        text += line;
    }
    return text;
}

// A descriptor that only looks at what a FIFO holds.
int OpenToLook(const std::string& path) {
    return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

// The server then has callbacks in hand that the client does not take: it must not wait for it.
TEST_F(GuideServerTest, EndsSoonThoughAFollowerTakesNothing) {
    StartServer(WriteGuide(BusyGuide()), {"--speed", "60000"});
    const auto client = StartClient({"follow", "600"});
    ASSERT_TRUE(client->WaitForOutput(":"));
    client->Kill(SIGSTOP);
    std::string fifo;
    for (const std::string& entry : m_root.Entries()) {
        if (entry.find("Client") != std::string::npos) {
            fifo = m_root.Path() + "/" + entry;
        }
    }
    const int look = OpenToLook(fifo);
    ASSERT_NE(-1, look) << fifo;
    int held = 0;
    EXPECT_TRUE(WaitUntil([&] { return ioctl(look, FIONREAD, &held) == 0 && held > 60000; }))
        << held << " bytes wait";
    const auto before = std::chrono::steady_clock::now();
    StopServer();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(4))
        << "a write is given up after five";
    close(look);
    client->Kill(SIGKILL);
}

}  // namespace
