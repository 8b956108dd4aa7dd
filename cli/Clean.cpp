#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include "cli/Command.h"
#include "cli/ExitCode.h"
#include "cli/PipeRoot.h"
#include "cli/Text.h"

namespace kpl::cli {

namespace {

// A server that starts has made its Root FIFO before it reads it.
constexpr long kSecondLookMs = 200;

std::vector<FifoEntry> StaleFifos(const std::map<std::string, ServerEntry>& servers) {
    std::vector<FifoEntry> stale;
    for (const auto& [name, server] : servers) {
        if (!server.IsDead()) {
            continue;
        }
        if (server.root) {
            stale.push_back(*server.root);
        }
        for (const auto& [id, connection] : server.connections) {
            if (connection.IsUnused()) {
                stale.insert(stale.end(), connection.fifos.begin(), connection.fifos.end());
            }
        }
    }
    return stale;
}

// One line of the answer, as far as it has come when the stop does.
std::string ReadAnswer(const StopSignals& stop) {
    std::string answer;
    for (;;) {
        pollfd descriptors[2] = {{STDIN_FILENO, POLLIN, 0}, {stop.Descriptor(), POLLIN, 0}};
        if (poll(descriptors, 2, -1) < 0 && errno == EINTR) {
            continue;
        }
        char character = 0;
        if (stop.IsStopped() || read(STDIN_FILENO, &character, 1) != 1 || character == '\n') {
            return answer;
        }
        answer += character;
    }
}

bool Confirm(const Invocation& invocation, size_t count) {
    invocation.out->Print("remove " + std::to_string(count) + (count == 1 ? " FIFO" : " FIFOs") +
                          "? [y/N] ");
    const std::string answer = ReadAnswer(*invocation.stop);
    return answer == "y" || answer == "Y" || answer == "yes";
}

int RemoveAll(const Invocation& invocation, const std::vector<FifoEntry>& fifos) {
    int code = kOk;
    size_t removed = 0;
    for (const FifoEntry& fifo : fifos) {
        // Between this look and the removal a server could still begin to use it. There is no
        // removing "if unused", so the time between the two is kept as short as can be.
        if (!IsStillUnused(fifo)) {
            invocation.out->Print(Printable(fifo.path) + " is in use by now, or gone: kept\n");
        } else if (unlink(fifo.path.c_str()) == 0) {
            ++removed;
        } else {
            code = Fail(kFile, "cannot remove '" + Printable(fifo.path) + "': " + strerror(errno));
        }
    }
    invocation.out->Print(std::to_string(removed) + " removed\n");
    return code;
}

}  // namespace

int RunClean(const Invocation& invocation) {
    const std::string directory =
        invocation.HasWord(0) ? invocation.Word(0) : invocation.line->Value("--root", "/tmp");
    std::map<std::string, ServerEntry> servers;
    const int error = ScanPipeRoot(directory, &servers);
    if (error != 0) {
        return Fail(kFile, "cannot read the directory '" + directory + "': " + strerror(error));
    }
    const std::vector<FifoEntry> stale = StaleFifos(servers);
    if (stale.empty()) {
        invocation.out->Print("nothing to remove in " + directory + "\n");
        return kOk;
    }
    for (const FifoEntry& fifo : stale) {
        invocation.out->Print(Printable(fifo.path) + "\n");
    }
    if (!invocation.line->Has("--yes")) {
        if (isatty(STDIN_FILENO) != 1) {
            return Fail(kRefused,
                        "nothing removed: there is no terminal to ask at; --yes removes the above");
        }
        const bool confirmed = Confirm(invocation, stale.size());
        if (invocation.stop->IsStopped()) {
            invocation.out->Print("\n");
            return Interrupted(invocation);
        }
        if (!confirmed) {
            return Fail(kRefused, "nothing removed");
        }
    }
    if (invocation.stop->Wait(kSecondLookMs)) {
        return Interrupted(invocation);
    }
    return RemoveAll(invocation, stale);
}

}  // namespace kpl::cli
