#include "tests/cli/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <iterator>
#include <sstream>

namespace kpl::test {

namespace {

constexpr int kPatienceMs = 30000;

int Execute(const std::string& terminal, const std::vector<std::string>& arguments,
            const char* noColor) {
    setsid();
    const int fd = open(terminal.c_str(), O_RDWR);  // becomes the controlling terminal
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(fd, standard);
    }
    setenv("TERM", "xterm", 1);
    if (noColor != nullptr) {
        setenv("NO_COLOR", noColor, 1);
    } else {
        unsetenv("NO_COLOR");
    }
    std::istringstream emulator(KPL_EMULATOR);
    std::vector<std::string> words{std::istream_iterator<std::string>(emulator), {}};
    words.emplace_back(KPL_BIN_DIR "/kpl-rpc");
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    return 127;
}

}  // namespace

TerminalTool::TerminalTool(const std::vector<std::string>& words, const char* noColor)
    : m_terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    grantpt(m_terminal);
    unlockpt(m_terminal);
    const std::string name = ptsname(m_terminal);
    m_child = std::make_unique<ChildProcess>([&] { return Execute(name, words, noColor); });
}

TerminalTool::~TerminalTool() {
    m_child.reset();
    close(m_terminal);
}

void TerminalTool::Type(const std::string& text) const {
    (void)!write(m_terminal, text.data(), text.size());
}

// False at the end: the terminal fails once nobody has its other side open. It also fails before
// somebody does, so that only counts when the program has ended.
bool TerminalTool::ReadMore(int timeoutMs) {
    pollfd descriptor{m_terminal, POLLIN, 0};
    char bytes[4096];
    if (poll(&descriptor, 1, timeoutMs) != 1 || (descriptor.revents & POLLIN) == 0) {
        return false;
    }
    const ssize_t got = read(m_terminal, bytes, sizeof(bytes));
    if (got > 0) {
        m_text.append(bytes, static_cast<size_t>(got));
    }
    return got > 0;
}

bool TerminalTool::WaitFor(const std::string& text) {
    return WaitUntil(
        [&] {
            (void)ReadMore(0);
            return m_text.find(text) != std::string::npos;
        },
        kPatienceMs);
}

int TerminalTool::Wait() {
    int code = -1;
    (void)WaitUntil(
        [&] {
            (void)ReadMore(0);
            code = m_child->Wait(0);
            return code != -1;
        },
        kPatienceMs);
    while (ReadMore(0)) {
    }
    return code;
}

}  // namespace kpl::test
