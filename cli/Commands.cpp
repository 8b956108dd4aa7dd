#include <limits>

#include "cli/Command.h"

namespace kpl::cli {

namespace {

constexpr size_t kAnyNumber = std::numeric_limits<size_t>::max();

constexpr OptionInfo kRoot = {"--root", "DIR", "where the FIFOs are (/tmp)"};
constexpr OptionInfo kJson = {"--json", nullptr, "print JSON, one object a line"};
constexpr OptionInfo kVerbose = {"--verbose", nullptr, "show the library's log on stderr"};
constexpr OptionInfo kHelp = {"--help", nullptr, "print this and do nothing"};

constexpr char kCallDetails[] =
    "Calls FUNCTION in the server and prints the parameters of its result, one a line with its "
    "type.\n"
    "\n"
    "Arguments:\n"
    "  bool:true                        also false, 1, 0\n"
    "  short:-5 int:0x1f long:7         signed; long has 32 bits, as it travels\n"
    "  ushort:5 uint:5 ulong:5          unsigned; ulong has 32 bits\n"
    "  longlong:-5 ulonglong:5          64 bits\n"
    "  char:65 char:'A' uchar:200       one byte\n"
    "  double:0.5 float:nan             also inf, 1e9, 0x1p3\n"
    "  str:TEXT                         everything behind the colon\n"
    "  file:PATH                        the file's bytes as an array of one-byte elements\n"
    "  file/N:PATH                      the same, of elements of N bytes\n"
    "\n"
    "With --callbacks the call's last parameter is a callback: what the server sends there is "
    "printed\n"
    "until N have come or the time is over. The time counts from the start.\n";

constexpr char kPingDetails[] =
    "Measures round trips: calls of a function that no server has, which is answered at once with "
    "an\n"
    "empty result. Ends after N calls or with Ctrl-C, with the statistics. A server that executes "
    "a call\n"
    "of somebody else answers late: one runs after the other.\n";

constexpr char kListDetails[] =
    "Lists the servers of a pipe root and the connections of each.\n"
    "\n"
    "  alive    somebody reads its Root FIFO\n"
    "  stale    nobody does: the server was killed; `kpl-rpc clean` removes it\n"
    "  foreign  somebody else's: of another owner, no FIFO, or not to be opened\n"
    "\n"
    "A connection is open when a process has its FIFOs open. Processes of others are only seen by "
    "root.\n";

constexpr char kRecordDetails[] =
    "Serves PUBLIC_NAME, passes every connection on to the server REAL_NAME, byte by byte, and "
    "records\n"
    "what goes either way, with times, in FILE. FILE must not exist. Ctrl-C stops it.\n"
    "Start the real server under another name, and clients use the recorded one without knowing "
    "it.\n";

constexpr char kDumpDetails[] =
    "Prints the commands of a recorded file: time since the start in seconds, connection, "
    "direction\n"
    "(> to the server, < to the client), what it is, its id and function, and its parameters. "
    "Bytes that\n"
    "are no command are shown in hexadecimal.\n";

constexpr char kReplayDetails[] =
    "Sends the invokes of a recorded file again, one after the other in their order, and compares "
    "the\n"
    "results with the recorded ones. Every recorded connection becomes one of its own. What only "
    "means\n"
    "something inside one process is not compared: callback words and the pointer words of EPG "
    "lists.\n"
    "Callbacks are not compared either.\n";

constexpr char kCleanDetails[] =
    "Removes the FIFOs of a pipe root that killed processes left: Root FIFOs that nobody reads, "
    "and\n"
    "connections of theirs that nobody has open. Asks first; without a terminal it needs --yes. "
    "What is\n"
    "in use, of another owner, or no FIFO is never touched.\n";

std::vector<CommandInfo> MakeCommands() {
    const OptionInfo timeout = {"--timeout", "MS", "give up after MS milliseconds (25000)"};
    return {
        {"call",
         "SERVER FUNCTION [TYPE:VALUE...]",
         "call a function and print its result",
         kCallDetails,
         2,
         kAnyNumber,
         {kJson,
          timeout,
          {"--callbacks", "N", "offer a callback and print what it gets, N times at most"},
          kRoot,
          kVerbose,
          kHelp},
         RunCall},
        {"ping",
         "SERVER",
         "measure round trips",
         kPingDetails,
         1,
         1,
         {{"-c", "N", "stop after N calls (Ctrl-C)"},
          {"-i", "MS", "milliseconds from call to call (1000)"},
          {"--timeout", "MS", "count a call as lost after MS milliseconds (2000)"},
          kRoot,
          kVerbose,
          kHelp},
         RunPing},
        {"list",
         "[DIR]",
         "show the servers of a pipe root",
         kListDetails,
         0,
         1,
         {kRoot, kVerbose, kHelp},
         RunList},
        {"record",
         "PUBLIC_NAME REAL_NAME FILE",
         "serve a name, pass on to another and record",
         kRecordDetails,
         3,
         3,
         {kRoot, kVerbose, kHelp},
         RunRecord},
        {"dump",
         "FILE",
         "print the commands of a recorded file",
         kDumpDetails,
         1,
         1,
         {kJson, kVerbose, kHelp},
         RunDump},
        {"replay",
         "FILE SERVER",
         "send recorded calls again and compare",
         kReplayDetails,
         2,
         2,
         {timeout, kRoot, kVerbose, kHelp},
         RunReplay},
        {"clean",
         "[DIR]",
         "remove what killed servers left",
         kCleanDetails,
         0,
         1,
         {{"--yes", nullptr, "do not ask"}, kRoot, kVerbose, kHelp},
         RunClean},
    };
}

}  // namespace

const std::vector<CommandInfo>& Commands() {
    static const std::vector<CommandInfo> commands = MakeCommands();
    return commands;
}

const CommandInfo* FindCommand(const std::string& name) {
    for (const CommandInfo& command : Commands()) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

}  // namespace kpl::cli
