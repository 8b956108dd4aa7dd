// Delays threads at random around locks and system calls, for the programs that it is preloaded
// into: tests that only pass when threads meet as usual come to light. scripts/jitter uses it.
//
// KPL_JITTER: the chance of a delay, in one thousandth; 20 if it is not set. A delay lasts up to
// 3 ms, one in sixteen up to 24 ms. Not for programs with sanitizers, whose runtimes wrap the same
// calls.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <new>

namespace {

constexpr int kDefaultPerMille = 20;
constexpr uint64_t kLongestUs = 3000;
constexpr uint64_t kMuchLonger = 8;

// Read once, before any thread exists.
int PerMille() {
    static const int perMille = [] {
        const char* const text = getenv("KPL_JITTER");
        return text != nullptr ? atoi(text) : kDefaultPerMille;
    }();
    return perMille;
}

uint64_t Random() {
    thread_local uint64_t state = 0;
    if (state == 0) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        state = (static_cast<uint64_t>(now.tv_nsec) << 24) ^
                static_cast<uint64_t>(syscall(SYS_gettid)) ^ 1;
        state |= 1;
    }
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

void MayDelay() {
    const uint64_t number = Random();
    if (static_cast<int>(number % 1000) >= PerMille()) {
        return;
    }
    const int error = errno;
    uint64_t us = (number >> 20) % kLongestUs;
    if ((number >> 50) % 16 == 0) {
        us *= kMuchLonger;
    }
    const timespec time{0, static_cast<long>(us * 1000)};
    // Not nanosleep, which others may have replaced.
    syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &time, nullptr);
    errno = error;
}

template <typename Function>
Function* Next(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

struct ThreadStart {
    void* (*routine)(void*);
    void* argument;
};

void* StartLate(void* start) {
    const ThreadStart own = *static_cast<ThreadStart*>(start);
    delete static_cast<ThreadStart*>(start);
    MayDelay();
    return own.routine(own.argument);
}

}  // namespace

#define KPL_NEXT(name) static const auto next = Next(&::name, #name)

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    KPL_NEXT(pthread_mutex_lock);
    MayDelay();
    return next(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    KPL_NEXT(pthread_mutex_unlock);
    const int result = next(mutex);
    MayDelay();
    return result;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) noexcept {
    KPL_NEXT(pthread_create);
    auto* const start = new (std::nothrow) ThreadStart{routine, argument};
    if (start == nullptr) {
        return EAGAIN;
    }
    const int result = next(thread, attributes, &StartLate, start);
    if (result != 0) {
        delete start;
    }
    MayDelay();
    return result;
}

int open(const char* path, int flags, ...) {
    KPL_NEXT(open);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    MayDelay();
    const int result = next(path, flags, mode);
    MayDelay();
    return result;
}

int open64(const char* path, int flags, ...) {
    KPL_NEXT(open64);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    MayDelay();
    const int result = next(path, flags, mode);
    MayDelay();
    return result;
}

ssize_t read(int fd, void* buffer, size_t size) {
    KPL_NEXT(read);
    MayDelay();
    const ssize_t result = next(fd, buffer, size);
    MayDelay();
    return result;
}

ssize_t write(int fd, const void* buffer, size_t size) {
    KPL_NEXT(write);
    MayDelay();
    const ssize_t result = next(fd, buffer, size);
    MayDelay();
    return result;
}

int close(int fd) {
    KPL_NEXT(close);
    MayDelay();
    const int result = next(fd);
    MayDelay();
    return result;
}

int unlink(const char* path) noexcept {
    KPL_NEXT(unlink);
    MayDelay();
    const int result = next(path);
    MayDelay();
    return result;
}

int mknod(const char* path, mode_t mode, dev_t device) noexcept {
    KPL_NEXT(mknod);
    MayDelay();
    const int result = next(path, mode, device);
    MayDelay();
    return result;
}

int ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    KPL_NEXT(ppoll);
    MayDelay();
    const int result = next(descriptors, count, timeout, mask);
    MayDelay();
    return result;
}

ssize_t send(int fd, const void* buffer, size_t size, int flags) {
    KPL_NEXT(send);
    MayDelay();
    const ssize_t result = next(fd, buffer, size, flags);
    MayDelay();
    return result;
}

ssize_t recv(int fd, void* buffer, size_t size, int flags) {
    KPL_NEXT(recv);
    MayDelay();
    const ssize_t result = next(fd, buffer, size, flags);
    MayDelay();
    return result;
}

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    KPL_NEXT(accept4);
    MayDelay();
    const int result = next(fd, address, length, flags);
    MayDelay();
    return result;
}

int shutdown(int fd, int how) noexcept {
    KPL_NEXT(shutdown);
    MayDelay();
    const int result = next(fd, how);
    MayDelay();
    return result;
}

}  // extern "C"
