#include "cli/PipeRoot.h"

#include <limits.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "cli/Directory.h"
#include "cli/Text.h"

namespace kpl::cli {

namespace {

constexpr char kRootSuffix[] = "Root";
constexpr const char* kSides[] = {"Server", "Client"};

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() > end.size() &&
           text.compare(text.size() - end.size(), std::string::npos, end) == 0;
}

std::optional<FifoName> ParseConnectionName(const std::string& name) {
    const size_t last = name.find_last_not_of("0123456789");
    if (last == std::string::npos || last + 1 == name.size()) {
        return std::nullopt;
    }
    const std::string digits = name.substr(last + 1);
    const auto id = ParseUnsigned(digits, INT_MAX);
    if (!id || std::to_string(*id) != digits) {  // no leading zeros
        return std::nullopt;
    }
    const std::string stem = name.substr(0, last + 1);
    for (const char* side : kSides) {
        if (EndsWith(stem, side)) {
            return FifoName{stem.substr(0, stem.size() - strlen(side)), static_cast<int>(*id)};
        }
    }
    return std::nullopt;
}

}  // namespace

bool ConnectionEntry::IsOpen() const {
    return std::any_of(fifos.begin(), fifos.end(),
                       [](const FifoEntry& fifo) { return fifo.state == FifoState::Used; });
}

bool ConnectionEntry::IsUnused() const {
    return std::all_of(fifos.begin(), fifos.end(), [](const FifoEntry& fifo) {
        return fifo.state == FifoState::Unused && fifo.users.empty();
    });
}

std::vector<FifoUser> ConnectionEntry::Users() const {
    std::map<pid_t, FifoUser> users;
    for (const FifoEntry& fifo : fifos) {
        for (const FifoUser& user : fifo.users) {
            users[user.pid] = user;
        }
    }
    std::vector<FifoUser> list;
    list.reserve(users.size());
    for (const auto& [pid, user] : users) {
        list.push_back(user);
    }
    return list;
}

std::optional<FifoName> ParseFifoName(const std::string& name) {
    if (EndsWith(name, kRootSuffix)) {
        return FifoName{name.substr(0, name.size() - strlen(kRootSuffix)), -1};
    }
    return ParseConnectionName(name);
}

int ScanPipeRoot(const std::string& directory, std::map<std::string, ServerEntry>* servers) {
    std::vector<std::string> names;
    const int error = ListDirectory(directory, &names);
    if (error != 0) {
        return error;
    }
    const OpenFifos open = OpenFifos::Look();
    std::vector<std::pair<FifoName, std::string>> connections;
    for (const std::string& name : names) {
        std::string path = directory;
        path.append("/").append(name);
        const std::optional<FifoName> parsed = ParseFifoName(name);
        if (parsed && parsed->connection >= 0) {
            connections.emplace_back(*parsed, std::move(path));
        } else if (parsed) {
            FifoEntry root = LookAtFifo(path, open, Probe::Yes);
            if (root.state != FifoState::Gone) {
                (*servers)[parsed->server].root = std::move(root);
            }
        }
    }
    for (const auto& [name, path] : connections) {
        const auto server = servers->find(name.server);
        // To try a FIFO of a connection that is just being opened could pass for its other end. A
        // dead server has none of those.
        const bool dead = server == servers->end() || server->second.IsDead();
        FifoEntry fifo = LookAtFifo(path, open, dead ? Probe::Yes : Probe::No);
        // A plain file of such a name has nothing to do with servers.
        if (S_ISFIFO(fifo.status.st_mode) && fifo.state != FifoState::Gone) {
            (*servers)[name.server].connections[name.connection].fifos.push_back(std::move(fifo));
        }
    }
    return 0;
}

}  // namespace kpl::cli
