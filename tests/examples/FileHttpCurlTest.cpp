// The HTTP server judged by programs that others have written.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tests/examples/FileHttpPrograms.h"

namespace {

using kpl::test::FileHttpProgramTest;

struct CommandResult {
    int code;
    std::string output;  // stdout and stderr
};

// Through the shell. No command of ours takes a minute.
CommandResult RunCommand(const std::string& command) {
    FILE* pipe = popen(("timeout 60 " + command + " 2>&1").c_str(), "re");
    std::string output;
    char buffer[4096];
    for (size_t count = fread(buffer, 1, sizeof(buffer), pipe); count > 0;
         count = fread(buffer, 1, sizeof(buffer), pipe)) {
        output.append(buffer, count);
    }
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

bool IsInstalled(const std::string& program) {
    return RunCommand("sh -c 'command -v " + program + "'").code == 0;
}

class FileHttpCurlTest : public FileHttpProgramTest {
protected:
    void SetUp() override {
        if (!IsInstalled("curl")) {
            GTEST_SKIP() << "curl is not installed";
        }
    }

    CommandResult Curl(const std::string& arguments) { return RunCommand("curl -sS " + arguments); }
};

TEST_F(FileHttpCurlTest, OneFile) {
    Start();
    const CommandResult result = Curl(Url("/a.txt"));
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("The text of a.\n", result.output);
}

TEST_F(FileHttpCurlTest, SeveralFilesOverOneConnection) {
    Start();
    const CommandResult result = Curl("-w '%{http_code} %{num_connects}\\n' " + Url("/a.txt") +
                                      " " + Url("/none") + " " + Url("/sub/"));
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("The text of a.\n200 1\nNot Found\n404 0\n<p>index</p>\n200 0\n", result.output);
}

TEST_F(FileHttpCurlTest, OnlyTheHead) {
    Start();
    const CommandResult result = Curl("-I " + Url("/a.txt"));
    EXPECT_EQ(0, result.code);
    EXPECT_EQ(0u, result.output.find("HTTP/1.1 200 OK\r\n"));
    EXPECT_NE(std::string::npos, result.output.find("\r\nContent-Length: 15\r\n"));
}

TEST_F(FileHttpCurlTest, HttpOneZeroAndClose) {
    Start();
    EXPECT_EQ("The text of a.\n", Curl("--http1.0 " + Url("/a.txt")).output);
    const CommandResult result = Curl("-H 'Connection: close' -w '%{num_connects}\\n' " +
                                      Url("/a.txt") + " " + Url("/a.txt"));
    EXPECT_EQ("The text of a.\n1\nThe text of a.\n1\n", result.output);
}

TEST_F(FileHttpCurlTest, PathsThatLeaveTheFolderAreRefused) {
    std::ofstream(m_directory.Path() + "/secret") << "secret";
    std::filesystem::create_symlink("../secret", m_folder + "/link");
    Start();
    const std::string arguments = "--path-as-is -w '%{http_code}\\n' ";
    EXPECT_EQ("Forbidden\n403\n", Curl(arguments + Url("/../secret")).output);
    EXPECT_EQ("Forbidden\n403\n", Curl(arguments + Url("/%2e%2e%2fsecret")).output);
    EXPECT_EQ("Not Found\n404\n", Curl(arguments + Url("/link")).output);
}

TEST_F(FileHttpCurlTest, AnOverLongTargetAndOverLongFields) {
    Start();
    EXPECT_EQ("URI Too Long\n414\n",
              Curl("-w '%{http_code}\\n' " + Url("/" + std::string(20000, 'x'))).output);
    EXPECT_EQ("Request Header Fields Too Large\n431\n",
              Curl("-w '%{http_code}\\n' -H 'X: " + std::string(50000, 'x') + "' " + Url("/a.txt"))
                  .output);
}

TEST_F(FileHttpCurlTest, AFileOf100MegabytesIsEqualToTheByte) {
    constexpr int kPieces = 100;
    {
        std::ofstream file(m_folder + "/large", std::ios::binary);
        std::mt19937_64 random(100);
        std::vector<uint64_t> piece(131072);  // 1 MiB
        for (int i = 0; i < kPieces; ++i) {
            for (uint64_t& word : piece) {
                word = random();
            }
            file.write(reinterpret_cast<const char*>(piece.data()), 1 << 20);
        }
    }
    Start();
    const std::string copy = m_directory.Path() + "/copy";
    const CommandResult result = Curl("-o " + copy + " " + Url("/large"));
    EXPECT_EQ(0, result.code) << result.output;
    EXPECT_EQ(0, RunCommand("cmp " + m_folder + "/large " + copy).code);
    EXPECT_EQ(100u << 20, std::filesystem::file_size(copy));
}

TEST_F(FileHttpCurlTest, WrkFindsNoFailure) {
    if (!IsInstalled("wrk")) {
        GTEST_SKIP() << "wrk is not installed";
    }
    Start();
    const CommandResult result = RunCommand("wrk --timeout 20s -t2 -c64 -d2s " + Url("/a.txt"));
    EXPECT_EQ(0, result.code);
    EXPECT_NE(std::string::npos, result.output.find("Requests/sec:")) << result.output;
    EXPECT_EQ(std::string::npos, result.output.find("Socket errors")) << result.output;
    EXPECT_EQ(std::string::npos, result.output.find("Non-2xx")) << result.output;
    printf("%s", result.output.c_str());
}

}  // namespace
