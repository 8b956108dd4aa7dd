#include "cli/Connect.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "cli/ExitCode.h"
#include "cli/Text.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcClient.h"

namespace kpl::cli {

namespace {

// A server that has just started makes its FIFO a moment before it reads it.
int OpenRead(const std::string& path) {
    constexpr long kPatienceMs = 500;
    constexpr timespec kPause = {0, 5000000};
    const TimeLimit limit(kPatienceMs);
    for (;;) {
        const int descriptor = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (descriptor != -1 || errno != ENXIO || limit.LeftMs() == 0) {
            return descriptor;
        }
        nanosleep(&kPause, nullptr);
    }
}

}  // namespace

RootProbe::RootProbe(const std::string& directory, const std::string& server) : m_descriptor(-1) {
    const std::string path = directory + "/" + server + "Root";
    const std::string name = "server '" + Printable(server) + "'";
    m_descriptor = OpenRead(path);
    struct stat status {};
    if (m_descriptor != -1 && (fstat(m_descriptor, &status) != 0 || !S_ISFIFO(status.st_mode))) {
        close(m_descriptor);
        m_descriptor = -1;
        m_fault = "no " + name + ": " + path + " is no FIFO";
    } else if (m_descriptor == -1 && errno == ENOENT) {
        m_fault = "no " + name + " in " + directory + "; `kpl-rpc list " + directory +
                  "` shows the ones there are";
    } else if (m_descriptor == -1 && errno == ENXIO) {
        m_fault = name + " has gone without removing its FIFO; start it again, or `kpl-rpc clean " +
                  directory + "` removes what it left";
    } else if (m_descriptor == -1) {
        m_fault = "cannot reach " + name + ": " + path + ": " + strerror(errno);
    }
}

RootProbe::~RootProbe() {
    if (m_descriptor != -1) {
        close(m_descriptor);
    }
}

std::string FaultOfName(const std::string& directory, const std::string& server) {
    constexpr size_t kMaxPath = 255;
    if (server.empty() || server.find('/') != std::string::npos) {
        return "'" + server + "' is no server name";
    }
    const std::string longest = directory + "/" + server + "Server" + std::to_string(INT_MAX);
    return longest.size() <= kMaxPath
               ? ""
               : "the server's name is too long: its FIFO paths would take " +
                     std::to_string(longest.size()) + " characters of " + std::to_string(kMaxPath);
}

int Connect(const Invocation& invocation, rpc::RpcClient* client, const std::string& server,
            long timeoutMs) {
    const std::string directory = RootOf(invocation);
    const std::string fault = FaultOfName(directory, server);
    if (!fault.empty()) {
        return Fail(kUsage, fault);
    }
    const RootProbe root(directory, server);
    if (!root.IsAlive()) {
        return Fail(kNoServer, root.Fault());
    }
    if (invocation.stop->IsStopped()) {
        return Interrupted(invocation);
    }
    const TimeLimit limit(timeoutMs);
    if (client->Connect(server.c_str(), nullptr, timeoutMs)) {
        return kOk;
    }
    if (invocation.stop->IsStopped()) {
        return Interrupted(invocation);
    }
    if (limit.IsFarOff()) {
        return Fail(kGone, "server '" + Printable(server) +
                               "' did not take the connection; `kpl-rpc list " + directory +
                               "` shows whether it is still there");
    }
    return Fail(kNoAnswer, "server '" + Printable(server) +
                               "' did not take the connection within " + std::to_string(timeoutMs) +
                               " ms; it may hang, or be busy opening another one");
}

int FailedCall(const Invocation& invocation, const rpc::RpcClient& client, const TimeLimit& limit,
               const std::string& server, long timeoutMs) {
    if (invocation.stop->IsStopped()) {
        return Interrupted(invocation);
    }
    // The end of the stream may not have been read yet where a write has failed already.
    if (!client.IsAlive() || limit.IsFarOff()) {
        return Fail(kGone, "server '" + Printable(server) + "' went away; `kpl-rpc list " +
                               RootOf(invocation) + "` shows whether it is back");
    }
    return Fail(kNoAnswer, "no answer from '" + Printable(server) + "' within " +
                               std::to_string(timeoutMs) +
                               " ms; --timeout waits longer, `kpl-rpc ping` shows whether it "
                               "answers at all");
}

std::string RootOf(const Invocation& invocation) {
    return invocation.line->Value("--root", "/tmp");
}

}  // namespace kpl::cli
