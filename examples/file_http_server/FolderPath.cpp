#include "FolderPath.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace file_http {

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool DecodePercents(std::string_view text, std::string* decoded) {
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const int high = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
            if (high < 0 || low < 0) {
                return false;
            }
            c = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (c == '\0') {
            return false;
        }
        decoded->push_back(c);
    }
    return true;
}

// Resolves "." and ".."; false if that leads above the start.
bool ResolveDots(std::string_view path, std::string* resolved) {
    std::vector<std::string_view> names;
    while (!path.empty()) {
        path.remove_prefix(1);  // the "/"
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(name.size());
        if (name == "..") {
            if (names.empty()) {
                return false;
            }
            names.pop_back();
        } else if (name != ".") {
            names.push_back(name);
        }
    }
    for (const std::string_view name : names) {
        resolved->append("/").append(name);
    }
    return true;
}

// The path with all its symbolic links followed; empty if there is nothing.
std::string RealPath(const std::string& path) {
    char* real = realpath(path.c_str(), nullptr);
    const std::string result = real != nullptr ? real : "";
    free(real);
    return result;
}

bool IsInside(const std::string& path, const std::string& folder) {
    const std::string start = folder == "/" ? folder : folder + "/";
    return path == folder || path.compare(0, start.size(), start) == 0;
}

int StatusOfError() {
    switch (errno) {
        case EACCES:
            return 403;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
            return 500;
        default:
            return 404;
    }
}

// Opens what stands at the real `path`, if it is a file.
FolderFile OpenFile(const std::string& path) {
    FolderFile file;
    // Opening a FIFO that is there must not wait for its other end.
    file.descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (file.descriptor < 0) {
        file.status = StatusOfError();
        return file;
    }
    struct stat status {};
    if (fstat(file.descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(file.descriptor);
        file.descriptor = -1;
        file.status = 404;
        return file;
    }
    file.status = 200;
    file.size = status.st_size;
    file.path = path;
    return file;
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

int DecodeTarget(std::string_view target, std::string* path) {
    std::string decoded;
    target = target.substr(0, target.find('?'));
    if (target.empty() || target.front() != '/' || !DecodePercents(target, &decoded)) {
        return 400;
    }
    path->clear();
    return ResolveDots(decoded, path) ? 200 : 403;
}

FolderFile OpenInFolder(const std::string& folder, std::string_view target) {
    FolderFile file;
    std::string path;
    file.status = DecodeTarget(target, &path);
    if (file.status != 200) {
        return file;
    }
    std::string real = RealPath(folder + path);
    if (IsInside(real, folder) && IsFolder(real)) {
        real = RealPath(real + "/index.html");
    }
    if (!IsInside(real, folder)) {
        file.status = 404;
        return file;
    }
    return OpenFile(real);
}

}  // namespace file_http
