// A program of the build, run as a process of its own.
#ifndef KPL_TESTS_EXAMPLES_PROGRAM_H_
#define KPL_TESTS_EXAMPLES_PROGRAM_H_

#include <memory>
#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kpl::test {

// Started by the constructor, before this process has any thread; killed if it still runs at the
// end. What it writes is collected.
class Program {
public:
    // `name` is a file in the build's bin directory, or the whole path of a script.
    Program(const std::string& name, const std::vector<std::string>& arguments);

    pid_t Pid() const { return m_child->Pid(); }
    void Kill(int signal) { m_child->Kill(signal); }

    // Waits for the end. Returns the exit code, 128 + n after signal n, -1 after `timeoutMs`.
    int Wait(long timeoutMs = 30000) { return m_child->Wait(timeoutMs); }

    // What it has written so far.
    std::string Output() const;
    std::string Errors() const;

    // Waits until the output has `text` in it; false after `timeoutMs`.
    bool WaitForOutput(const std::string& text, long timeoutMs = 30000) const;

private:
    TempDir m_directory;
    std::unique_ptr<ChildProcess> m_child;
};

// What a program did from its start to its end.
struct ProgramResult {
    int code;
    std::string output;
    std::string errors;
};

ProgramResult RunProgram(const std::string& name, const std::vector<std::string>& arguments,
                         long timeoutMs = 30000);

// A file of the source tree.
std::string SourcePath(const std::string& path);

std::vector<std::string> Lines(const std::string& text);
std::vector<std::string> LinesOfFile(const std::string& path);

// The lines of a guide file that are programmes, each split into its columns.
std::vector<std::vector<std::string>> GuideRows(const std::string& path);

}  // namespace kpl::test

#endif  // KPL_TESTS_EXAMPLES_PROGRAM_H_
