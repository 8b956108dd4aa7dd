#include "tests/examples/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/support/OwnProgram.h"

namespace kpl::test {

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void Redirect(int descriptor, const std::string& path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, descriptor);
    close(file);
}

int Execute(const std::string& directory, const std::string& name,
            const std::vector<std::string>& arguments) {
    const int nothing = open("/dev/null", O_RDONLY);  // never this process's terminal
    dup2(nothing, STDIN_FILENO);
    close(nothing);
    signal(SIGINT, SIG_DFL);  // ignored in what a shell has started in the background
    Redirect(STDOUT_FILENO, directory + "/output");
    Redirect(STDERR_FILENO, directory + "/errors");
    return name[0] == '/' ? BecomeScript(name, arguments)
                          : BecomeProgram(KPL_BIN_DIR "/" + name, arguments);
}

}  // namespace

Program::Program(const std::string& name, const std::vector<std::string>& arguments)
    : m_child(std::make_unique<ChildProcess>(
          [&] { return Execute(m_directory.Path(), name, arguments); })) {}

std::string Program::Output() const {
    return ReadFile(m_directory.Path() + "/output");
}

std::string Program::Errors() const {
    return ReadFile(m_directory.Path() + "/errors");
}

bool Program::WaitForOutput(const std::string& text, long timeoutMs) const {
    return WaitUntil([&] { return Output().find(text) != std::string::npos; }, timeoutMs);
}

ProgramResult RunProgram(const std::string& name, const std::vector<std::string>& arguments,
                         long timeoutMs) {
    Program program(name, arguments);
    const int code = program.Wait(timeoutMs);
    return {code, program.Output(), program.Errors()};
}

std::string SourcePath(const std::string& path) {
    return KPL_SOURCE_DIR "/" + path;
}

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> LinesOfFile(const std::string& path) {
    return Lines(ReadFile(path));
}

std::vector<std::vector<std::string>> GuideRows(const std::string& path) {
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : LinesOfFile(path)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream in(line);
        std::vector<std::string> row;
        for (std::string cell; std::getline(in, cell, '\t');) {
            row.push_back(cell);
        }
        row.resize(7);  // the last cell may be empty
        rows.push_back(row);
    }
    return rows;
}

}  // namespace kpl::test
