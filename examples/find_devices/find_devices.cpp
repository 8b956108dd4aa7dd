// Lists the UPnP devices of the local network, each as it answers. A search ends only when it is
// stopped: here by a timer, which looks at the time and whether Ctrl-C was pressed.
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <set>
#include <string>

#include "CommandLine.h"
#include "LibraryLog.h"
#include "ParseInt.h"
#include "kpl/net/UPnPFinder.h"
#include "kpl/tools/TimerObject.h"

namespace {

using guide::CommandLine;
using guide::Fail;
using guide::ParseInt;
using kpl::net::UPnPFinder;

constexpr char kProgram[] = "find_devices";
constexpr char kHelp[] =
    "usage: find_devices [options]\n"
    "Lists the UPnP devices of the local network, each as it answers. Ctrl-C ends it early.\n"
    "options:\n"
    "  --seconds N            how long to search (5)\n"
    "  --renderers            media renderers only\n"
    "  --verbose              show the library's debug log on stderr\n";

constexpr int kMaxSeconds = 3600;
constexpr int kTicksPerSecond = 10;

std::atomic<bool> interrupted{false};

// What a device says goes to a terminal: only what can be seen of it.
std::string Visible(std::string text) {
    for (char& c : text) {
        c = c < ' ' || c > '~' ? '?' : c;
    }
    return text;
}

// A name is the device's own, "::", and what it answers for, which is what we asked for.
std::string Device(const std::string& usn) {
    return usn.substr(0, usn.find("::"));
}

// One line for each device. Answers arrive as they are: a device that answers twice comes twice,
// and where a header is missing there is something else.
class DeviceTable : public kpl::net::UPnPFinderObserver {
public:
    void OnAddDevice(const char* location, const char* usn, const char* server,
                     const char* st) override {
        (void)st;  // what we asked for
        if (!m_names.insert(usn).second) {
            return;
        }
        if (m_names.size() == 1) {
            printf("%7s  %-40s  %-41s  %s\n", "After", "Location", "Device", "Server");
        }
        const bool isAddress = strncmp(location, "http", 4) == 0;
        const std::chrono::duration<double> after = std::chrono::steady_clock::now() - m_begin;
        printf("%5.2f s  %-40s  %-41s  %s\n", after.count(),
               isAddress ? Visible(location).c_str() : "(none)", Visible(Device(usn)).c_str(),
               Visible(server).c_str());
        fflush(stdout);
    }

    void OnSearchDeviceComplete() override {}
    void OnError(int code) override { m_error = code; }

    size_t Count() const { return m_names.size(); }
    int Error() const { return m_error; }

private:
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
    std::set<std::string> m_names;
    int m_error = 0;
};

// What the timer needs to end a search.
struct SearchEnd {
    UPnPFinder* finder;
    int lastTick;
};

// On the timer's thread, ten times a second.
void StopWhenOver(void* arg, int tick) {
    const auto* const end = static_cast<SearchEnd*>(arg);
    if (tick >= end->lastTick || interrupted) {
        end->finder->Stop();
    }
}

void CatchCtrlC() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = true; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// The two halves of a search rather than Start, which first lets answers gather for ten seconds.
int Search(kpl::net::UPnPDevType type, int seconds) {
    UPnPFinder finder;
    DeviceTable table;
    finder.AddObserver(&table);
    if (!finder.SendSSDPRequest(type)) {
        return Fail(kProgram,
                    "cannot send the search: is there a network? (error " +
                        std::to_string(table.Error()) + ")",
                    guide::kFailed);
    }
    SearchEnd end{&finder, seconds * kTicksPerSecond};
    kpl::tools::TimerObject timer;
    timer.Start(1000 / kTicksPerSecond, &StopWhenOver, &end, 0, false, 0);
    finder.ReadSSDPRespond(0);  // until the timer stops it
    timer.Stop();
    if (table.Count() == 0) {
        puts("No device has answered.");
    } else {
        printf("\nDevices: %zu\n", table.Count());
    }
    return guide::kDone;
}

struct Options {
    std::string seconds = "5";
    bool onlyRenderers = false;
    bool isVerbose = false;
    bool wantsHelp = false;
};

// Returns what is wrong with the arguments; empty if nothing is.
std::string ParseOptions(int argc, const char* const* argv, Options* options) {
    CommandLine line;
    line.AddOption("--seconds", &options->seconds);
    line.AddFlag("--renderers", &options->onlyRenderers);
    line.AddFlag("--verbose", &options->isVerbose);
    line.AddFlag("--help", &options->wantsHelp);
    std::string fault = line.Parse(argc, argv);
    if (!fault.empty() || options->wantsHelp) {
        return fault;
    }
    if (!line.Words().empty()) {
        return "unexpected argument '" + line.Words()[0] + "'";
    }
    if (!ParseInt(options->seconds, 1, kMaxSeconds)) {
        return "'" + options->seconds + "' is no number of seconds (1 to " +
               std::to_string(kMaxSeconds) + ")";
    }
    return "";
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const std::string fault = ParseOptions(argc, argv, &options);
    if (!fault.empty()) {
        return Fail(kProgram, fault, guide::kUsage);
    }
    if (options.wantsHelp) {
        fputs(kHelp, stdout);
        return guide::kDone;
    }
    if (options.isVerbose) {
        guide::ShowLibraryLog();
    }
    CatchCtrlC();
    return Search(
        options.onlyRenderers ? kpl::net::UPNP_DEV_MEDIA_RENDERER : kpl::net::UPNP_DEV_ROOT,
        *ParseInt(options.seconds, 1, kMaxSeconds));
}
