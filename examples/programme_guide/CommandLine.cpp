#include "CommandLine.h"

#include <stdio.h>

namespace guide {

void CommandLine::AddOption(const std::string& name, std::string* value) {
    m_options.push_back({name, value, nullptr});
}

void CommandLine::AddFlag(const std::string& name, bool* flag) {
    m_options.push_back({name, nullptr, flag});
}

std::string CommandLine::Parse(int argc, const char* const* argv) {
    bool onlyWords = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (onlyWords || argument.compare(0, 1, "-") != 0) {
            m_words.push_back(argument);
            continue;
        }
        if (argument == "--") {
            onlyWords = true;
            continue;
        }
        const Option* const option = Find(argument);
        if (option == nullptr) {
            return "unknown option '" + argument + "' (--help lists them)";
        }
        if (option->flag != nullptr) {
            *option->flag = true;
        } else if (++i < argc) {
            *option->value = argv[i];
        } else {
            return "option '" + argument + "' needs a value";
        }
    }
    return "";
}

const CommandLine::Option* CommandLine::Find(const std::string& name) const {
    for (const Option& option : m_options) {
        if (option.name == name) {
            return &option;
        }
    }
    return nullptr;
}

int Fail(const char* program, const std::string& what, ExitCode code) {
    fprintf(stderr, "%s: %s\n", program, what.c_str());
    return code;
}

}  // namespace guide
