// Serves a programme guide: what is on, what comes next, a search, and a callback whenever a
// programme starts.
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <optional>
#include <string>

#include "CommandLine.h"
#include "GuideFile.h"
#include "GuideService.h"
#include "LibraryLog.h"
#include "ParseInt.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcServer.h"

namespace {

using namespace guide;

constexpr char kProgram[] = "guide_server";
constexpr char kHelp[] =
    "usage: guide_server --guide FILE [options]\n"
    "  --guide FILE     the programmes; examples/data/guide.tsv says how they are written\n"
    "  --name NAME      what clients connect to (ProgrammeGuide)\n"
    "  --root DIR       where the FIFOs are made (/tmp)\n"
    "  --start TIME     when it is at first, YYYY-MM-DD HH:MM (when the guide begins)\n"
    "  --speed N        how many times as fast as ours its clock runs (1)\n"
    "  --log DIR        write the library's debug log to files in DIR\n"
    "  --verbose        show the library's debug log on stderr\n"
    "It ends on SIGTERM and SIGINT.\n";

struct Options {
    std::string guide;
    std::string name = kDefaultServerName;
    std::string root = "/tmp";
    std::string start;
    std::string speed = "1";
    std::string log;
    bool isVerbose = false;
    bool wantsHelp = false;
};

std::string ParseOptions(int argc, const char* const* argv, Options* options) {
    CommandLine line;
    line.AddOption("--guide", &options->guide);
    line.AddOption("--name", &options->name);
    line.AddOption("--root", &options->root);
    line.AddOption("--start", &options->start);
    line.AddOption("--speed", &options->speed);
    line.AddOption("--log", &options->log);
    line.AddFlag("--verbose", &options->isVerbose);
    line.AddFlag("--help", &options->wantsHelp);
    std::string fault = line.Parse(argc, argv);
    if (!fault.empty() || options->wantsHelp) {
        return fault;
    }
    if (!line.Words().empty()) {
        return "unexpected argument '" + line.Words().front() + "'";
    }
    if (!ParseInt(options->speed, 1, GuideClock::kMaxSpeed)) {
        return "'" + options->speed + "' is no speed (1 to " +
               std::to_string(GuideClock::kMaxSpeed) + ")";
    }
    if (!options->start.empty() && !ParseTime(options->start)) {
        return "'" + options->start + "' is no time (YYYY-MM-DD HH:MM)";
    }
    return options->guide.empty() ? "no guide file given (--guide FILE)" : "";
}

// Why no server can run under that name and there; empty if one may. RpcServer::Start would only
// say false.
std::string FaultOfPlace(const Options& options) {
    constexpr size_t kMaxPath = 255;
    struct stat status = {};
    if (stat(options.root.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return "pipe root '" + options.root + "' is no directory";
    }
    if (options.name.empty() || options.name.find('/') != std::string::npos) {
        return "'" + options.name + "' is no server name";
    }
    kpl::ipc::SetPipeRootPath(options.root.c_str());
    std::string path(options.root.size() + options.name.size() + 32, '\0');
    kpl::ipc::GetPipeServerPath(options.name.c_str(), INT_MAX, path.data(),
                                static_cast<int>(path.size()));
    const size_t length = strlen(path.c_str());
    return length <= kMaxPath
               ? ""
               : "the server's name is too long: its FIFO paths would take " +
                     std::to_string(length) + " characters of " + std::to_string(kMaxPath);
}

// The signals that end the server. Blocked in every thread, they wait until sigwait takes one; so
// no handler is needed, in which hardly anything would be allowed.
sigset_t BlockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

int Serve(const Guide& guide, const GuideClock& clock, const Options& options) {
    const sigset_t stopSignals = BlockStopSignals();  // before there is a second thread
    StartAnnouncer announcer(guide, clock);
    GuideService service(guide, clock, &announcer);
    kpl::rpc::RpcFunctionTable table;
    service.BindTo(&table);
    kpl::rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    kpl::rpc::RpcServer server;
    const bool started = announcer.Start() && server.Start(options.name.c_str(), nullptr);
    if (started) {
        printf("%s: '%s' is ready: %d channels, %d programmes, %s, %s, speed %s\n", kProgram,
               options.name.c_str(), guide.ChannelCount(), guide.ProgrammeCount(),
               FormatDate(clock.Now()).c_str(), FormatTime(clock.Now()).c_str(),
               options.speed.c_str());
        fflush(stdout);
        int signal = 0;
        sigwait(&stopSignals, &signal);
    }
    // In this order: once the connections are gone, no function runs that uses the announcer.
    server.Stop();
    announcer.Stop();
    kpl::rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
    if (!started) {
        return Fail(kProgram, "cannot make a FIFO in '" + options.root + "'", kFailed);
    }
    printf("%s: stopped\n", kProgram);
    return kDone;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    std::string fault = ParseOptions(argc, argv, &options);
    if (!fault.empty()) {
        return Fail(kProgram, fault, kUsage);
    }
    if (options.wantsHelp) {
        fputs(kHelp, stdout);
        return kDone;
    }
    fault = FaultOfPlace(options);
    if (!fault.empty()) {
        return Fail(kProgram, fault, kFailed);
    }
    const std::optional<Guide> guide = LoadGuide(options.guide, &fault);
    if (!guide) {
        return Fail(kProgram, fault, kFailed);
    }
    if (options.log.empty() || options.isVerbose) {
        ShowLibraryLog(options.isVerbose);
    }
    fault = options.log.empty() ? "" : WriteLibraryLog(options.log);
    if (!fault.empty()) {
        return Fail(kProgram, fault, kFailed);
    }
    const GuideClock clock(ParseTime(options.start).value_or(guide->Begin()),
                           *ParseInt(options.speed, 1, GuideClock::kMaxSpeed));
    return Serve(*guide, clock, options);
}
