#include "kpl/tools/StringTools.h"

#include <ctype.h>
#include <stddef.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <string>

namespace kpl::tools {

namespace {

// Through unsigned char: the C library's tables know no negative characters but EOF.
char* ConvertEach(char* s, int (*convert)(int)) {
    if (s != nullptr) {
        for (char* at = s; *at != '\0'; ++at) {
            *at = static_cast<char>(convert(static_cast<unsigned char>(*at)));
        }
    }
    return s;
}

// The last `wanted` in the string behind its first character, or null.
template <class T>
const T* FindLastBehindFirst(const T* s, T wanted) {
    const T* found = nullptr;
    if (*s != T()) {
        for (const T* at = s + 1; *at != T(); ++at) {
            found = *at == wanted ? at : found;
        }
    }
    return found;
}

template <class T>
T* NewCopy(const T* s, size_t length) {
    T* copy = new T[length + 1];
    std::copy_n(s, length, copy);
    copy[length] = T();
    return copy;
}

}  // namespace

char* strlwr(char* s) {
    return ConvertEach(s, tolower);
}

char* strupr(char* s) {
    return ConvertEach(s, toupper);
}

char* ExtractFilePath(const char* path) {
    const char* slash = path != nullptr ? FindLastBehindFirst(path, '/') : nullptr;
    return slash != nullptr ? NewCopy(path, static_cast<size_t>(slash - path)) : nullptr;
}

char* ExtractFileName(const char* path) {
    const char* slash = path != nullptr ? FindLastBehindFirst(path, '/') : nullptr;
    if (slash == nullptr || slash[1] == '\0') {
        return nullptr;
    }
    return NewCopy(slash + 1, strlen(slash + 1));
}

template <class T>
T* ExtractFileExtension(const T* path) {
    const T* dot = path != nullptr ? FindLastBehindFirst(path, T('.')) : nullptr;
    if (dot == nullptr || dot[1] == T()) {
        return nullptr;
    }
    return NewCopy(dot, std::char_traits<T>::length(dot));
}

template KPL_EXPORT char* ExtractFileExtension<char>(const char* path);

char* ExtractFileExtension(const char* path) {
    return ExtractFileExtension<char>(path);
}

bool IsFileExt(const char* path, const char* ext) {
    if (path == nullptr || ext == nullptr) {
        return false;
    }
    const char* extension = ExtractFileExtension(path);
    const bool equal = extension != nullptr && StrCmpIgnoreCase(extension, ext) == 0;
    delete[] extension;
    return equal;
}

int StrCmpIgnoreCase(const char* a, const char* b) {
    return strcasecmp(a, b);
}

}  // namespace kpl::tools
