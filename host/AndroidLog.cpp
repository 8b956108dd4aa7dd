#include <android/log.h>
#include <stdarg.h>
#include <stdio.h>

// Weak, so that the device's own liblog, or a test, can take its place.
extern "C" __attribute__((weak, visibility("default"))) int __android_log_print(int priority,
                                                                                const char* tag,
                                                                                const char* format,
                                                                                ...) {
    (void)priority;
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (length < 0) {
        return length;
    }
    // One call for the whole line keeps the lines of several threads apart.
    return fprintf(stderr, "D/%s: %s", tag, text);
}
