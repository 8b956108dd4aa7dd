// The page in a real browser: headless, and on a network that has nobody else on it.
#include <stdlib.h>

#include <fstream>
#include <iterator>

#include "tests/examples/TvBoxPrograms.h"
#include "tests/support/SsdpResponder.h"
#include "tests/support/TestNetwork.h"

namespace {

using kpl::test::NetHost;
using kpl::test::OnTwoHosts;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::SsdpAnswer;
using kpl::test::SsdpResponder;
using kpl::test::TempDir;

constexpr long kTestMs = 280000;
constexpr int kWidth = 1180;
constexpr int kHeight = 790;

size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// What stands in `text` between the two.
std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
    const size_t at = text.find(begin);
    const size_t stop = text.find(end, at + begin.size());
    return at == std::string::npos || stop == std::string::npos
               ? ""
               : text.substr(at + begin.size(), stop - at - begin.size());
}

std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The big-endian number at `offset` of the bytes.
int NumberAt(const std::string& bytes, size_t offset) {
    int number = 0;
    for (size_t i = 0; i < 4; ++i) {
        number = number * 256 + static_cast<unsigned char>(bytes[offset + i]);
    }
    return number;
}

class TvBoxPageTest : public kpl::test::TvBoxTest {
protected:
    void SetUp() override {
        if (system("command -v chromium >/dev/null") != 0) {
            GTEST_SKIP() << "chromium is not installed";
        }
    }

    // `body` on one host, with a guide at half past eight and another host in its network.
    void OnNetwork(const std::function<void(const NetHost& far)>& body) {
        OnTwoHosts(
            "10.77.3.1/16", "10.77.3.2/16",
            [&](const NetHost&, const NetHost& far) {
                body(far);
                EndPrograms();
            },
            kTestMs);
    }

    // Runs the browser on the page. It has a home of its own, and knows no host but this one.
    std::string Browse(const std::string& target, const Arguments& options) const {
        const TempDir home;
        const Arguments fixed = {
            "HOME=" + home.Path(),
            "XDG_CONFIG_HOME=" + home.Path(),
            "XDG_CACHE_HOME=" + home.Path(),
            "timeout",
            "120",
            "chromium",
            "--headless",
            "--no-sandbox",
            "--disable-gpu",
            "--disable-dev-shm-usage",
            "--disable-background-networking",
            "--disable-component-update",
            "--no-first-run",
            "--host-resolver-rules=MAP * ~NOTFOUND , EXCLUDE 127.0.0.1",
            "--user-data-dir=" + home.Path() + "/profile",
            "--hide-scrollbars",
            "--window-size=" + std::to_string(kWidth) + "," + std::to_string(kHeight)};
        const std::string url = "http://127.0.0.1:" + std::to_string(m_port) + target;
        const ProgramResult result =
            RunProgram("/usr/bin/env", Join(Join(fixed, options), {url}), 150000);
        EXPECT_EQ(0, result.code) << result.errors;
        return result.output;
    }

    std::string Dom(const std::string& target, const Arguments& options = {}) const {
        return Browse(target, Join({"--dump-dom"}, options));
    }

    static std::string Clock(const std::string& dom) {
        return Between(dom, "<time id=\"clock\">", "</time>");
    }
};

TEST_F(TvBoxPageTest, ShowsWhatIsOnAndTheDevices) {
    OnNetwork([&](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        StartBoth({}, {"--source", "examples/data/guide.tsv", "--discover"});
        ASSERT_TRUE(WaitForState([](const Json& state) { return state["devices"].size() == 2; }));
        const std::string dom = Dom("/");
        EXPECT_EQ("20:3", Clock(dom).substr(0, 4));
        EXPECT_EQ("Saturday, 14 March 2026", Between(dom, "<p id=\"date\">", "</p>"));
        EXPECT_NE(std::string::npos, dom.find(">Guide online</span>"));
        EXPECT_EQ(8u, Count(dom, "role=\"progressbar\""));
        EXPECT_EQ(8u, Count(dom, "<button class=\"row\""));
        for (const char* text :
             {"The Saltmarsh Inquiry", "20:00–21:15", "12+", "Minuit, Quai Numéro Cinq",
              "Тихий Берег", "夜のニュース", "Linux/6.1 UPnP/1.0 Responder/1.2",
              "http://10.77.3.2:8080/1.xml", "Guide: examples/data/guide.tsv"}) {
            EXPECT_NE(std::string::npos, dom.find(">" + std::string(text) + "<")) << text;
        }
        EXPECT_EQ(std::string::npos, dom.find("undefined"));
        StopServer();
    });
}

// With KPL_TV_BOX_PNG=FILE the picture is kept, for the documents.
TEST_F(TvBoxPageTest, LooksLikeAGuide) {
    OnNetwork([&](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        StartBoth({}, {"--source", "examples/data/guide.tsv", "--discover"});
        ASSERT_TRUE(WaitForState([](const Json& state) { return state["devices"].size() == 2; }));
        const char* const kept = getenv("KPL_TV_BOX_PNG");
        const std::string path = kept != nullptr ? kept : m_files.Path() + "/page.png";
        Browse("/", {"--screenshot=" + path});
        const std::string bytes = ReadBytes(path);
        ASSERT_GT(bytes.size(), 30000u) << "an empty page takes less than a tenth of that";
        EXPECT_LT(bytes.size(), 300000u);
        EXPECT_EQ(0, bytes.compare(0, 8, "\x89PNG\r\n\x1A\n"));
        EXPECT_EQ(kWidth, NumberAt(bytes, 16));
        EXPECT_EQ(kHeight, NumberAt(bytes, 20));
    });
}

TEST_F(TvBoxPageTest, SaysWhenTheGuideServerHasGone) {
    OnNetwork([&](const NetHost&) {
        StartBoth();
        m_server->Kill(SIGKILL);
        EXPECT_EQ(128 + SIGKILL, m_server->Wait());
        ASSERT_TRUE(WaitForGuide("offline"));
        const std::string dom = Dom("/");
        EXPECT_NE(std::string::npos, dom.find(">Guide offline, reconnecting</span>"));
        EXPECT_NE(std::string::npos, dom.find("class=\"box offline\""));
        EXPECT_NE(std::string::npos, dom.find(">The Saltmarsh Inquiry<")) << "what was last heard";
    });
}

// The browser's own clock stands still while a request is open, so that a second of it takes in
// several changes; a second of ours is a minute of the guide.
TEST_F(TvBoxPageTest, FollowsTheGuideAndListsAChannel) {
    OnNetwork([&](const NetHost&) {
        StartBoth({"--speed", "60"});
        const std::string dom = Dom("/#3", {"--virtual-time-budget=1000"});
        const std::string state = Between(dom, "id=\"state\">", "</script>");
        const std::string before = Json::parse(state, nullptr, false)["now"];
        EXPECT_GT(Clock(dom), before.substr(11, 5));
        EXPECT_NE(std::string::npos, dom.find(">Peau de Loup<"));
        EXPECT_NE(std::string::npos, dom.find("Dans le massif, l'hiver"));
    });
}

}  // namespace
