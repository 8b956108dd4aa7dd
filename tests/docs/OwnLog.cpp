#include "OwnLog.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <atomic>

namespace {

std::atomic<const char*> wanted{nullptr};
std::atomic<kpl::os::CEvent*> event{nullptr};

void OnMessage(const char* message) {
    const char* const text = wanted;
    if (text == nullptr || strstr(message, text) == nullptr) {
        return;
    }
    fputs(message, stdout);
    if (kpl::os::CEvent* const found = event) {
        found->Set();
    }
}

}  // namespace

// Takes the place of the library's own, which is a weak symbol. Any thread may log.
extern "C" __attribute__((format(printf, 3, 4))) int __android_log_print(int, const char*,
                                                                         const char* format, ...) {
    char message[4096];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    OnMessage(message);
    return length;
}

void PrintMessagesWith(const char* text, kpl::os::CEvent* toSet) {
    event = toSet;
    wanted = text;
}
