#include "cli/OpenFifos.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>

#include <fstream>

#include "cli/Directory.h"
#include "cli/Text.h"

namespace kpl::cli {

namespace {

std::string ProcPath(pid_t pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

std::string ProgramOf(pid_t pid) {
    std::ifstream file(ProcPath(pid, "comm"));
    std::string name;
    std::getline(file, name);
    return name;
}

}  // namespace

OpenFifos OpenFifos::Look() {
    OpenFifos fifos;
    std::vector<std::string> names;
    (void)ListDirectory("/proc", &names);
    for (const std::string& name : names) {
        constexpr unsigned long long kLargestPid = 0x7FFFFFFF;
        const auto pid = ParseUnsigned(name, kLargestPid);
        if (pid) {
            fifos.LookInto(static_cast<pid_t>(*pid));
        }
    }
    return fifos;
}

// Processes and descriptors come and go meanwhile: what is no longer there is passed over.
void OpenFifos::LookInto(pid_t pid) {
    DIR* const directory = opendir(ProcPath(pid, "fd").c_str());
    if (directory == nullptr) {
        return;
    }
    while (const dirent* const entry = readdir(directory)) {
        struct stat link {};
        struct stat file {};
        // The link's own mode says how the file is open; followed, it leads to the file itself.
        if (fstatat(dirfd(directory), entry->d_name, &link, AT_SYMLINK_NOFOLLOW) != 0 ||
            fstatat(dirfd(directory), entry->d_name, &file, 0) != 0 || !S_ISFIFO(file.st_mode)) {
            continue;
        }
        FifoUser& user = m_users[{file.st_dev, file.st_ino}][pid];
        user.pid = pid;
        user.reads |= (link.st_mode & S_IRUSR) != 0;
        user.writes |= (link.st_mode & S_IWUSR) != 0;
    }
    closedir(directory);
}

std::vector<FifoUser> OpenFifos::UsersOf(const struct stat& fifo) const {
    std::vector<FifoUser> users;
    const auto found = m_users.find({fifo.st_dev, fifo.st_ino});
    if (found == m_users.end()) {
        return users;
    }
    for (const auto& [pid, user] : found->second) {
        users.push_back(user);
        users.back().program = ProgramOf(pid);
    }
    return users;
}

}  // namespace kpl::cli
