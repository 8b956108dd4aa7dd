// Help, man page and completion are written by hand; here they are held together.
#include "cli/Help.h"

#include <stdlib.h>

#include <regex>
#include <set>

#include "kpl/Version.h"
#include "tests/cli/Tool.h"

namespace {

using namespace kpl::cli;
using kpl::test::ProgramResult;
using kpl::test::ReadWhole;
using kpl::test::SourcePath;
using kpl::test::ToolTest;
using Names = std::set<std::string>;

class HelpTest : public ToolTest {
protected:
    static void ExpectOutput(const Words& words, const std::string& output) {
        const ProgramResult result = RunBare(words);
        EXPECT_EQ(0, result.code);
        EXPECT_EQ(output, result.output);
        EXPECT_EQ("", result.errors);
    }
};

Names CommandNames() {
    Names names = {"help"};
    for (const CommandInfo& command : Commands()) {
        names.insert(command.name);
    }
    return names;
}

Names OptionNames(const CommandInfo& command) {
    Names names;
    for (const OptionInfo& option : command.options) {
        names.insert(option.name);
    }
    return names;
}

Names Matches(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    Names names;
    for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at) {
        names.insert((*at)[1]);
    }
    return names;
}

Names Split(const std::string& text) {
    return Matches(text, "(\\S+)");
}

// What stands between two strings, each of which must be there.
std::string Between(const std::string& text, const std::string& from, const std::string& to) {
    const size_t start = text.find(from);
    EXPECT_NE(std::string::npos, start) << from;
    if (start == std::string::npos) {
        return "";
    }
    const size_t begin = start + from.size();
    return text.substr(begin, text.find(to, begin) - begin);
}

std::string ManPage() {
    return ReadWhole(SourcePath("docs/man/kpl-rpc.1"));
}

// The part of the man page about one command, with \- as it is typed.
std::string ManPart(const CommandInfo& command) {
    const std::string part =
        Between(ManPage(), std::string("\n.SS ") + command.name + "\n", "\n.S");
    return std::regex_replace(part, std::regex("\\\\-"), "-");
}

TEST_F(HelpTest, PrintsTheCommands) {
    ExpectOutput({"help"}, HelpText());
    ExpectOutput({"--help"}, HelpText());
    for (const CommandInfo& command : Commands()) {
        EXPECT_NE(std::string::npos, HelpText().find(std::string("\n  ") + command.name + " "));
    }
}

TEST_F(HelpTest, EveryCommandHasItsOwnHelp) {
    for (const CommandInfo& command : Commands()) {
        ExpectOutput({"help", command.name}, HelpText(command));
        ExpectOutput({command.name, "--help"}, HelpText(command));
        const std::string options = Between(HelpText(command), "\noptions:\n", "\nexit codes:");
        EXPECT_EQ(OptionNames(command), Matches(options, "(?:^|\n)  (-\\S+)")) << command.name;
    }
}

TEST_F(HelpTest, EveryHelpHasTheExitCodes) {
    for (const ExitCodeInfo& row : ExitCodes()) {
        const std::string line = std::string("  ") + row.code;
        EXPECT_NE(std::string::npos, HelpText().find(line));
        EXPECT_NE(std::string::npos, HelpText(Commands()[0]).find(row.meaning));
    }
}

TEST_F(HelpTest, PrintsTheVersion) {
    ExpectOutput({"--version"}, "kpl-rpc " KPL_VERSION "\n");
}

TEST_F(HelpTest, NoLineIsWiderThanATerminal) {
    for (const CommandInfo& command : Commands()) {
        for (const std::string& line : kpl::test::Lines(HelpText(command))) {
            EXPECT_LE(line.size(), 100u) << line;
        }
    }
}

TEST_F(HelpTest, WhatIsNoCommandIsSaid) {
    const auto expect = [](const std::vector<std::string>& words, const std::string& error) {
        const ProgramResult result = RunBare(words);
        EXPECT_EQ(2, result.code);
        EXPECT_EQ("", result.output);
        EXPECT_EQ("kpl-rpc: " + error + "; see `kpl-rpc help`\n", result.errors);
    };
    expect({}, "no command given");
    expect({"cal"}, "no command 'cal'");
    expect({"help", "cal"}, "no command 'cal'");
}

TEST_F(HelpTest, AnUnknownOptionIsSaidByEveryCommand) {
    for (const CommandInfo& command : Commands()) {
        const ProgramResult result = RunBare({command.name, "--nope"});
        EXPECT_EQ(2, result.code);
        EXPECT_EQ(std::string("kpl-rpc: unknown option '--nope'; see `kpl-rpc help ") +
                      command.name + "`\n",
                  result.errors);
    }
}

TEST_F(HelpTest, TheManPageNamesTheSameCommandsAndOptions) {
    Names commands = Matches(ManPage(), "\n\\.SS (\\S+)");
    commands.insert("help");
    EXPECT_EQ(CommandNames(), commands);
    for (const CommandInfo& command : Commands()) {
        EXPECT_EQ(OptionNames(command), Matches(ManPart(command), "\n\\.BR? (-\\S+)"))
            << command.name;
    }
}

TEST_F(HelpTest, TheManPageHasTheSameExitCodes) {
    const std::string part = Between(ManPage(), "\n.SH EXIT STATUS\n", "\n.SH");
    for (const ExitCodeInfo& row : ExitCodes()) {
        const std::string entry = std::string("\n.B ") + row.code + "\n" + row.meaning;
        EXPECT_NE(std::string::npos, part.find(entry)) << entry;
    }
}

TEST_F(HelpTest, TheManPageIsOfThisVersion) {
    EXPECT_NE(std::string::npos, ManPage().find("\"libKplFramework " KPL_VERSION "\""));
}

TEST_F(HelpTest, BashCompletionNamesTheSame) {
    const std::string script = ReadWhole(SourcePath("cli/completion/kpl-rpc.bash"));
    Names commands = CommandNames();
    commands.insert("--version");
    EXPECT_EQ(commands, Split(Between(script, "commands=\"", "\"")));
    for (const CommandInfo& command : Commands()) {
        const std::string line =
            Between(script, std::string("\n    ") + command.name + ") options=\"", "\"");
        EXPECT_EQ(OptionNames(command), Split(line)) << command.name;
    }
}

// Whoever may write into the pipe root may choose them.
TEST_F(HelpTest, NamesOfServersAreNotExecutedByTheCompletion) {
    MakeFifo("Foo$(touch executed)Root");
    MakeFifo("BarRoot");
    const std::string script = "source " + SourcePath("cli/completion/kpl-rpc.bash") + "; cd " +
                               m_files.Path() + "; COMP_WORDS=(kpl-rpc call --root " +
                               m_root.Path() + " F); COMP_CWORD=4; _kpl_rpc; " +
                               "printf '%s\\n' \"${COMPREPLY[@]}\" >names";
    const std::string path = WriteFile("script", script);
    EXPECT_EQ(0, system(("bash " + path).c_str()));
    EXPECT_EQ("Foo\\$\\(touch\\ executed\\)\n", ReadWhole(m_files.Path() + "/names"));
    EXPECT_EQ((std::vector<std::string>{"names", "script"}), m_files.Entries());
}

TEST_F(HelpTest, ZshCompletionNamesTheSame) {
    const std::string script = ReadWhole(SourcePath("cli/completion/_kpl-rpc"));
    const std::string list = Between(script, "commands=(\n", "\n    )");
    Names commands = CommandNames();
    commands.insert("--version");
    EXPECT_EQ(commands, Matches(list, "'([^:']+):"));
    for (const CommandInfo& command : Commands()) {
        const std::string part =
            Between(script, std::string("\n    ") + command.name + ")\n", ";;");
        EXPECT_EQ(OptionNames(command), Matches(part, "'(-[^\\[']+)\\[")) << command.name;
    }
}

}  // namespace
