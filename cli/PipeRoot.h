#ifndef KPL_CLI_PIPEROOT_H_
#define KPL_CLI_PIPEROOT_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/Fifo.h"

namespace kpl::cli {

// A connection: its FIFOs, one or two of them.
struct ConnectionEntry {
    std::vector<FifoEntry> fifos;

    // Whether somebody reads one of them, whether nobody reads any, as far as it could be seen.
    bool IsOpen() const;
    bool IsUnused() const;

    // The processes that have one of them open.
    std::vector<FifoUser> Users() const;
};

struct ServerEntry {
    std::optional<FifoEntry> root;  // none: only connections are left
    std::map<int, ConnectionEntry> connections;

    // No Root FIFO, or one that nobody reads.
    bool IsDead() const { return !root || root->state == FifoState::Unused; }
};

// A file name of a pipe root taken apart.
struct FifoName {
    std::string server;
    int connection;  // -1: the Root FIFO
};

// Nothing for a name that no FIFO of the library has.
std::optional<FifoName> ParseFifoName(const std::string& name);

// The servers of a pipe root by name. Returns 0, or the errno of what failed.
int ScanPipeRoot(const std::string& directory, std::map<std::string, ServerEntry>* servers);

}  // namespace kpl::cli

#endif  // KPL_CLI_PIPEROOT_H_
