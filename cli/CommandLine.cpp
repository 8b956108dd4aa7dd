#include "cli/CommandLine.h"

#include "cli/Text.h"

namespace kpl::cli {

namespace {

const OptionInfo* Find(const std::vector<OptionInfo>& known, const std::string& name) {
    for (const OptionInfo& option : known) {
        if (option.name == name) {
            return &option;
        }
    }
    return nullptr;
}

}  // namespace

std::string CommandLine::Parse(const std::vector<std::string>& arguments,
                               const std::vector<OptionInfo>& known) {
    for (size_t at = 0; at < arguments.size(); ++at) {
        if (arguments[at] == "--") {
            m_words.insert(m_words.end(), arguments.begin() + static_cast<ptrdiff_t>(at) + 1,
                           arguments.end());
            break;
        }
        if (arguments[at].size() < 2 || arguments[at][0] != '-') {
            m_words.push_back(arguments[at]);
            continue;
        }
        std::string fault = TakeOption(arguments, &at, known);
        if (!fault.empty()) {
            return fault;
        }
    }
    return "";
}

std::string CommandLine::TakeOption(const std::vector<std::string>& arguments, size_t* at,
                                    const std::vector<OptionInfo>& known) {
    const std::string& argument = arguments[*at];
    const size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    const OptionInfo* const option = Find(known, name);
    if (option == nullptr) {
        return "unknown option '" + name + "'";
    }
    if (option->value == nullptr) {
        m_values[name] = "";
        return equals == std::string::npos ? "" : "option '" + name + "' takes no value";
    }
    if (equals != std::string::npos) {
        m_values[name] = argument.substr(equals + 1);
        return "";
    }
    if (*at + 1 == arguments.size()) {
        return "option '" + name + "' needs a value: " + name + " " + option->value;
    }
    m_values[name] = arguments[++*at];
    return "";
}

std::string CommandLine::Value(const std::string& option, const std::string& otherwise) const {
    const auto found = m_values.find(option);
    return found != m_values.end() ? found->second : otherwise;
}

std::optional<long> CommandLine::Number(const std::string& option, long otherwise, long min,
                                        long max, std::string* fault) const {
    if (!Has(option)) {
        return otherwise;
    }
    const std::string text = Value(option, "");
    const auto number = ParseInteger(text, min, max);
    if (!number) {
        *fault = "'" + text + "' is no value for " + option + " (" + std::to_string(min) + " to " +
                 std::to_string(max) + ")";
        return std::nullopt;
    }
    return static_cast<long>(*number);
}

}  // namespace kpl::cli
