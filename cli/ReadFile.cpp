#include "cli/ReadFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kpl::cli {

int OpenRegularFile(const std::string& path, std::string* fault) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status {};
    if (fd == -1 || fstat(fd, &status) != 0) {
        *fault = "cannot read '" + path + "': " + strerror(errno);
    } else if (S_ISREG(status.st_mode)) {
        return fd;
    } else {
        *fault = "'" + path + "' is no regular file";
    }
    if (fd != -1) {
        close(fd);
    }
    return -1;
}

std::optional<std::string> ReadSmallFile(const std::string& path, size_t limit,
                                         std::string* fault) {
    const int fd = OpenRegularFile(path, fault);
    if (fd == -1) {
        return std::nullopt;
    }
    std::string bytes(limit + 1, '\0');
    size_t size = 0;
    ssize_t got = 1;
    while (got > 0 && size < bytes.size()) {
        got = read(fd, bytes.data() + size, bytes.size() - size);
        size += got > 0 ? static_cast<size_t>(got) : 0;
    }
    if (got < 0) {
        *fault = "cannot read '" + path + "': " + strerror(errno);
    } else if (size > limit) {
        *fault = "'" + path + "' has more than " + std::to_string(limit) + " bytes";
    }
    close(fd);
    if (got < 0 || size > limit) {
        return std::nullopt;
    }
    bytes.resize(size);
    return bytes;
}

}  // namespace kpl::cli
