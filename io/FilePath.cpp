#include "kpl/io/FilePath.h"

namespace kpl::io {

bool IsFilePathSeparator(char c) {
    return c == '/' || c == '\\';
}

char GetFilePathSeparator() {
    return '/';
}

void ConvertToCorrectFilePath(char* path) {
    if (path == nullptr) {
        return;
    }
    for (char* at = path; *at != '\0'; ++at) {
        if (IsFilePathSeparator(*at)) {
            *at = GetFilePathSeparator();
        }
    }
}

}  // namespace kpl::io
