// What the tests of the two guide programs share.
#ifndef KPL_TESTS_EXAMPLES_GUIDEPROGRAMS_H_
#define KPL_TESTS_EXAMPLES_GUIDEPROGRAMS_H_

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/examples/Program.h"

namespace kpl::test {

// A fresh pipe root and, once StartServer was called, a server there.
class GuideProgramsTest : public testing::Test {
protected:
    using Arguments = std::vector<std::string>;

    // Writes a guide file and returns its path.
    std::string WriteGuide(const std::string& text) const {
        const std::string path = m_files.Path() + "/guide.tsv";
        std::ofstream(path) << text;
        return path;
    }

    void StartServer(const std::string& guide, const Arguments& more) {
        m_server = std::make_unique<Program>(
            "guide_server", Join({"--guide", guide, "--root", m_root.Path()}, more));
        ASSERT_TRUE(m_server->WaitForOutput("is ready")) << m_server->Errors();
    }

    // Ends the server; it must leave nothing behind.
    void StopServer() {
        m_server->Kill(SIGTERM);
        EXPECT_EQ(0, m_server->Wait());
        EXPECT_EQ("", m_server->Errors());
        // A client that is still there removes what it has made as soon as it sees the end.
        EXPECT_TRUE(WaitUntil([this] { return m_root.Entries().empty(); }));
    }

    std::unique_ptr<Program> StartClient(const Arguments& words) const {
        return std::make_unique<Program>("guide_client", ClientArguments(words));
    }

    ProgramResult RunClient(const Arguments& words) const {
        return RunProgram("guide_client", ClientArguments(words));
    }

    // For the machine's sake: all of it may be busy with other tests.
    Arguments ClientArguments(const Arguments& words) const {
        return Join({"--root", m_root.Path(), "--timeout", "20000"}, words);
    }

    static Arguments Join(Arguments first, const Arguments& second) {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    TempDir m_root;
    TempDir m_files;
    std::unique_ptr<Program> m_server;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_EXAMPLES_GUIDEPROGRAMS_H_
