#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "tests/examples/GuidePrograms.h"

namespace {

using kpl::test::GuideRows;
using kpl::test::Lines;
using kpl::test::ProgramResult;
using kpl::test::SourcePath;

const std::string kShipped = SourcePath("examples/data/guide.tsv");

constexpr char kSmallGuide[] =
    "Cinéma\t2026-03-14 19:00\t120\tFilm\t12\tLa Dame\tUne inconnue.\n"
    "Cinéma\t2026-03-14 21:00\t30\t\t0\tBobines\t\n"
    "月見台\t2026-03-14 19:30\t60\tTravel\t0\t川を渡る\t渡し船。\n"
    "月見台\t2026-03-14 20:30\t45\tDrama\t6\t時計店\t\n"
    "Берег\t2026-03-14 20:45\t100\tFilm\t16\tПоследний паром\tНочь и туман.\n";

class GuideClientTest : public kpl::test::GuideProgramsTest {
protected:
    void StartSmallServer() {
        StartServer(WriteGuide(kSmallGuide), {"--start", "2026-03-14 20:00"});
    }

    void ExpectOutput(const Arguments& words, const std::string& output) const {
        const ProgramResult result = RunClient(words);
        EXPECT_EQ(0, result.code);
        EXPECT_EQ(output, result.output);
        EXPECT_EQ("", result.errors);
    }

    void ExpectFailure(const Arguments& words, int code, const std::string& line) const {
        const ProgramResult result = RunClient(words);
        EXPECT_EQ(code, result.code);
        EXPECT_EQ("guide_client: " + line + "\n", result.errors);
        EXPECT_EQ("", result.output);
    }
};

TEST_F(GuideClientTest, AnUnknownOptionIsOneLineAndStatusTwo) {
    ExpectFailure({"--port", "1", "now"}, 2, "unknown option '--port' (--help lists them)");
}

TEST_F(GuideClientTest, AnUnknownCommandIsOneLineAndStatusTwo) {
    ExpectFailure({"record"}, 2, "unknown command 'record' (--help lists them)");
}

TEST_F(GuideClientTest, AMissingArgumentIsOneLineAndStatusTwo) {
    ExpectFailure({"find"}, 2, "'find' needs an argument (--help says which)");
    ExpectFailure({"day"}, 2, "'day' needs an argument (--help says which)");
    ExpectFailure({"follow"}, 2, "'follow' needs an argument (--help says which)");
}

TEST_F(GuideClientTest, ASurplusArgumentIsOneLineAndStatusTwo) {
    ExpectFailure({"now", "then"}, 2, "unexpected argument 'then'");
    ExpectFailure({"find", "a", "b"}, 2, "unexpected argument 'b'");
}

TEST_F(GuideClientTest, AWrongArgumentIsOneLineAndStatusTwo) {
    ExpectFailure({"follow", "0"}, 2, "'0' is no number of seconds (1 to 86400)");
    ExpectFailure({"follow", "3s"}, 2, "'3s' is no number of seconds (1 to 86400)");
    ExpectFailure({"day", "1", "today"}, 2, "'today' is no date (YYYY-MM-DD)");
    ExpectFailure({"--timeout", "0", "now"}, 2, "'0' is no time-out (1 to 600000 milliseconds)");
}

TEST_F(GuideClientTest, WithoutAServerItIsOneLineAndStatusOne) {
    ExpectFailure({"--timeout", "500", "now"}, 1,
                  "no server 'ProgrammeGuide' in '" + m_root.Path() + "' answers within 500 ms");
}

TEST_F(GuideClientTest, AFifoThatADeadServerLeftIsNoServer) {
    ASSERT_EQ(0, mkfifo((m_root.Path() + "/ProgrammeGuideRoot").c_str(), 0600));
    ExpectFailure({"--timeout", "500", "now"}, 1,
                  "no server 'ProgrammeGuide' in '" + m_root.Path() + "' answers within 500 ms");
}

TEST_F(GuideClientTest, AServerThatDoesNotAnswerIsGivenUpAfterTheTimeOut) {
    const std::string root = m_root.Path() + "/SilentRoot";
    ASSERT_EQ(0, mkfifo(root.c_str(), 0600));
    const int silent = open(root.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(-1, silent);
    const auto before = std::chrono::steady_clock::now();
    ExpectFailure({"--name", "Silent", "--timeout", "300", "now"}, 1,
                  "no server 'Silent' in '" + m_root.Path() + "' answers within 300 ms");
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_GE(took, std::chrono::milliseconds(300));
    EXPECT_LT(took, std::chrono::seconds(20));
    close(silent);
}

TEST_F(GuideClientTest, HelpIsPrintedWithoutAServer) {
    const ProgramResult result = RunClient({"--help"});
    EXPECT_EQ(0, result.code);
    EXPECT_EQ(0u, result.output.find("usage: guide_client")) << result.output;
    EXPECT_EQ("", result.errors);
}

TEST_F(GuideClientTest, NowShowsATable) {
    StartSmallServer();
    ExpectOutput({"now"},
                 "On now: Saturday, 14 March 2026, 20:00\n"
                 "\n"
                 "No  Channel  On now    Age  Time         So far    Next\n"
                 "──  ───────  ────────  ───  ───────────  ────────  ────────────────────\n"
                 " 1  Cinéma   La Dame   12+  19:00–21:00  ████░░░░  21:00 Bobines\n"
                 " 2  月見台   川を渡る       19:30–20:30  ████░░░░  20:30 時計店\n"
                 " 3  Берег    –                                     20:45 Последний пар…\n");
    StopServer();
}

TEST_F(GuideClientTest, ChannelsShowsTheirNumbers) {
    StartSmallServer();
    ExpectOutput({"channels"},
                 "No  Channel\n"
                 "──  ───────\n"
                 " 1  Cinéma\n"
                 " 2  月見台\n"
                 " 3  Берег\n");
    StopServer();
}

TEST_F(GuideClientTest, FindLooksIntoDescriptionsToo) {
    StartSmallServer();
    ExpectOutput({"find", "НОЧЬ"},
                 "Programmes with \"НОЧЬ\": 1\n"
                 "\n"
                 "Start      Channel  Age  Genre  Programme\n"
                 "─────────  ───────  ───  ─────  ───────────────\n"
                 "Sat 20:45  Берег    16+  Film   Последний паром\n");
    ExpectOutput({"find", "nothing"}, "Programmes with \"nothing\": 0\n");
    StopServer();
}

TEST_F(GuideClientTest, FindSaysHowManyDidNotFitIntoOneCommand) {
    StartServer(kShipped, {});
    const ProgramResult result = RunClient({"find", ""});
    const auto lines = Lines(result.output);
    const size_t count = GuideRows(kShipped).size();
    ASSERT_GT(lines.size(), 100u);
    EXPECT_EQ("Programmes with \"\": " + std::to_string(count), lines.front());
    const size_t shown = lines.size() - 5;  // without the heads, and the last line
    EXPECT_EQ("… and " + std::to_string(count - shown) + " more", lines.back());
    StopServer();
}

TEST_F(GuideClientTest, DayTakesAChannelByNumberOrPartOfItsName) {
    StartSmallServer();
    const std::string expected =
        "月見台 from 00:00 on Saturday, 14 March 2026: 2 programmes\n"
        "\n"
        "Time         Age  Genre   Programme  What it is about\n"
        "───────────  ───  ──────  ─────────  ────────────────\n"
        "19:30–20:30       Travel  川を渡る   渡し船。\n"
        "20:30–21:15   6+  Drama   時計店\n";
    ExpectOutput({"day", "2", "2026-03-14"}, expected);
    ExpectOutput({"day", "見台", "2026-03-14"}, expected);
    ExpectOutput({"day", "берег", "2026-03-15"},
                 "Берег from 00:00 on Sunday, 15 March 2026: 0 programmes\n");
    StopServer();
}

TEST_F(GuideClientTest, DayWithoutADateIsTheNextTwentyFourHours) {
    StartSmallServer();
    const ProgramResult result = RunClient({"day", "1"});
    EXPECT_EQ("Cinéma from 20:00 on Saturday, 14 March 2026: 1 programmes",
              Lines(result.output).front());
    StopServer();
}

TEST_F(GuideClientTest, AnUnknownChannelIsOneLineAndStatusOne) {
    StartSmallServer();
    ExpectFailure({"day", "99"}, 1, "there is no channel '99'");
    ExpectFailure({"day", "Canal"}, 1, "there is no channel 'Canal'");
    StopServer();
}

// Far more than the 16384 bytes of one command.
TEST_F(GuideClientTest, DayAsksOnUntilItHasAllProgrammes) {
    std::string guide;
    std::vector<std::string> titles;
    for (int minute = 0; minute < 1440; ++minute) {
        char line[200];
        titles.push_back("Minute " + std::to_string(minute));
        snprintf(line, sizeof(line), "Busy\t2026-03-14 %02d:%02d\t1\tNews\t0\t%s\t%s\n",
                 minute / 60, minute % 60, titles.back().c_str(), std::string(80, 'd').c_str());
        guide += line;
    }
    StartServer(WriteGuide(guide), {});
    const auto lines = Lines(RunClient({"day", "1", "2026-03-14"}).output);
    ASSERT_EQ(4 + titles.size(), lines.size());
    EXPECT_EQ("Busy from 00:00 on Saturday, 14 March 2026: 1440 programmes", lines[0]);
    for (size_t i = 0; i < titles.size(); ++i) {
        EXPECT_NE(std::string::npos, lines[4 + i].find(" " + titles[i] + " ")) << lines[4 + i];
    }
    StopServer();
}

TEST_F(GuideClientTest, EveryProgrammeOfTheShippedGuideIsServed) {
    std::map<std::string, std::vector<std::string>> starts;  // by channel and date
    for (const auto& row : GuideRows(kShipped)) {
        starts[row[0] + "\t" + row[1].substr(0, 10)].push_back(row[1].substr(11));
    }
    StartServer(kShipped, {});
    for (const auto& [key, times] : starts) {
        const size_t tab = key.find('\t');
        const auto lines =
            Lines(RunClient({"day", key.substr(0, tab), key.substr(tab + 1)}).output);
        ASSERT_EQ(4 + times.size(), lines.size()) << key;
        for (size_t i = 0; i < times.size(); ++i) {
            EXPECT_EQ(times[i], lines[4 + i].substr(0, 5)) << key;
        }
    }
    StopServer();
}

// The time in a line that `follow` shows.
std::string TimeOf(const std::string& line) {
    return line.substr(0, 5);
}

TEST_F(GuideClientTest, FollowShowsEveryStartInItsOrder) {
    auto rows = GuideRows(kShipped);
    std::stable_sort(rows.begin(), rows.end(),
                     [](const auto& a, const auto& b) { return a[1] < b[1]; });
    StartServer(kShipped, {"--start", "2026-03-14 18:00", "--speed", "1200"});
    const auto lines = Lines(RunClient({"follow", "2"}).output);
    ASSERT_GT(lines.size(), 4u);
    EXPECT_EQ("What starts in the next 2 s", lines[0]);
    // The first row that it can be; a few starts may have passed before it followed.
    auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& candidate) {
        return candidate[1] > "2026-03-14 18:00" && TimeOf(lines[2]) == candidate[1].substr(11) &&
               lines[2].find(candidate[0] + "  ") != std::string::npos;
    });
    for (size_t i = 2; i < lines.size(); ++i, ++row) {
        ASSERT_NE(rows.end(), row);
        EXPECT_EQ((*row)[1].substr(11), TimeOf(lines[i]));
        EXPECT_NE(std::string::npos, lines[i].find("  " + (*row)[5])) << lines[i];
    }
    StopServer();
}

TEST_F(GuideClientTest, WithoutACommandItShowsATourOfAll) {
    StartServer(kShipped, {"--start", "2026-03-14 20:00", "--speed", "600"});
    const ProgramResult result = RunClient({});
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("", result.errors);
    for (const char* text : {"On now: Saturday", "Programmes with \"harbour\"", "Северный перегон",
                             "月見台テレビ from", "What starts in the next 3 s"}) {
        EXPECT_NE(std::string::npos, result.output.find(text)) << text;
    }
    StopServer();
}

TEST_F(GuideClientTest, TheLibrarysLogIsShownOnlyWhenAskedFor) {
    StartSmallServer();
    EXPECT_EQ("", RunClient({"channels"}).errors);
    const std::string log = RunClient({"--verbose", "channels"}).errors;
    EXPECT_NE(std::string::npos, log.find("KPL: RpcClient::Connect(): Done...\n")) << log;
    StopServer();
}

}  // namespace
