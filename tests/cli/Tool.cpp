#include "tests/cli/Tool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace kpl::test {

namespace {

bool HasReader(const std::string& fifo) {
    const int fd = open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd != -1) {
        close(fd);
    }
    return fd != -1;
}

}  // namespace

std::unique_ptr<Program> ToolTest::StartServer(const std::string& name) const {
    auto server = std::make_unique<Program>("cli_test_server", Words{m_root.Path(), name});
    EXPECT_TRUE(server->WaitForOutput("ready")) << server->Errors();
    AwaitReader(name);
    return server;
}

void ToolTest::AwaitReader(const std::string& name) const {
    EXPECT_TRUE(WaitUntil([&] { return HasReader(Path(name + "Root")); }, 30000));
}

ToolTest::Words ToolTest::WithRoot(const Words& words) const {
    Words all = words;
    all.insert(all.begin() + 1, {"--root", m_root.Path()});
    return all;
}

ProgramResult ToolTest::Run(const Words& words) const {
    return RunProgram("kpl-rpc", WithRoot(words));
}

std::unique_ptr<Program> ToolTest::Start(const Words& words) const {
    return std::make_unique<Program>("kpl-rpc", WithRoot(words));
}

void ToolTest::Expect(const Words& words, int code, const std::string& output,
                      const std::string& errors) const {
    const ProgramResult result = Run(words);
    EXPECT_EQ(code, result.code);
    EXPECT_EQ(output, result.output);
    EXPECT_EQ(errors, result.errors);
}

std::string ToolTest::WriteFile(const std::string& name, const std::string& bytes) const {
    const std::string path = m_files.Path() + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

void ToolTest::MakeFifo(const std::string& name) const {
    ASSERT_EQ(0, mkfifo(Path(name).c_str(), 0600)) << name;
}

std::string UserText(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    return "pid " + std::to_string(pid) + " (" + name + ")";
}

std::string ReadWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace kpl::test
