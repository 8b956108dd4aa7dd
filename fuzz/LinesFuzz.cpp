// Splits any bytes into lines, from memory and from a file, beside a splitter that copies.
#include <android/log.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kpl/parser/LineParser.h"

// Takes the library's messages and drops them.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using Lines = std::vector<std::string>;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// A text ends at its first zero byte; empty lines do not count.
Lines ByCopying(const std::string& bytes) {
    const std::string text = bytes.substr(0, bytes.find('\0'));
    Lines lines;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = text.find('\n', begin);
        const bool isLast = end == std::string::npos;
        std::string line = text.substr(begin, isLast ? end : end - begin);
        if (!isLast && !line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (!line.empty()) {
            lines.push_back(line);
        }
        begin = isLast ? text.size() + 1 : end + 1;
    }
    return lines;
}

Lines All(kpl::parser::LineParser* parser) {
    Lines lines;
    for (unsigned int i = 0; (*parser)[i] != nullptr; ++i) {
        lines.emplace_back((*parser)[i]);
    }
    return lines;
}

// One file for all of this process's inputs, in memory.
int File() {
    static const int descriptor = [] {
        const int made = memfd_create("lines", MFD_CLOEXEC);
        Require(made != -1);
        return made;
    }();
    return descriptor;
}

std::string PathOfFileWith(const std::string& bytes) {
    Require(ftruncate(File(), 0) == 0);
    Require(pwrite(File(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    return "/proc/self/fd/" + std::to_string(File());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(data, data + size);
    const Lines expected = ByCopying(bytes);
    kpl::parser::LineParser fromMemory;
    Require(fromMemory.SetContent(bytes.data(), static_cast<unsigned int>(size)) ==
            !expected.empty());
    Require(All(&fromMemory) == expected);

    kpl::parser::LineParser fromFile;
    Require(fromFile.SetContent(PathOfFileWith(bytes).c_str()) == !expected.empty());
    Require(All(&fromFile) == expected);
    return 0;
}
