#include "cli/LibraryLog.h"

#include <stdarg.h>
#include <stdio.h>

#include <atomic>

#include "kpl/tools/DebugLog.h"

namespace {

std::atomic<bool> isShown{false};

}  // namespace

// The library logs through this function. Off the device it brings one of its own, a weak symbol:
// ours takes its place.
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(
    int, const char* tag, const char* format, ...) {
    if (!isShown) {
        return 0;
    }
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return fprintf(stderr, "%s: %s", tag, text);
}

namespace kpl::cli {

void ShowLibraryLog() {
    isShown = true;
    kpl::tools::EnableDumpLog(true, false);
}

}  // namespace kpl::cli
