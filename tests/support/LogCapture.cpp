#include "tests/support/LogCapture.h"

#include <stdarg.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "kpl/tools/DebugLog.h"

namespace kpl::test {

namespace {

struct Captured {
    std::mutex mutex;
    std::condition_variable changed;
    bool active = false;
    std::vector<std::string> messages;
    std::vector<int> threads;  // of the messages
    int priority = 0;
    std::string tag;
};

// Never destroyed: the library may log while the process exits.
Captured& State() {
    static auto* state = new Captured;
    return *state;
}

}  // namespace

LogCapture::LogCapture(Debug debug) {
    {
        std::lock_guard<std::mutex> lock(State().mutex);
        State().active = true;
        State().messages.clear();
        State().threads.clear();
    }
    if (debug == Debug::On) {
        tools::EnableDumpLog(true, false);
    }
}

LogCapture::~LogCapture() {
    tools::EnableDumpLog(false, false);
    std::lock_guard<std::mutex> lock(State().mutex);
    State().active = false;
}

std::vector<std::string> LogCapture::Messages() const {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().messages;
}

bool LogCapture::Contains(const std::string& message) const {
    return Count(message) > 0;
}

int LogCapture::Count(const std::string& message) const {
    std::lock_guard<std::mutex> lock(State().mutex);
    const auto& messages = State().messages;
    return static_cast<int>(std::count(messages.begin(), messages.end(), message));
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().messages.clear();
    State().threads.clear();
}

bool LogCapture::WaitFor(const std::string& message, long timeoutMs) const {
    Captured& state = State();
    std::unique_lock<std::mutex> lock(state.mutex);
    return state.changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return std::find(state.messages.begin(), state.messages.end(), message) !=
               state.messages.end();
    });
}

int LogCapture::ThreadOf(const std::string& message) const {
    std::lock_guard<std::mutex> lock(State().mutex);
    for (size_t i = State().messages.size(); i > 0; --i) {
        if (State().messages[i - 1] == message) {
            return State().threads[i - 1];
        }
    }
    return 0;
}

int LogCapture::LastPriority() const {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().priority;
}

std::string LogCapture::LastTag() const {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().tag;
}

}  // namespace kpl::test

// Takes the place of the library's weak one.
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(
    int priority, const char* tag, const char* format, ...);

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    auto& state = kpl::test::State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (!state.active) {
        return fprintf(stderr, "D/%s: %s", tag, text);
    }
    state.messages.emplace_back(text);
    state.threads.push_back(static_cast<int>(syscall(SYS_gettid)));
    state.priority = priority;
    state.tag = tag;
    state.changed.notify_all();
    return length;
}
