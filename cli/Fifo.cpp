#include "cli/Fifo.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>

namespace kpl::cli {

namespace {

std::string OwnerName(uid_t owner) {
    // The only call of its kind, on the main thread.
    const passwd* const entry = getpwuid(owner);
    return entry != nullptr ? entry->pw_name : std::to_string(owner);
}

FifoEntry Foreign(FifoEntry entry, const std::string& note) {
    entry.state = FifoState::Foreign;
    entry.note = note;
    return entry;
}

// Opening it for writing says whether somebody reads: ENXIO if not, and then nothing was touched.
// If somebody does, closing it again is an end of file to a server whose Root FIFO it is. Its
// accept step takes that for a client that went away without a word, and no other client can be
// lost by it. So this comes only after /proc had nothing to say, and never to the FIFO of another
// owner.
FifoState Try(const std::string& path, const struct stat& expected) {
    const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd == -1) {
        switch (errno) {
            case ENXIO:
                return FifoState::Unused;
            case ENOENT:
                return FifoState::Gone;
            default:
                return FifoState::Foreign;
        }
    }
    struct stat status {};
    const bool same = fstat(fd, &status) == 0 && status.st_dev == expected.st_dev &&
                      status.st_ino == expected.st_ino;
    close(fd);
    return same ? FifoState::Used : FifoState::Gone;
}

}  // namespace

FifoEntry LookAtFifo(const std::string& path, const OpenFifos& open, Probe probe) {
    FifoEntry entry;
    entry.path = path;
    if (lstat(path.c_str(), &entry.status) != 0) {
        return entry;
    }
    if (!S_ISFIFO(entry.status.st_mode)) {
        return Foreign(entry, "no FIFO");
    }
    entry.users = open.UsersOf(entry.status);
    if (entry.status.st_uid != geteuid()) {
        return Foreign(entry, "of " + OwnerName(entry.status.st_uid));
    }
    const bool isRead = std::any_of(entry.users.begin(), entry.users.end(),
                                    [](const FifoUser& user) { return user.reads; });
    if (isRead) {
        entry.state = FifoState::Used;
        return entry;
    }
    entry.state = probe == Probe::Yes ? Try(path, entry.status) : FifoState::Unused;
    return entry.state == FifoState::Foreign ? Foreign(entry, "no permission") : entry;
}

bool IsStillUnused(const FifoEntry& entry) {
    struct stat status {};
    return lstat(entry.path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode) &&
           status.st_dev == entry.status.st_dev && status.st_ino == entry.status.st_ino &&
           Try(entry.path, status) == FifoState::Unused;
}

}  // namespace kpl::cli
