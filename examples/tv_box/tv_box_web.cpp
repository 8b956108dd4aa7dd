// The web front of the box: what is on, fed by a guide server, and the devices on the network.
#include <signal.h>
#include <stdio.h>

#include <optional>
#include <string>

#include "BoxServer.h"
#include "BoxState.h"
#include "CommandLine.h"
#include "DeviceSearch.h"
#include "GuideProtocol.h"
#include "GuideWatcher.h"
#include "LibraryLog.h"
#include "ParseInt.h"
#include "kpl/ipc/PipePath.h"

namespace {

using namespace tv_box;
using guide::CommandLine;
using guide::Fail;
using guide::ParseInt;

constexpr char kProgram[] = "tv_box_web";
constexpr char kHelp[] =
    "usage: tv_box_web [options]\n"
    "  --port N       where to listen (8088); 0: the system chooses\n"
    "  --public       serve other machines too; otherwise only this one\n"
    "  --name NAME    the guide server's name (ProgrammeGuide)\n"
    "  --root DIR     where its FIFOs are (/tmp)\n"
    "  --timeout MS   how long to wait for it, each time (2000)\n"
    "  --source TEXT  where the guide comes from, for the page\n"
    "  --discover     search the local network for UPnP devices, which sends multicasts\n"
    "  --search MS    how long one search takes (30000)\n"
    "  --log DIR      write the library's debug log to files in DIR\n"
    "It ends on SIGTERM and SIGINT.\n";

constexpr int kMaxMs = 600000;

struct Options {
    std::string port = "8088";
    std::string name = guide::kDefaultServerName;
    std::string root = "/tmp";
    std::string timeout = "2000";
    std::string source = "a guide server";
    std::string search = "30000";
    std::string log;
    bool isPublic = false;
    bool discovers = false;
    bool wantsHelp = false;
};

// Returns what is wrong with the arguments; empty if nothing is.
std::string ParseOptions(int argc, const char* const* argv, Options* options) {
    CommandLine line;
    line.AddOption("--port", &options->port);
    line.AddFlag("--public", &options->isPublic);
    line.AddOption("--name", &options->name);
    line.AddOption("--root", &options->root);
    line.AddOption("--timeout", &options->timeout);
    line.AddOption("--source", &options->source);
    line.AddFlag("--discover", &options->discovers);
    line.AddOption("--search", &options->search);
    line.AddOption("--log", &options->log);
    line.AddFlag("--help", &options->wantsHelp);
    std::string fault = line.Parse(argc, argv);
    if (!fault.empty() || options->wantsHelp) {
        return fault;
    }
    if (!line.Words().empty()) {
        return "unexpected argument '" + line.Words().front() + "'";
    }
    if (!ParseInt(options->port, 0, 65535)) {
        return "'" + options->port + "' is no port (0 to 65535)";
    }
    for (const std::string& time : {options->timeout, options->search}) {
        if (!ParseInt(time, 1, kMaxMs)) {
            return "'" + time + "' is no time (1 to " + std::to_string(kMaxMs) + " milliseconds)";
        }
    }
    return "";
}

// The signals that end the program, blocked in every thread for sigwait.
sigset_t BlockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

int Serve(const Options& options) {
    const sigset_t stopSignals = BlockStopSignals();  // before there is a second thread
    BoxState state(options.source);
    BoxServerOptions serverOptions;
    serverOptions.port = static_cast<unsigned int>(*ParseInt(options.port, 0, 65535));
    serverOptions.servesOthers = options.isPublic;
    // All that write the state or answer from it end before it does.
    BoxServer server(serverOptions, &state);
    GuideWatcher watcher(options.name, *ParseInt(options.timeout, 1, kMaxMs), &state);
    DeviceSearch search(*ParseInt(options.search, 1, kMaxMs), &state);
    if (!server.Start()) {
        return Fail(kProgram, "cannot have port " + options.port, guide::kFailed);
    }
    if (!watcher.Start() || (options.discovers && !search.Start())) {
        return Fail(kProgram, "cannot start a thread", guide::kFailed);
    }
    printf("%s: http://127.0.0.1:%d/\n", kProgram, server.GetListeningPort());
    fflush(stdout);
    int signal = 0;
    sigwait(&stopSignals, &signal);
    search.Stop();
    watcher.Stop();
    server.StopServer();
    printf("%s: stopped\n", kProgram);
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
    if (!fault.empty()) {
        return Fail(kProgram, fault, guide::kFailed);
    }
    kpl::ipc::SetPipeRootPath(options.root.c_str());
    return Serve(options);
}
