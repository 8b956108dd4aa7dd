#ifndef KPL_CLI_COMMAND_H_
#define KPL_CLI_COMMAND_H_

#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/Output.h"
#include "cli/StopSignals.h"

namespace kpl::cli {

// What a subcommand works with.
struct Invocation {
    const CommandLine* line;
    Output* out;
    StopSignals* stop;

    const std::string& Word(size_t index) const { return line->Words()[index]; }
    bool HasWord(size_t index) const { return index < line->Words().size(); }
};

// A subcommand. The table of all of them is what help, and the tests of man page and completion, go
// by.
struct CommandInfo {
    const char* name;
    const char* words;    // "SERVER FUNCTION [TYPE:VALUE...]"
    const char* summary;  // one line
    const char* details;  // whole lines
    size_t minWords;
    size_t maxWords;
    std::vector<OptionInfo> options;
    int (*run)(const Invocation& invocation);  // returns the exit code
};

const std::vector<CommandInfo>& Commands();

// Null if there is none of that name.
const CommandInfo* FindCommand(const std::string& name);

// The subcommands, one a file.
int RunCall(const Invocation& invocation);
int RunPing(const Invocation& invocation);
int RunList(const Invocation& invocation);
int RunRecord(const Invocation& invocation);
int RunDump(const Invocation& invocation);
int RunReplay(const Invocation& invocation);
int RunClean(const Invocation& invocation);

// Says on stderr what is wrong, after "kpl-rpc: ", and returns the code.
int Fail(int code, const std::string& what);

// Fail(kUsage) with a word on where the help is.
int FailUsage(const std::string& what, const char* command);

// How a subcommand ends that a signal interrupted.
int Interrupted(const Invocation& invocation);

}  // namespace kpl::cli

#endif  // KPL_CLI_COMMAND_H_
