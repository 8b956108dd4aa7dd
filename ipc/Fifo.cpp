#include "ipc/Fifo.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "os/WaitReadable.h"

namespace kpl::ipc {

namespace {

// How long to wait before looking again for a peer that is not there yet: short at first, because
// it is usually about to come, then longer.
class Backoff {
public:
    long NextMicroseconds() {
        const long now = m_next;
        m_next = std::min(2 * m_next, kLongest);
        return now;
    }

private:
    static constexpr long kLongest = 10000;
    long m_next = 50;
};

// Never through a symbolic link: in a shared directory anybody may have put it there.
int OpenThroughSignals(const char* path, int flags) {
    int fd = -1;
    do {
        fd = open(path, flags | O_CLOEXEC | O_NOFOLLOW);
    } while (fd == -1 && errno == EINTR);
    return fd;
}

// -1 for anything that is not a FIFO, which must not be read or written as if it were one.
int OpenIfFifo(const char* path, int flags) {
    const int fd = OpenThroughSignals(path, flags | O_NONBLOCK);
    struct stat status {};
    if (fd != -1 && (fstat(fd, &status) != 0 || !S_ISFIFO(status.st_mode))) {
        close(fd);
        errno = ENOENT;
        return -1;
    }
    return fd;
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A FIFO that never had a writer looks the same as one with a silent writer. Once one has come and
// gone, the absence shows as a hang-up; so we are that one. False if we cannot be.
bool MakeAbsenceVisible(int reader, const char* path) {
    const int writer = OpenThroughSignals(path, O_WRONLY | O_NONBLOCK);
    if (writer == -1) {
        return false;
    }
    struct stat read {};
    struct stat written {};
    const bool same =
        fstat(reader, &read) == 0 && fstat(writer, &written) == 0 && IsSameFile(read, written);
    close(writer);
    return same;
}

bool HasWriterOrData(int fd) {
    pollfd descriptor{fd, POLLIN, 0};
    if (poll(&descriptor, 1, 0) < 0) {
        return false;
    }
    return (descriptor.revents & POLLIN) != 0 || (descriptor.revents & POLLHUP) == 0;
}

bool IsStillAt(int fd, const char* path) {
    struct stat opened {};
    struct stat named {};
    return fstat(fd, &opened) == 0 && lstat(path, &named) == 0 && IsSameFile(opened, named);
}

// False when the limit was reached, or the FIFO was removed: nobody can come any more.
bool AwaitWriter(int fd, const char* path, const WaitLimit& limit) {
    if (!MakeAbsenceVisible(fd, path)) {
        return false;
    }
    Backoff backoff;
    while (!HasWriterOrData(fd)) {
        if (!IsStillAt(fd, path) || !limit.Pause(backoff.NextMicroseconds())) {
            return false;
        }
    }
    return true;
}

thread_local bool sigPipeStaysBlocked = false;

// Only SIGPIPE.
sigset_t SigPipeSet() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

// Keeps SIGPIPE away from the process while it exists: blocks it for this thread and takes back the
// one that a write raised, so that no handler of the application sees it.
class SigPipeGuard {
public:
    SigPipeGuard() {
        if (sigPipeStaysBlocked) {
            return;
        }
        const sigset_t pipe = SigPipeSet();
        pthread_sigmask(SIG_BLOCK, &pipe, &m_before);
        m_wasPending = sigismember(&m_before, SIGPIPE) == 1 && IsPending();
    }
    ~SigPipeGuard() {
        if (sigPipeStaysBlocked) {
            return;
        }
        const int error = errno;
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = error;
    }
    SigPipeGuard(const SigPipeGuard&) = delete;
    SigPipeGuard& operator=(const SigPipeGuard&) = delete;

    // After a write that failed or was cut short. One that was pending before is not ours to take.
    void TakeBack() const {
        const int error = errno;
        if (!m_wasPending) {
            const sigset_t pipe = SigPipeSet();
            const timespec atOnce{};
            while (sigtimedwait(&pipe, nullptr, &atOnce) == -1 && errno == EINTR) {
            }
        }
        errno = error;
    }

private:
    static bool IsPending() {
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    }

    sigset_t m_before{};
    bool m_wasPending = false;
};

int WriteThroughSignals(int fd, const char* buf, int len) {
    ssize_t written = 0;
    do {
        written = write(fd, buf, static_cast<size_t>(len));
    } while (written == -1 && errno == EINTR);
    return static_cast<int>(written);
}

}  // namespace

int WaitLimit::WaitWritable(int fd) const {
    if (fd < 0 || m_breaker->Descriptor() < 0) {
        return -1;
    }
    pollfd descriptors[2] = {{m_breaker->Descriptor(), POLLIN, 0}, {fd, POLLOUT, 0}};
    const long left = m_deadline.LeftMs();
    const timespec timeout = os::MsTimeout(std::max(0L, left));
    const int ready = os::PollThroughSignals(descriptors, 2, left < 0 ? nullptr : &timeout);
    if (ready < 0 || descriptors[0].revents != 0 || (descriptors[1].revents & POLLNVAL) != 0) {
        return -1;
    }
    return ready > 0 ? 1 : 0;
}

bool WaitLimit::Pause(long microseconds) const {
    if (m_breaker->Descriptor() < 0 || m_deadline.IsOver() || (m_flag != nullptr && *m_flag)) {
        return false;
    }
    // A hang-up is reported without being asked for; a peer of -1 is skipped.
    pollfd descriptors[2] = {{m_breaker->Descriptor(), POLLIN, 0}, {m_peer, 0, 0}};
    const timespec pause{microseconds / 1000000, (microseconds % 1000000) * 1000};
    return os::PollThroughSignals(descriptors, 2, &pause) == 0;
}

void MakeFifo(const char* path) {
    (void)mknod(path, S_IFIFO | 0777, 0);
}

bool IsFifo(const char* path) {
    struct stat status {};
    return lstat(path, &status) == 0 && S_ISFIFO(status.st_mode);
}

int OpenFifoForWriting(const char* path, const WaitLimit& limit) {
    Backoff backoff;
    for (;;) {
        const int fd = OpenIfFifo(path, O_WRONLY);
        if (fd != -1 || errno != ENXIO) {  // ENXIO: nobody reads it yet
            return fd;
        }
        if (!limit.Pause(backoff.NextMicroseconds())) {
            return -1;
        }
    }
}

int OpenFifoForReading(const char* path, const WaitLimit& limit) {
    const int fd = OpenFifoReader(path);
    if (fd == -1) {
        return -1;
    }
    if (!AwaitWriter(fd, path, limit)) {
        close(fd);
        return -1;
    }
    return fd;
}

int OpenFifoReader(const char* path) {
    return OpenIfFifo(path, O_RDONLY);
}

void KeepSigPipeBlocked() {
    const sigset_t pipe = SigPipeSet();
    sigPipeStaysBlocked = pthread_sigmask(SIG_BLOCK, &pipe, nullptr) == 0;
}

int WriteFifo(int fd, const char* buf, int len, const WaitLimit& limit) {
    const SigPipeGuard guard;
    int done = 0;
    while (done < len) {
        const int written = WriteThroughSignals(fd, buf + done, len - done);
        if (written > 0) {
            done += written;
            continue;
        }
        const int ready = written == -1 && errno == EAGAIN ? limit.WaitWritable(fd) : -1;
        if (ready != 1) {
            guard.TakeBack();
            return done > 0 ? done : (ready == 0 ? -2 : -1);
        }
    }
    return done;
}

}  // namespace kpl::ipc
