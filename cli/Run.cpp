#include "cli/Run.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "cli/Command.h"
#include "cli/ExitCode.h"
#include "cli/Help.h"
#include "kpl/Version.h"
#include "kpl/ipc/PipePath.h"

namespace kpl::cli {

namespace {

// A standard stream that is closed would become the first file that is opened, and get our
// messages.
void FillStandardStreams() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            (void)open("/dev/null", O_RDWR);  // takes the lowest number: this one
        }
    }
}

// What is wrong with that many words; empty if nothing is.
std::string FaultOfCount(const CommandInfo& command, size_t words) {
    if (words < command.minWords) {
        return std::string("something is missing: kpl-rpc ") + command.name + " " + command.words;
    }
    return words > command.maxWords ? "too many words" : "";
}

int RunHelp(const std::vector<std::string>& words, Output* out) {
    if (words.empty()) {
        out->Print(HelpText());
        return kOk;
    }
    const CommandInfo* const command = FindCommand(words[0]);
    if (command == nullptr || words.size() > 1) {
        return FailUsage("no command '" + words[0] + "'", nullptr);
    }
    out->Print(HelpText(*command));
    return kOk;
}

int RunCommand(const CommandInfo& command, const std::vector<std::string>& arguments, Output* out,
               StopSignals* stop, void (*showLog)()) {
    CommandLine line;
    std::string fault = line.Parse(arguments, command.options);
    if (fault.empty() && line.Has("--help")) {
        out->Print(HelpText(command));
        return kOk;
    }
    if (fault.empty()) {
        fault = FaultOfCount(command, line.Words().size());
    }
    if (fault.empty() && line.Has("--root") && line.Value("--root", "").empty()) {
        fault = "option '--root' needs a directory";
    }
    if (!fault.empty()) {
        return FailUsage(fault, command.name);
    }
    if (line.Has("--verbose")) {
        showLog();
    }
    ipc::SetPipeRootPath(line.Value("--root", "/tmp").c_str());
    return command.run({&line, out, stop});
}

int Dispatch(const std::vector<std::string>& arguments, Output* out, StopSignals* stop,
             void (*showLog)()) {
    if (arguments.empty()) {
        return FailUsage("no command given", nullptr);
    }
    const std::string& name = arguments[0];
    const std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
    if (name == "--version") {
        out->Print("kpl-rpc " KPL_VERSION "\n");
        return kOk;
    }
    if (name == "help" || name == "--help" || name == "-h") {
        return RunHelp(rest, out);
    }
    const CommandInfo* const command = FindCommand(name);
    if (command == nullptr) {
        return FailUsage("no command '" + name + "'", nullptr);
    }
    return RunCommand(*command, rest, out, stop, showLog);
}

}  // namespace

int Run(const std::vector<std::string>& arguments, void (*showLog)()) {
    FillStandardStreams();
    signal(SIGPIPE, SIG_IGN);  // A reader of ours that has gone shows as EPIPE.
    StopSignals stop;
    Output out(STDOUT_FILENO, &stop);
    const int code = Dispatch(arguments, &out, &stop, showLog);
    if (out.Error() != 0) {
        return Fail(kFile, std::string("cannot write the output: ") + strerror(out.Error()));
    }
    return code;
}

}  // namespace kpl::cli
