#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_COMMANDLINE_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_COMMANDLINE_H_

#include <string>
#include <vector>

namespace guide {

// What the programs exit with.
enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2 };

// Reads options of the forms "--name VALUE" and "--name". What is no option is a word; behind "--"
// everything is.
class CommandLine {
public:
    void AddOption(const std::string& name, std::string* value);
    void AddFlag(const std::string& name, bool* flag);

    // Returns what is wrong with the arguments; empty if nothing is.
    std::string Parse(int argc, const char* const* argv);

    const std::vector<std::string>& Words() const { return m_words; }

private:
    // One of the two is null.
    struct Option {
        std::string name;
        std::string* value;
        bool* flag;
    };

    const Option* Find(const std::string& name) const;

    std::vector<Option> m_options;
    std::vector<std::string> m_words;
};

// Writes "PROGRAM: WHAT" on stderr, as one line. Returns `code`.
int Fail(const char* program, const std::string& what, ExitCode code);

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_COMMANDLINE_H_
