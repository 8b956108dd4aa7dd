// Prints the non-empty lines of a file with their numbers. The file is a path or an address; an
// address is read by Java, so it can only be had in a process that has a Java machine. On a
// device the application is one; here --java starts one.
#include <stdio.h>
#include <string.h>

#include "FetchFault.h"
#include "JavaMachine.h"
#include "kpl/parser/LineParser.h"

namespace {

int Fail(const char* path, const char* why) {
    fprintf(stderr, "fetch_lines: %s: %s\n", path, why);
    return 1;
}

int PrintLines(const char* path) {
    kpl::parser::LineParser lines;
    if (!lines.SetContent(path)) {
        return Fail(path, WhyNoLines(path).c_str());
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
