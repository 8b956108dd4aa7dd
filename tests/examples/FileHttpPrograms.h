// The HTTP server's program with a folder to serve.
#ifndef KPL_TESTS_EXAMPLES_FILEHTTPPROGRAMS_H_
#define KPL_TESTS_EXAMPLES_FILEHTTPPROGRAMS_H_

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "tests/examples/HttpClient.h"
#include "tests/examples/Program.h"
#include "tests/support/TempDir.h"

namespace kpl::test {

class FileHttpProgramTest : public testing::Test {
protected:
    FileHttpProgramTest() {
        std::filesystem::create_directory(m_folder);
        Write("a.txt", "The text of a.\n");
        Write("empty", "");
        Write("sub/index.html", "<p>index</p>\n");
    }

    // Stops the server, which must end well.
    ~FileHttpProgramTest() override {
        if (m_server != nullptr) {
            m_server->Kill(SIGTERM);
            EXPECT_EQ(0, m_server->Wait());
        }
    }

    void Write(const std::string& path, const std::string& text) const {
        const std::filesystem::path whole = m_folder + "/" + path;
        std::filesystem::create_directories(whole.parent_path());
        std::ofstream(whole, std::ios::binary | std::ios::trunc) << text;
    }

    // Before the test has any thread.
    void Start() {
        m_server =
            std::make_unique<Program>("file_http_server", std::vector<std::string>{m_folder, "0"});
        ASSERT_TRUE(m_server->WaitForOutput("/\n"));
        m_port = PortIn(m_server->Output());
        ASSERT_GT(m_port, 0);
    }

    std::string Url(const std::string& target) const {
        return "http://127.0.0.1:" + std::to_string(m_port) + target;
    }

    TempDir m_directory;
    const std::string m_folder = m_directory.Path() + "/folder";
    std::unique_ptr<Program> m_server;
    int m_port = 0;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_EXAMPLES_FILEHTTPPROGRAMS_H_
