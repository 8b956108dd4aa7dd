// Prints the non-empty lines of a file with their numbers. The file is a path or an address; an
// address is read by Java, so it can only be had in a process that has a Java machine. On a
// device the application is one; here --java starts one.
#include <stdio.h>
#include <string.h>

#include "JavaMachine.h"
#include "kpl/io/CFile.h"
#include "kpl/net/http/CHttpClient.h"
#include "kpl/parser/LineParser.h"

namespace {

int Fail(const char* path, const char* why) {
    fprintf(stderr, "fetch_lines: %s: %s\n", path, why);
    return 1;
}

// Why no lines came: what could not be done first is what is reported.
int Explain(const char* path) {
    kpl::io::CFile file;
    if (!file.Open(path)) {
        return Fail(path, "cannot be opened");
    }
    unsigned char byte = 0;
    if (file.Read(&byte, 1) > 0) {
        return Fail(path, file.GetFileSize() < 1 ? "has no known length" : "has no lines");
    }
    // A local file reads 0 bytes, an address that nobody can fetch gives an error.
    if (file.Read(&byte, 1) < 0 && !kpl::net::http::CHttpClient().Open(path)) {
        return Fail(path, "an address needs the Java bridge, and this process has no Java machine");
    }
    return Fail(path, "is empty or cannot be read");
}

int PrintLines(const char* path) {
    kpl::parser::LineParser lines;
    if (!lines.SetContent(path)) {
        return Explain(path);
    }
    for (unsigned int i = 0; lines[i] != nullptr; ++i) {
        printf("%6u  %s\n", i + 1, lines[i]);
    }
    return fflush(stdout) == 0 ? 0 : Fail("standard output", "cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2) {
        return PrintLines(argv[1]);
    }
    if (argc != 4 || strcmp(argv[1], "--java") != 0) {
        fputs(
            "usage: fetch_lines [--java CLASSES] FILE|ADDRESS\n"
            "  --java CLASSES  the directory that holds com/kapelo/net/CHttpClient.class\n",
            stderr);
        return 2;
    }
    JavaMachine java;
    const char* why = java.Start(argv[2]);
    return why == nullptr ? PrintLines(argv[3]) : Fail(argv[2], why);
}
