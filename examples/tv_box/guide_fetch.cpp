// Fetches a programme guide, from a file or an address, and stores it as a file for the guide
// server.
#include <stdio.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "CommandLine.h"
#include "FetchFault.h"
#include "GuideFile.h"
#include "JavaMachine.h"
#include "LibraryLog.h"
#include "kpl/parser/LineParser.h"

namespace {

using guide::CommandLine;
using guide::Fail;
using guide::Guide;

constexpr char kProgram[] = "guide_fetch";
constexpr char kHelp[] =
    "usage: guide_fetch [options] SOURCE OUT\n"
    "Stores the guide at SOURCE, a file or an http or https address, in the file OUT.\n"
    "  --java CLASSES   start a Java machine, which addresses need; the directory holds\n"
    "                   com/kapelo/net/CHttpClient.class\n"
    "  --fallback FILE  what to store when there is no guide to be had at SOURCE\n"
    "  --log DIR        write the library's debug log to files in DIR\n";

struct Options {
    std::string source;
    std::string out;
    std::string java;
    std::string fallback;
    std::string log;
    bool wantsHelp = false;
};

// Returns what is wrong with the arguments; empty if nothing is.
std::string ParseOptions(int argc, const char* const* argv, Options* options) {
    CommandLine line;
    line.AddOption("--java", &options->java);
    line.AddOption("--fallback", &options->fallback);
    line.AddOption("--log", &options->log);
    line.AddFlag("--help", &options->wantsHelp);
    std::string fault = line.Parse(argc, argv);
    if (!fault.empty() || options->wantsHelp) {
        return fault;
    }
    if (line.Words().size() != 2) {
        return "a source and a file to write are needed (--help says more)";
    }
    options->source = line.Words()[0];
    options->out = line.Words()[1];
    return "";
}

// The lines at `source`, which are a guide. Nothing, with the reason in `fault`, if they are none.
std::optional<std::string> Fetch(const std::string& source, std::string* fault) {
    kpl::parser::LineParser lines;
    if (!lines.SetContent(source.c_str())) {
        *fault = source + ": " + WhyNoLines(source.c_str());
        return std::nullopt;
    }
    std::string text;
    for (unsigned int i = 0; lines[i] != nullptr; ++i) {
        text += std::string(lines[i]) + "\n";
    }
    std::istringstream in(text);
    const std::optional<Guide> guide = guide::ReadGuide(in, source, fault);
    if (!guide) {
        return std::nullopt;
    }
    printf("%s: %d channels, %d programmes from %s\n", kProgram, guide->ChannelCount(),
           guide->ProgrammeCount(), source.c_str());
    return text;
}

// Whole or not at all: the guide server may read the file at any time.
bool Store(const std::string& text, const std::string& path) {
    const std::string unfinished = path + ".new";
    std::ofstream out(unfinished, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    return out && rename(unfinished.c_str(), path.c_str()) == 0;
}

int Run(const Options& options) {
    JavaMachine java;
    const char* const noJava = options.java.empty() ? nullptr : java.Start(options.java.c_str());
    if (noJava != nullptr) {
        Fail(kProgram, options.java + ": " + noJava, guide::kFailed);
    }
    std::string fault;
    std::optional<std::string> text = Fetch(options.source, &fault);
    if (!text && !options.fallback.empty()) {
        Fail(kProgram, fault, guide::kFailed);
        text = Fetch(options.fallback, &fault);
    }
    if (!text) {
        return Fail(kProgram, fault, guide::kFailed);
    }
    if (!Store(*text, options.out)) {
        return Fail(kProgram, "cannot write '" + options.out + "'", guide::kFailed);
    }
    return guide::kDone;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    std::string fault = ParseOptions(argc, argv, &options);
    if (!fault.empty()) {
        return Fail(kProgram, fault, guide::kUsage);
    }
    if (options.wantsHelp) {
        fputs(kHelp, stdout);
        return guide::kDone;
    }
    fault = options.log.empty() ? "" : guide::WriteLibraryLog(options.log);
    return fault.empty() ? Run(options) : Fail(kProgram, fault, guide::kFailed);
}
