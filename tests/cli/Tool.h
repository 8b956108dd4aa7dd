// What the tests that run kpl-rpc as a process share.
#ifndef KPL_TESTS_CLI_TOOL_H_
#define KPL_TESTS_CLI_TOOL_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/examples/Program.h"

namespace kpl::test {

// A fresh pipe root, and servers there.
class ToolTest : public testing::Test {
protected:
    using Words = std::vector<std::string>;

    // A server of that name; it has read its Root FIFO when this returns.
    std::unique_ptr<Program> StartServer(const std::string& name) const;

    // Waits until the server that has made its FIFO also reads it.
    void AwaitReader(const std::string& name) const;

    // Runs the tool to its end, with "--root" of the pipe root behind the command's name.
    ProgramResult Run(const Words& words) const;
    std::unique_ptr<Program> Start(const Words& words) const;

    // Runs it as it is.
    static ProgramResult RunBare(const Words& words) { return RunProgram("kpl-rpc", words); }

    // Compares all that it did.
    void Expect(const Words& words, int code, const std::string& output,
                const std::string& errors) const;

    std::string Path(const std::string& name) const { return m_root.Path() + "/" + name; }

    // Writes a file of the test's own and returns its path.
    std::string WriteFile(const std::string& name, const std::string& bytes) const;

    void MakeFifo(const std::string& name) const;

    TempDir m_root;
    TempDir m_files;

private:
    Words WithRoot(const Words& words) const;
};

// "pid 12 (name)", as kpl-rpc list shows a process.
std::string UserText(pid_t pid);

std::string ReadWhole(const std::string& path);

}  // namespace kpl::test

#endif  // KPL_TESTS_CLI_TOOL_H_
