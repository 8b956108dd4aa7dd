// The web front and the guide server behind it.
#include <algorithm>
#include <regex>

#include "tests/examples/TvBoxPrograms.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TestNetwork.h"

namespace {

using kpl::test::HttpAnswer;
using kpl::test::HttpClient;
using kpl::test::kCeilingMs;
using kpl::test::NetHost;
using kpl::test::OnTwoHosts;
using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::SourcePath;
using kpl::test::Stopwatch;
using kpl::test::TempDir;
using kpl::test::WaitUntil;

class TvBoxWebTest : public kpl::test::TvBoxTest {
protected:
    HttpAnswer Fetch(const std::string& target) const { return HttpClient(m_port).Fetch(target); }

    // The state that the page brings with it.
    static Json StateIn(const std::string& page) {
        const std::string begin = "<script type=\"application/json\" id=\"state\">";
        const size_t at = page.find(begin);
        const size_t end = page.find("</script>", at);
        EXPECT_NE(std::string::npos, at);
        return Json::parse(page.substr(at + begin.size(), end - at - begin.size()), nullptr, false);
    }
};

void ExpectFault(const std::vector<std::string>& arguments, int code, const std::string& fault) {
    const ProgramResult result = RunProgram("tv_box_web", arguments);
    EXPECT_EQ(code, result.code);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("tv_box_web: " + fault + "\n", result.errors);
}

TEST_F(TvBoxWebTest, TheStateIsWhatTheGuideServerSays) {
    StartBoth({}, {"--source", "a file"});
    const Json state = State();
    EXPECT_EQ("a file", state["source"]);
    EXPECT_EQ("off", state["search"]);
    EXPECT_TRUE(
        std::regex_match(std::string(state["now"]), std::regex("2026-03-14 20:3.:[0-9]{2}")));
    ASSERT_EQ(8u, state["channels"].size());
    const Json channel = state["channels"][6];
    EXPECT_EQ(7, channel["number"]);
    EXPECT_EQ("月見台テレビ", channel["name"]);
    EXPECT_EQ("川を渡る", channel["now"]["title"]);
    EXPECT_EQ("2026-03-14 19:44:00", channel["now"]["start"]);
    EXPECT_EQ("夜のニュース", channel["next"]["title"]);
    StopServer();
}

TEST_F(TvBoxWebTest, AChannelsProgrammesHaveTheirDescriptions) {
    StartBoth();
    const HttpAnswer answer = Fetch("/api/channel?number=3");
    ASSERT_EQ(200, answer.status);
    const Json first = Json::parse(answer.body)["programmes"][0];
    EXPECT_EQ("Minuit, Quai Numéro Cinq", first["title"]);
    EXPECT_EQ("Un contrôleur trouve un billet à son nom, daté de demain. Thriller.",
              first["description"]);
    for (const char* number : {"0", "-1", "x", "", "3x", "99999999999"}) {
        EXPECT_EQ(400, Fetch("/api/channel?number=" + std::string(number)).status) << number;
    }
    EXPECT_EQ(400, Fetch("/api/channel").status);
    EXPECT_EQ(404, Fetch("/api/channel?number=9").status);
}

TEST_F(TvBoxWebTest, ThePageIsOneFileWithTheStateInIt) {
    StartBoth();
    const HttpAnswer answer = Fetch("/");
    ASSERT_EQ(200, answer.status);
    EXPECT_TRUE(answer.HasField("Content-Type: text/html; charset=utf-8"));
    EXPECT_NE(std::string::npos, answer.head.find("Content-Security-Policy: default-src 'none'"));
    EXPECT_EQ(8u, StateIn(answer.body)["channels"].size());
    for (const char* elsewhere : {"http://", "https://", "src=", "@import", "url("}) {
        EXPECT_EQ(std::string::npos, answer.body.find(elsewhere)) << elsewhere;
    }
}

TEST_F(TvBoxWebTest, ATitleThatIsMarkupStaysAText) {
    // The last two together would hide the end of the script from the browser.
    const std::string title = "</script><script>alert(1)</script><!--<script>";
    StartServer(WriteGuide("One\t2026-03-14 20:00\t60\t\t0\t" + title + "\t\n"), {});
    StartWeb();
    ASSERT_TRUE(WaitForGuide("online"));
    const std::string page = Fetch("/").body;
    EXPECT_EQ(title, StateIn(page)["channels"][0]["now"]["title"]);
    EXPECT_EQ(std::string::npos, page.find("<!--"));
    EXPECT_EQ(std::string::npos, page.find("<script>alert(1)"));
}

TEST_F(TvBoxWebTest, AHundredPagesAtOnceAreAllServed) {
    StartBoth();
    const Stopwatch watch;
    std::vector<HttpClient> clients;
    for (int i = 0; i < 100; ++i) {
        clients.emplace_back(m_port);
        ASSERT_TRUE(clients.back().Send(HttpClient::Get("/")));
    }
    for (HttpClient& client : clients) {
        const HttpAnswer answer = client.Read();
        EXPECT_EQ(200, answer.status);
        EXPECT_EQ(8u, StateIn(answer.body)["channels"].size());
    }
    EXPECT_LT(watch.ElapsedMs(), 2 * kCeilingMs);
}

TEST_F(TvBoxWebTest, WhatIsNoRequestForItIsRefusedAndOthersAreServed) {
    StartBoth();
    HttpClient kept(m_port);
    for (const char* target : {"/none", "/api", "/api/", "/api/state/", "/../etc/passwd", "//",
                               "/%00", "/page.html", "/api/channel/1"}) {
        EXPECT_EQ(404, kept.Fetch(target).status) << target;
    }
    const struct {
        std::string bytes;
        int status;
    } kRefused[] = {
        {"POST /api/state HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\nabc", 405},
        {"GET /api/state HTTP/2.0\r\nHost: h\r\n\r\n", 505},
        {"GET /" + std::string(5000, 'x') + " HTTP/1.1\r\nHost: h\r\n\r\n", 414},
        {"GET / HTTP/1.1\r\nX: " + std::string(20000, 'x') + "\r\n\r\n", 431},
        {std::string(300, '\0') + "\r\n\r\n", 400},
        {"\x16\x03\x01\x02\r\n\r\n", 400},
    };
    for (const auto& refused : kRefused) {
        HttpClient client(m_port);
        ASSERT_TRUE(client.Send(refused.bytes));
        EXPECT_EQ(refused.status, client.Read().status);
    }
    EXPECT_EQ(200, kept.Fetch("/api/state?whatever=1&=&&%zz").status);
    EXPECT_EQ("online", State()["guide"]);
}

TEST_F(TvBoxWebTest, WithoutAGuideServerThePageSaysSoUntilThereIsOne) {
    StartWeb();
    EXPECT_EQ("offline", State()["guide"]);
    EXPECT_TRUE(State()["now"].is_null());
    EXPECT_EQ(200, Fetch("/").status);
    StartGuide();
    EXPECT_TRUE(WaitForGuide("online"));
}

TEST_F(TvBoxWebTest, AGuideServerThatIsKilledGoesOfflineAndTheNextOneIsUsed) {
    StartBoth();
    for (int i = 0; i < 3; ++i) {
        HttpClient waiting(m_port);
        ASSERT_TRUE(waiting.Send(HttpClient::Get(WaitTarget(Version(), 60))));
        m_server->Kill(SIGKILL);
        EXPECT_EQ(128 + SIGKILL, m_server->Wait());
        EXPECT_EQ(200, waiting.Read().status);
        EXPECT_TRUE(WaitForGuide("offline"));
        EXPECT_EQ(8u, State()["channels"].size());
        StartGuide();
        EXPECT_TRUE(WaitForGuide("online"));
    }
    StopServer();
}

TEST_F(TvBoxWebTest, AGuideServerThatHangsIsOfflineUntilItGoesOn) {
    StartGuide();
    StartWeb({"--timeout", "500"});
    ASSERT_TRUE(WaitForGuide("online"));
    m_server->Kill(SIGSTOP);
    EXPECT_TRUE(WaitForGuide("offline"));
    EXPECT_EQ(200, Fetch("/").status);
    m_server->Kill(SIGCONT);
    EXPECT_TRUE(WaitForGuide("online"));
}

TEST_F(TvBoxWebTest, ItEndsSoonThoughTheGuideServerHangs) {
    StartBoth({}, {"--timeout", "600000"});
    m_server->Kill(SIGSTOP);
    for (const bool isConnecting : {false, true}) {
        if (isConnecting) {
            StartWeb({"--timeout", "600000"});
        }
        EXPECT_EQ(200, Fetch("/").status);
        const Stopwatch watch;
        StopWeb(isConnecting ? SIGINT : SIGTERM);
        EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
    }
    m_server->Kill(SIGCONT);
    StopServer();
}

TEST_F(TvBoxWebTest, DebugLogsGoToFiles) {
    const TempDir logs;
    StartServer(SourcePath("examples/data/guide.tsv"), {"--log", logs.Path()});
    EXPECT_EQ((std::vector<std::string>{"LogTools0.txt"}), logs.Entries());
    EXPECT_EQ("", m_server->Errors());
    const TempDir others;
    StartWeb({"--log", others.Path()});
    ASSERT_TRUE(WaitForGuide("online"));
    EXPECT_EQ((std::vector<std::string>{"LogTools0.txt"}), others.Entries());
    StopServer();
    StopWeb();
    const auto lines = kpl::test::LinesOfFile(others.Path() + "/LogTools0.txt");
    EXPECT_NE(lines.end(),
              std::find(lines.begin(), lines.end(), "CSocketServer::Stop(): Done....."));
}

TEST_F(TvBoxWebTest, CalledTheWrongWayItSaysHow) {
    ExpectFault({"--prot", "1"}, 2, "unknown option '--prot' (--help lists them)");
    ExpectFault({"now"}, 2, "unexpected argument 'now'");
    ExpectFault({"--port", "65536"}, 2, "'65536' is no port (0 to 65535)");
    ExpectFault({"--timeout", "0"}, 2, "'0' is no time (1 to 600000 milliseconds)");
    ExpectFault({"--search", "x"}, 2, "'x' is no time (1 to 600000 milliseconds)");
    ExpectFault({"--log", "/no/such"}, 1,
                "cannot write logs to '/no/such': No such file or directory");
    const ProgramResult help = RunProgram("tv_box_web", {"--help"});
    EXPECT_EQ(0, help.code);
    EXPECT_EQ(0u, help.output.find("usage: tv_box_web"));
}

TEST_F(TvBoxWebTest, APortThatIsTakenIsSaidSo) {
    StartWeb();
    const std::string port = std::to_string(m_port);
    ExpectFault({"--port", port, "--root", m_root.Path()}, 1, "cannot have port " + port);
}

// Whether a request from `far` is answered.
bool IsServed(const NetHost& far, int port) {
    bool served = false;
    far.Run([&] { served = HttpClient(port, "10.77.3.1").Fetch("/api/state").status == 200; });
    return served;
}

TEST_F(TvBoxWebTest, OtherMachinesAreRefusedUnlessTheyAreWanted) {
    OnTwoHosts("10.77.3.1/16", "10.77.3.2/16", [&](const NetHost&, const NetHost& far) {
        StartWeb();
        EXPECT_FALSE(IsServed(far, m_port));
        EXPECT_EQ("offline", State()["guide"]);
        StopWeb();
        StartWeb({"--public"});
        EXPECT_TRUE(IsServed(far, m_port));
        StopWeb();
    });
}

}  // namespace
