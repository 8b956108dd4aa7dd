#include "cli/Help.h"

namespace kpl::cli {

namespace {

// Two columns; the second begins at `width`.
std::string Row(const std::string& left, const char* right, size_t width) {
    const size_t gap = left.size() < width ? width - left.size() : 1;
    return "  " + left + std::string(gap, ' ') + right + "\n";
}

std::string OptionName(const OptionInfo& option) {
    return option.value != nullptr ? std::string(option.name) + " " + option.value : option.name;
}

std::string ExitCodeRows() {
    std::string text = "\nexit codes:\n";
    for (const ExitCodeInfo& row : ExitCodes()) {
        text += Row(row.code, row.meaning, 7);
    }
    return text;
}

}  // namespace

const std::vector<ExitCodeInfo>& ExitCodes() {
    static const std::vector<ExitCodeInfo> codes = {
        {"0", "all went well"},
        {"1", "the answer is empty, or differs from the recorded one"},
        {"2", "the command line is wrong"},
        {"3", "there is no such server"},
        {"4", "no answer came in time"},
        {"5", "the server went away"},
        {"6", "a file or directory cannot be used"},
        {"7", "refused: it would do harm, or was not confirmed"},
        {"128+n", "ended by signal n"},
    };
    return codes;
}

std::string HelpText() {
    std::string text =
        "usage: kpl-rpc COMMAND [arguments]\n"
        "Talks to servers of libKplFramework over their FIFOs, and watches them.\n"
        "\ncommands:\n";
    for (const CommandInfo& command : Commands()) {
        text += Row(command.name, command.summary, 10);
    }
    text += Row("help", "print this, or with a command, what that does", 10);
    text += Row("--version", "print the version", 10);
    return text + ExitCodeRows();
}

std::string HelpText(const CommandInfo& command) {
    std::string text = std::string("usage: kpl-rpc ") + command.name + " [options] " +
                       command.words + "\n" + command.details + "\noptions:\n";
    for (const OptionInfo& option : command.options) {
        text += Row(OptionName(option), option.help, 15);
    }
    return text + ExitCodeRows();
}

}  // namespace kpl::cli
