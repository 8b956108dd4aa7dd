#include "tests/support/RawConnection.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace kpl::test {

namespace {

int RawOpen(const std::string& path, int flags) {
    return open(path.c_str(), flags | O_CLOEXEC);
}

void RawMakeFifo(const std::string& path) {
    (void)mknod(path.c_str(), S_IFIFO | 0777, 0);
}

void CloseIfOpen(int* fd) {
    if (*fd != -1) {
        close(*fd);
        *fd = -1;
    }
}

}  // namespace

void RawConnection::Close() {
    CloseIfOpen(&readFd);
    CloseIfOpen(&writeFd);
}

RawConnection RawConnect(const std::string& dir, const std::string& name, int id, int steps) {
    RawConnection connection;
    const std::string client = dir + "/" + name + "Client" + std::to_string(id);
    const std::string server = dir + "/" + name + "Server" + std::to_string(id);
    const std::string announcement = GoodAnnouncement(static_cast<uint32_t>(id));
    int root = steps < 1 ? -1 : RawOpen(dir + "/" + name + "Root", O_WRONLY);
    if (root == -1 || (steps >= 2 && !WriteAll(root, announcement.data(), announcement.size()))) {
        return connection;
    }
    if (steps >= 3) {
        CloseIfOpen(&root);
    }
    if (steps >= 4) {
        RawMakeFifo(client);
        RawMakeFifo(server);
    }
    if (steps >= 5) {
        connection.readFd = RawOpen(client, O_RDONLY);
    }
    if (steps >= 6) {
        connection.writeFd = RawOpen(server, O_WRONLY);
    }
    return connection;
}

RawConnection RawAccept(int rootFd, const std::string& dir, const std::string& name, int* id,
                        int steps) {
    RawConnection connection;
    uint32_t message[4] = {};
    if (!ReadAll(rootFd, message, sizeof(message))) {
        return connection;
    }
    *id = static_cast<int>(message[1]);
    const std::string client = dir + "/" + name + "Client" + std::to_string(*id);
    const std::string server = dir + "/" + name + "Server" + std::to_string(*id);
    if (steps >= 2) {
        RawMakeFifo(client);
        RawMakeFifo(server);
    }
    if (steps >= 3) {
        connection.writeFd = RawOpen(client, O_WRONLY);
    }
    if (steps >= 4) {
        connection.readFd = RawOpen(server, O_RDONLY);
    }
    return connection;
}

bool ReadAll(int fd, void* data, size_t size) {
    auto* at = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t got = read(fd, at, size);
        if (got <= 0) {
            return false;
        }
        at += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

// Where the reader has gone it fails, and does not end the process of the tests.
bool WriteAll(int fd, const void* data, size_t size) {
    sigset_t brokenPipe;
    sigset_t before;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    const ssize_t written = write(fd, data, size);
    if (written == -1 && errno == EPIPE) {
        const timespec noWait{};
        sigtimedwait(&brokenPipe, nullptr, &noWait);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return written == static_cast<ssize_t>(size);
}

bool WriteWord(int fd, uint32_t value) {
    return WriteAll(fd, &value, sizeof(value));
}

std::string AnnouncementBytes(uint32_t magic, uint32_t id, uint32_t command, uint32_t length) {
    const uint32_t words[4] = {magic, id, command, length};
    return std::string(reinterpret_cast<const char*>(words), sizeof(words));
}

std::string GoodAnnouncement(uint32_t id) {
    return AnnouncementBytes(0x49504320, id, 0, 0);
}

bool WriteToRoot(const std::string& rootPath, const std::string& bytes) {
    const int root = RawOpen(rootPath, O_WRONLY);
    const bool written = root != -1 && WriteAll(root, bytes.data(), bytes.size());
    if (root != -1) {
        close(root);
    }
    return written;
}

}  // namespace kpl::test
