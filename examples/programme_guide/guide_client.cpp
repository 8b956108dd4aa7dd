// Asks a guide server and shows its answers. Without a command it shows everything that it can do.
#include <stdio.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "GuideConnection.h"
#include "GuideProtocol.h"
#include "LibraryLog.h"
#include "ParseInt.h"
#include "Utf8.h"
#include "Views.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/os/Sleep.h"

namespace {

using namespace guide;

constexpr char kProgram[] = "guide_client";
constexpr char kHelp[] =
    "usage: guide_client [options] [command]\n"
    "  now                    what is on, and what is next\n"
    "  channels               the channels, by number\n"
    "  find TEXT              programmes with this text in their title or description\n"
    "  day CHANNEL [DATE]     a channel's programmes of a day, YYYY-MM-DD (the next 24 hours);\n"
    "                         CHANNEL is its number or a part of its name\n"
    "  follow SECONDS         each programme as it starts\n"
    "  tour                   all of that (if no command is given)\n"
    "options:\n"
    "  --name NAME            the server's name (ProgrammeGuide)\n"
    "  --root DIR             where its FIFOs are (/tmp)\n"
    "  --timeout MS           how long to wait for the server, each time (2000)\n"
    "  --verbose              show the library's debug log on stderr\n";

using Words = std::vector<std::string>;

void Print(const std::string& text) {
    fputs(text.c_str(), stdout);
    fflush(stdout);
}

int NoAnswer() {
    return Fail(kProgram, "the server does not answer", kFailed);
}

int ShowNow(GuideConnection* server) {
    const auto answer = server->NowAndNext();
    if (!answer) {
        return NoAnswer();
    }
    Print("On now: " + FormatDate(answer->now) + ", " + FormatTime(answer->now) + "\n\n" +
          NowTable(answer->list.programmes, answer->now));
    return kDone;
}

int ShowChannels(GuideConnection* server) {
    const auto answer = server->ListChannels();
    if (!answer) {
        return NoAnswer();
    }
    Print(ChannelTable(answer->channels));
    return kDone;
}

int ShowFound(GuideConnection* server, const std::string& text) {
    const auto found = server->FindProgrammes(text);
    if (!found) {
        return NoAnswer();
    }
    Print("Programmes with \"" + text + "\": " + std::to_string(found->total) + "\n");
    Print(found->total > 0 ? "\n" + FoundTable(*found) : "");
    return kDone;
}

// By its number, or by a part of its name.
const Channel* FindChannel(const std::vector<Channel>& channels, const std::string& text) {
    const auto found = std::find_if(channels.begin(), channels.end(), [&](const Channel& channel) {
        return std::to_string(channel.number) == text ||
               FoldCase(channel.name).find(FoldCase(text)) != std::string::npos;
    });
    return found == channels.end() ? nullptr : &*found;
}

// What starts within `length` of `from`; without `from`, of now.
int ShowChannel(GuideConnection* server, const std::string& text, std::optional<GuideTime> from,
                GuideTime length) {
    const auto answer = server->ListChannels();
    if (!answer) {
        return NoAnswer();
    }
    const Channel* const channel = FindChannel(answer->channels, text);
    if (channel == nullptr) {
        return Fail(kProgram, "there is no channel '" + text + "'", kFailed);
    }
    const GuideTime begin = from.value_or(answer->now);
    const auto programmes = server->ListProgrammes(channel->number, begin, begin + length);
    if (!programmes) {
        return NoAnswer();
    }
    Print(channel->name + " from " + FormatTime(begin) + " on " + FormatDate(begin) + ": " +
          std::to_string(programmes->size()) + " programmes\n");
    Print(programmes->empty() ? "" : "\n" + DayTable(*programmes));
    return kDone;
}

int Follow(GuideConnection* server, int seconds) {
    constexpr int kLookMs = 100;
    Print("What starts in the next " + std::to_string(seconds) + " s\n\n");
    // The callback runs on a thread of the connection's own.
    if (!server->Follow([](const Programme& programme) { Print(StartLine(programme)); })) {
        return NoAnswer();
    }
    for (int waitedMs = 0; waitedMs < seconds * 1000; waitedMs += kLookMs) {
        if (!server->IsAlive()) {
            return Fail(kProgram, "the server has gone", kFailed);
        }
        kpl::os::osal_Sleep(kLookMs);
    }
    return kDone;
}

int Tour(GuideConnection* server) {
    const auto pause = [](int result) {
        Print("\n");
        return result;
    };
    int result = pause(ShowNow(server));
    result = result == kDone ? pause(ShowFound(server, "harbour")) : result;
    result = result == kDone ? pause(ShowFound(server, "ПОЕЗД")) : result;
    result = result == kDone ? pause(ShowChannel(server, "月見台", {}, 6 * kHour)) : result;
    return result == kDone ? Follow(server, 3) : result;
}

// A command, and how many words may follow it.
struct Command {
    const char* name;
    size_t least;
    size_t most;
    int (*run)(GuideConnection* server, const Words& words);
};

constexpr int kMaxSeconds = 86400;

constexpr Command kCommands[] = {
    {"now", 0, 0, [](GuideConnection* server, const Words&) { return ShowNow(server); }},
    {"channels", 0, 0, [](GuideConnection* server, const Words&) { return ShowChannels(server); }},
    {"find", 1, 1,
     [](GuideConnection* server, const Words& words) { return ShowFound(server, words[1]); }},
    {"day", 1, 2,
     [](GuideConnection* server, const Words& words) {
         const bool hasDate = words.size() > 2;
         return ShowChannel(server, words[1], hasDate ? ParseDate(words[2]) : std::nullopt, kDay);
     }},
    {"follow", 1, 1,
     [](GuideConnection* server, const Words& words) {
         return Follow(server, *ParseInt(words[1], 1, kMaxSeconds));
     }},
    {"tour", 0, 0, [](GuideConnection* server, const Words&) { return Tour(server); }},
};

const Command* FindCommand(const std::string& name) {
    const auto* const found =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [&](const Command& command) { return command.name == name; });
    return found == std::end(kCommands) ? nullptr : found;
}

// What is wrong with a command's words; empty if nothing is.
std::string FaultOfWords(const Command* command, const Words& words) {
    const std::string& name = words[0];
    if (command == nullptr) {
        return "unknown command '" + name + "' (--help lists them)";
    }
    if (words.size() - 1 < command->least) {
        return "'" + name + "' needs an argument (--help says which)";
    }
    if (words.size() - 1 > command->most) {
        return "unexpected argument '" + words.back() + "'";
    }
    if (name == "follow" && !ParseInt(words[1], 1, kMaxSeconds)) {
        return "'" + words[1] + "' is no number of seconds (1 to " + std::to_string(kMaxSeconds) +
               ")";
    }
    if (name == "day" && words.size() > 2 && !ParseDate(words[2])) {
        return "'" + words[2] + "' is no date (YYYY-MM-DD)";
    }
    return "";
}

struct Options {
    std::string name = kDefaultServerName;
    std::string root = "/tmp";
    std::string timeout = "2000";
    bool isVerbose = false;
    bool wantsHelp = false;
    Words words;
};

std::string ParseOptions(int argc, const char* const* argv, Options* options) {
    CommandLine line;
    line.AddOption("--name", &options->name);
    line.AddOption("--root", &options->root);
    line.AddOption("--timeout", &options->timeout);
    line.AddFlag("--verbose", &options->isVerbose);
    line.AddFlag("--help", &options->wantsHelp);
    std::string fault = line.Parse(argc, argv);
    if (!fault.empty() || options->wantsHelp) {
        return fault;
    }
    if (!ParseInt(options->timeout, 1, 600000)) {
        return "'" + options->timeout + "' is no time-out (1 to 600000 milliseconds)";
    }
    options->words = line.Words().empty() ? Words{"tour"} : line.Words();
    return FaultOfWords(FindCommand(options->words[0]), options->words);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const std::string fault = ParseOptions(argc, argv, &options);
    if (!fault.empty()) {
        return Fail(kProgram, fault, kUsage);
    }
    if (options.wantsHelp) {
        Print(kHelp);
        return kDone;
    }
    if (options.isVerbose) {
        ShowLibraryLog();
    }
    kpl::ipc::SetPipeRootPath(options.root.c_str());
    GuideConnection server(*ParseInt(options.timeout, 1, 600000));
    if (!server.Connect(options.name)) {
        return Fail(kProgram,
                    "no server '" + options.name + "' in '" + options.root + "' answers within " +
                        options.timeout + " ms",
                    kFailed);
    }
    return FindCommand(options.words[0])->run(&server, options.words);
}
