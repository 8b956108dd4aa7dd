#include "tests/faults/FaultyCalls.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stddef.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/types.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <initializer_list>
#include <new>

namespace kpl::test {

namespace {

using Kind = FaultKind;

constexpr size_t kKinds = 17;

constexpr const char* kKindNames[kKinds] = {"open",
                                            "read",
                                            "write",
                                            "poll",
                                            "accept",
                                            "send",
                                            "recv",
                                            "connect",
                                            "mknod",
                                            "pthread_create",
                                            "descriptor",
                                            "memory",
                                            "spurious wake-up",
                                            "epoll_ctl",
                                            "epoll_wait",
                                            "late clock",
                                            "delay"};

// Larger reads are those of announcements.
constexpr size_t kLargestCommandRead = 16384;
constexpr size_t kDescriptors = 4096;

FaultPlan plan;  // changed only while inactive
std::atomic<bool> active{false};
std::array<std::atomic<uint64_t>, kKinds> calls{};
std::array<std::atomic<int>, kKinds> faults{};
std::atomic<bool> fatalAccept{false};
std::array<std::atomic<bool>, kDescriptors> isEvent{};
thread_local bool spared = false;

// Of AllFail.
std::atomic<bool> allFail{false};
std::atomic<Kind> failingKind{Kind::Open};
std::atomic<int> failingError{0};
std::atomic<int> failingSkip{0};
std::atomic<int> failingCount{0};

// Of Halt.
std::atomic<bool> halting{false};
std::atomic<bool> haltReached{false};
std::atomic<Kind> haltKind{Kind::Open};

uint64_t Mix(uint64_t x) {
    x += 0x9e3779b97f4a7c15;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9;
    x = (x ^ (x >> 27)) * 0x94d049bb133111eb;
    return x ^ (x >> 31);
}

// 0 for no fault; else a number to choose the fault by.
uint64_t Draw(Kind kind, int perMille) {
    if (!active || spared || perMille == 0) {
        return 0;
    }
    const uint64_t call = calls[static_cast<size_t>(kind)]++;
    const uint64_t number = Mix(Mix(plan.seed * kKinds + static_cast<uint64_t>(kind)) + call);
    if (static_cast<int>(number % 1000) >= perMille) {
        return 0;
    }
    ++faults[static_cast<size_t>(kind)];
    return (number / 1000) | 1;
}

// All bits set: AllFail says so.
constexpr uint64_t kCertain = UINT64_MAX;

bool IsCertain(Kind kind) {
    if (allFail && !spared && failingKind == kind && failingSkip-- <= 0) {
        ++failingCount;
        return true;
    }
    return false;
}

void MayHalt(Kind kind) {
    if (halting && !spared && haltKind == kind && !haltReached.exchange(true)) {
        while (halting) {
            const timespec time{0, 1000000};
            nanosleep(&time, nullptr);  // allow-sleep: between two looks
        }
    }
}

uint64_t DrawFault(Kind kind) {
    MayHalt(kind);
    return IsCertain(kind) ? kCertain : Draw(kind, plan.faultsPerMille);
}

void MayDelay() {
    const uint64_t number = Draw(Kind::Delay, plan.delaysPerMille);
    if (number != 0) {
        const int error = errno;
        const timespec time{0, static_cast<long>(number / 2 % 2000000)};
        nanosleep(&time, nullptr);  // allow-sleep: the injected delay
        errno = error;
    }
}

// Sets errno to one of `errors`, the first with half the chance.
void Fail(uint64_t number, std::initializer_list<int> errors) {
    if (number == kCertain) {
        errno = failingError;
        return;
    }
    const auto choice = static_cast<size_t>((number / 2) % (2 * errors.size()));
    errno = errors.begin()[choice < errors.size() ? choice : 0];
}

bool IsEvent(int fd) {
    return fd >= 0 && static_cast<size_t>(fd) < kDescriptors && isEvent[static_cast<size_t>(fd)];
}

void SetEvent(int fd, bool event) {
    if (fd >= 0 && static_cast<size_t>(fd) < kDescriptors) {
        isEvent[static_cast<size_t>(fd)] = event;
    }
}

// Between 1 and `length` - 1.
size_t Shorter(uint64_t number, size_t length) {
    return 1 + static_cast<size_t>(number / 8) % (length - 1);
}

}  // namespace

void StartFaults(const FaultPlan& newPlan) {
    plan = newPlan;
    for (size_t kind = 0; kind < kKinds; ++kind) {
        calls[kind] = 0;
        faults[kind] = 0;
    }
    fatalAccept = false;
    active = true;
}

void StopFaults() {
    active = false;
}

int FaultCount() {
    int count = 0;
    for (const auto& kind : faults) {
        count += kind;
    }
    return count;
}

std::string FaultList() {
    std::string list;
    for (size_t kind = 0; kind < kKinds; ++kind) {
        if (faults[kind] > 0) {
            list += (list.empty() ? "" : ", ") + std::string(kKindNames[kind]) + " " +
                    std::to_string(faults[kind]);
        }
    }
    return list;
}

bool HadFatalAcceptError() {
    return fatalAccept;
}

AllFail::AllFail(FaultKind kind, int error, int skip) {
    failingKind = kind;
    failingError = error;
    failingSkip = skip;
    failingCount = 0;
    allFail = true;
}

AllFail::~AllFail() {
    allFail = false;
}

int AllFail::Count() const {
    return failingCount;
}

Halt::Halt(FaultKind kind) {
    haltKind = kind;
    haltReached = false;
    halting = true;
}

bool Halt::IsReached() const {
    return haltReached;
}

void Halt::GoOn() {
    halting = false;
}

Spared::Spared() : m_before(spared) {
    spared = true;
}

Spared::~Spared() {
    spared = m_before;
}

}  // namespace kpl::test

// The linker's --wrap turns the library's calls of f into calls of __wrap_f, and __real_f into f.
extern "C" {

using namespace kpl::test;  // NOLINT(google-build-using-namespace)

int __real_open64(const char* path, int flags, ...);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* buffer, size_t size);
int __real_close(int fd);
int __real_ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
int __real_accept4(int fd, sockaddr* address, socklen_t* length, int flags);
ssize_t __real_send(int fd, const void* buffer, size_t size, int flags);
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int __real_mknod(const char* path, mode_t mode, dev_t device);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);
int __real_eventfd(unsigned int value, int flags);
int __real_socket(int domain, int type, int protocol);
int __real_epoll_create1(int flags);
int __real_epoll_ctl(int epoll, int operation, int fd, epoll_event* event);
int __real_epoll_wait(int epoll, epoll_event* events, int count, int timeout);
int __real_timerfd_create(int clock, int flags);
int __real_timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old);
char* __real_strdup(const char* text);
int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
void* KPL_REAL_NEW(size_t size, const std::nothrow_t& tag);

int __wrap_open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    MayDelay();
    const uint64_t number = DrawFault(Kind::Open);
    if (number != 0) {
        Fail(number, {EINTR, EMFILE, ENFILE, ENOMEM});
        return -1;
    }
    return __real_open64(path, flags, mode);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    MayDelay();
    const uint64_t number = IsEvent(fd) ? 0 : DrawFault(Kind::Read);
    if (number == 0) {
        return __real_read(fd, buffer, size);
    }
    if (size > 1 && size <= kLargestCommandRead && number % 8 != 1 && number != kCertain) {
        return __real_read(fd, buffer, Shorter(number, size));
    }
    Fail(number, {EINTR, EIO});
    return -1;
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
    MayDelay();
    const uint64_t number = IsEvent(fd) ? 0 : DrawFault(Kind::Write);
    if (number == 0) {
        return __real_write(fd, buffer, size);
    }
    if (size > PIPE_BUF && number % 8 != 1 && number != kCertain) {
        return __real_write(fd, buffer, Shorter(number, size));
    }
    Fail(number, {EINTR, EAGAIN, EPIPE});
    return -1;
}

int __wrap_close(int fd) {
    SetEvent(fd, false);
    return __real_close(fd);
}

int __wrap_ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Poll);
    if (number != 0) {
        Fail(number, {EINTR, EINTR, EINTR, ENOMEM});
        return -1;
    }
    return __real_ppoll(descriptors, count, timeout, mask);
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Poll);
    if (number != 0) {
        Fail(number, {EINTR, ENOMEM});
        return -1;
    }
    return __real_poll(descriptors, count, timeout);
}

int __wrap_accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Accept);
    if (number == 0) {
        return __real_accept4(fd, address, length, flags);
    }
    Fail(number, {EINTR, EMFILE, EINTR, EMFILE, ENFILE, ECONNABORTED, ENOBUFS});
    fatalAccept = fatalAccept || (errno != EINTR && errno != EMFILE);
    return -1;
}

ssize_t __wrap_send(int fd, const void* buffer, size_t size, int flags) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Send);
    if (number == 0) {
        return __real_send(fd, buffer, size, flags);
    }
    if (size > 1 && number % 4 != 1 && number != kCertain) {
        return __real_send(fd, buffer, Shorter(number, size), flags);
    }
    Fail(number, {EINTR, EPIPE, ECONNRESET, ENOBUFS});
    return -1;
}

ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Recv);
    if (number == 0) {
        return __real_recv(fd, buffer, size, flags);
    }
    if (size > 1 && number % 4 != 1 && number != kCertain) {
        return __real_recv(fd, buffer, Shorter(number, size), flags);
    }
    Fail(number, {EINTR, ECONNRESET, ENOMEM});
    return -1;
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Connect);
    if (number != 0) {
        Fail(number, {ECONNREFUSED, ETIMEDOUT, ENETUNREACH});
        return -1;
    }
    return __real_connect(fd, address, length);
}

int __wrap_mknod(const char* path, mode_t mode, dev_t device) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Mknod);
    if (number != 0) {
        Fail(number, {ENOSPC, EDQUOT, EACCES, ENOMEM});
        return -1;
    }
    return __real_mknod(path, mode, device);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) {
    MayDelay();
    if (DrawFault(Kind::Thread) != 0) {
        return EAGAIN;
    }
    const int result = __real_pthread_create(thread, attributes, routine, argument);
    MayDelay();
    return result;
}

int __wrap_eventfd(unsigned int value, int flags) {
    const uint64_t number = DrawFault(Kind::Descriptor);
    if (number != 0) {
        Fail(number, {EMFILE, ENFILE, ENOMEM});
        return -1;
    }
    const int fd = __real_eventfd(value, flags);
    SetEvent(fd, true);
    return fd;
}

int __wrap_socket(int domain, int type, int protocol) {
    const uint64_t number = DrawFault(Kind::Descriptor);
    if (number != 0) {
        Fail(number, {EMFILE, ENFILE, ENOBUFS});
        return -1;
    }
    return __real_socket(domain, type, protocol);
}

int __wrap_epoll_create1(int flags) {
    const uint64_t number = DrawFault(Kind::Descriptor);
    if (number != 0) {
        Fail(number, {EMFILE, ENFILE, ENOMEM});
        return -1;
    }
    return __real_epoll_create1(flags);
}

int __wrap_epoll_ctl(int epoll, int operation, int fd, epoll_event* event) {
    const uint64_t number = operation == EPOLL_CTL_ADD ? DrawFault(Kind::Watch) : 0;
    if (number != 0) {
        Fail(number, {ENOSPC, ENOMEM});
        return -1;
    }
    return __real_epoll_ctl(epoll, operation, fd, event);
}

int __wrap_epoll_wait(int epoll, epoll_event* events, int count, int timeout) {
    MayDelay();
    const uint64_t number = DrawFault(Kind::Arrival);
    if (number != 0) {
        Fail(number, {EINTR});
        return -1;
    }
    return __real_epoll_wait(epoll, events, count, timeout);
}

int __wrap_timerfd_create(int clock, int flags) {
    const uint64_t number = DrawFault(Kind::Descriptor);
    if (number != 0) {
        Fail(number, {EMFILE, ENFILE, ENOMEM});
        return -1;
    }
    return __real_timerfd_create(clock, flags);
}

int __wrap_timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old) {
    itimerspec set = *value;
    if (value->it_value.tv_nsec > 1 && IsCertain(Kind::Clock)) {
        set.it_value = timespec{1000, 0};
    }
    return __real_timerfd_settime(fd, flags, &set, old);
}

char* __wrap_strdup(const char* text) {
    return DrawFault(Kind::Memory) != 0 ? nullptr : __real_strdup(text);
}

void* KPL_WRAPPED_NEW(size_t size, const std::nothrow_t& tag) {
    return DrawFault(Kind::Memory) != 0 ? nullptr : KPL_REAL_NEW(size, tag);
}

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return DrawFault(Kind::Wake) != 0 ? 0 : __real_pthread_cond_wait(condition, mutex);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
    return DrawFault(Kind::Wake) != 0 ? 0
                                      : __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    MayDelay();
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const int result = __real_pthread_mutex_unlock(mutex);
    MayDelay();
    return result;
}

}  // extern "C"
