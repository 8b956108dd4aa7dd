#ifndef KPL_CLI_COMMANDLINE_H_
#define KPL_CLI_COMMANDLINE_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kpl::cli {

// An option that a subcommand takes.
struct OptionInfo {
    const char* name;   // "-c", "--json"
    const char* value;  // what its value is called, "MS"; null: it has none
    const char* help;
};

// The words and options of a subcommand. An option may stand anywhere; behind "--" there are only
// words. A value follows as the next word, or behind "=".
class CommandLine {
public:
    // Empty if all is well, else what is wrong. Options that are not in `known` are wrong.
    std::string Parse(const std::vector<std::string>& arguments,
                      const std::vector<OptionInfo>& known);

    const std::vector<std::string>& Words() const { return m_words; }
    bool Has(const std::string& option) const { return m_values.count(option) > 0; }
    std::string Value(const std::string& option, const std::string& otherwise) const;

    // The value as a number of that range; `otherwise` without the option. Nothing, and why in
    // `fault`, for anything else.
    std::optional<long> Number(const std::string& option, long otherwise, long min, long max,
                               std::string* fault) const;

private:
    std::string TakeOption(const std::vector<std::string>& arguments, size_t* at,
                           const std::vector<OptionInfo>& known);

    std::vector<std::string> m_words;
    std::map<std::string, std::string> m_values;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_COMMANDLINE_H_
