// The guide server and the web front as processes.
#ifndef KPL_TESTS_EXAMPLES_TVBOXPROGRAMS_H_
#define KPL_TESTS_EXAMPLES_TVBOXPROGRAMS_H_

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/examples/GuidePrograms.h"
#include "tests/examples/HttpClient.h"

namespace kpl::test {

class TvBoxTest : public GuideProgramsTest {
protected:
    using Json = nlohmann::json;

    ~TvBoxTest() override { StopWeb(); }

    // The front, if there is one, must end well, whatever has been done to it.
    void StopWeb(int signal = SIGTERM) {
        if (m_web != nullptr) {
            m_web->Kill(signal);
            EXPECT_EQ(0, m_web->Wait());
            EXPECT_EQ("", m_web->Errors());
            EXPECT_NE(std::string::npos, m_web->Output().find("tv_box_web: stopped\n"));
        }
        m_web.reset();
    }

    // For a forked child, which ends without destructors.
    void EndPrograms() {
        StopWeb();
        m_server.reset();
    }

    void StartGuide(const Arguments& more = {}) {
        StartServer(SourcePath("examples/data/guide.tsv"),
                    Join({"--start", "2026-03-14 20:30"}, more));
    }

    // Time-outs for a machine that may be busy with other tests.
    void StartWeb(const Arguments& more = {}) {
        m_web = std::make_unique<Program>(
            "tv_box_web",
            Join({"--port", "0", "--root", m_root.Path(), "--timeout", "20000"}, more));
        ASSERT_TRUE(m_web->WaitForOutput("/\n")) << m_web->Errors();
        m_port = PortIn(m_web->Output());
        ASSERT_GT(m_port, 0);
    }

    void StartBoth(const Arguments& guide = {}, const Arguments& web = {}) {
        StartGuide(guide);
        StartWeb(web);
        ASSERT_TRUE(WaitForGuide("online"));
    }

    Json State() const {
        const HttpAnswer answer = HttpClient(m_port).Fetch("/api/state");
        EXPECT_EQ(200, answer.status);
        EXPECT_TRUE(Json::accept(answer.body)) << answer.body;
        return Json::parse(answer.body, nullptr, false);
    }

    std::string Version() const { return State()["version"]; }

    bool WaitForState(const std::function<bool(const Json&)>& isIt) const {
        return WaitUntil([&] { return isIt(State()); }, 30000);
    }

    bool WaitForGuide(const std::string& state) const {
        return WaitForState([&](const Json& now) { return now["guide"] == state; });
    }

    // The request that waits for another version than `version`.
    static std::string WaitTarget(const std::string& version, int seconds) {
        return "/api/wait?version=" + version + "&seconds=" + std::to_string(seconds);
    }

    std::unique_ptr<Program> m_web;
    int m_port = 0;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_EXAMPLES_TVBOXPROGRAMS_H_
