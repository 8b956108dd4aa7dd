#include "LibraryLog.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

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

void ShowLibraryLog(bool all) {
    isShown = true;
    kpl::tools::EnableDumpLog(all, false);
}

// The library takes the working directory of the moment; paths that come later stay as they are.
std::string WriteLibraryLog(const std::string& directory) {
    const int before = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (before < 0 || access(directory.c_str(), W_OK) != 0 || chdir(directory.c_str()) != 0) {
        const std::string fault =
            "cannot write logs to '" + directory + "': " + std::string(strerror(errno));
        close(before);
        return fault;
    }
    kpl::tools::EnableDumpLog(true, true);
    const bool isBack = fchdir(before) == 0;
    close(before);
    return isBack ? "" : "cannot return to the working directory";
}

}  // namespace guide
