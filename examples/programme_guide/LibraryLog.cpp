#include "LibraryLog.h"

#include <stdarg.h>
#include <stdio.h>

#include "kpl/tools/DebugLog.h"

namespace {

bool isShown = false;

}  // namespace

// The library logs through this function. Off the device it brings one of its own, a weak symbol:
// a program that defines it gets the messages instead.
extern "C" __attribute__((format(printf, 3, 4))) int __android_log_print(int, const char* tag,
                                                                         const char* format, ...) {
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

namespace guide {

void ShowLibraryLog() {
    isShown = true;
    kpl::tools::EnableDumpLog(true, false);
}

}  // namespace guide
