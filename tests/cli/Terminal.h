#ifndef KPL_TESTS_CLI_TERMINAL_H_
#define KPL_TESTS_CLI_TERMINAL_H_

#include <memory>
#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace kpl::test {

// kpl-rpc on a terminal of its own, with a TERM that has colours.
class TerminalTool {
public:
    // `noColor` is what NO_COLOR is set to; null: it is not set.
    TerminalTool(const std::vector<std::string>& words, const char* noColor);
    ~TerminalTool();
    TerminalTool(const TerminalTool&) = delete;
    TerminalTool& operator=(const TerminalTool&) = delete;

    void Type(const std::string& text) const;

    // Reads on until the text shown so far has this in it; false when it does not come.
    bool WaitFor(const std::string& text);

    // Reads to its end and returns the exit code. In the text lines end with "\r\n", and what was
    // typed stands in it too.
    int Wait();
    const std::string& Text() const { return m_text; }

private:
    bool ReadMore(int timeoutMs);

    int m_terminal;
    std::string m_text;
    std::unique_ptr<ChildProcess> m_child;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_CLI_TERMINAL_H_
