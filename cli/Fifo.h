#ifndef KPL_CLI_FIFO_H_
#define KPL_CLI_FIFO_H_

#include <sys/stat.h>

#include <string>
#include <vector>

#include "cli/OpenFifos.h"

namespace kpl::cli {

enum class FifoState {
    Used,     // somebody reads it
    Unused,   // nobody does
    Foreign,  // not ours to judge: another owner, no FIFO, no permission
    Gone,     // removed meanwhile
};

// A FIFO of a pipe root, as it was when looked at.
struct FifoEntry {
    std::string path;
    FifoState state = FifoState::Gone;
    std::string note;  // why it is foreign
    struct stat status = {};
    std::vector<FifoUser> users;
};

// Whether that state is found by looking into /proc only, or also by trying the FIFO.
enum class Probe { No, Yes };

// Looks at what is there under the path. Symbolic links are not followed.
FifoEntry LookAtFifo(const std::string& path, const OpenFifos& open, Probe probe);

// Whether nobody reads the FIFO of that entry, still: for a look right before it is removed.
bool IsStillUnused(const FifoEntry& entry);

}  // namespace kpl::cli

#endif  // KPL_CLI_FIFO_H_
