// Our JSON beside three other libraries: documents of 1 MB parsed to a tree that is destroyed, and
// written, in nanoseconds for a whole document; or the same with guides of 1 KB to 100 MB, in MB/s.
//
//   json_bench [rounds]
//   json_bench growth [rounds]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "bench/json/Documents.h"
#include "bench/json/JsonLibrary.h"
#include "bench/support/Contest.h"
#include "bench/support/Machine.h"

namespace {

using namespace kpl::bench;

using Libraries = std::vector<std::unique_ptr<JsonLibrary>>;

Libraries AllLibraries() {
    Libraries libraries;
    libraries.push_back(OurJson());
    libraries.push_back(NlohmannJson());
    libraries.push_back(JsonCppJson());
    libraries.push_back(RapidJson());
    return libraries;
}

// `digits`: what of a sum must agree.
bool Agree(const Content& a, const Content& b, double digits) {
    return a.values == b.values && a.characters == b.characters &&
           std::fabs(a.sum - b.sum) <= std::fabs(a.sum) * digits;
}

// All have read the text alike, and what each has written says the same; six digits of a number are
// what ours writes.
void CheckKept(const Libraries& libraries) {
    const Content expected = libraries.front()->Kept();
    const std::unique_ptr<JsonLibrary> reader = OurJson();
    for (const auto& library : libraries) {
        reader->Keep(library->Written());
        if (!Agree(expected, library->Kept(), 1e-12) || !Agree(expected, reader->Kept(), 1e-5)) {
            fprintf(stderr, "%s: has read or written something else\n", library->Name());
            exit(1);
        }
    }
}

void MeasureDocument(const std::string& name, const std::string& text, int rounds) {
    const Libraries libraries = AllLibraries();
    Contest parsing("parse and destroy, " + name, "ns");
    Contest writing("write, " + name, "ns");
    for (const auto& owned : libraries) {
        JsonLibrary* library = owned.get();
        library->Keep(text);
        parsing.Add(library->Name(),
                    NsPerRun([library, &text] { library->ParseAndDestroy(text); }));
        writing.Add(library->Name(), NsPerRun([library] { Keep(library->Write()); }));
    }
    // Ours keeps bytes, so what it writes of them need not be UTF-8; the others' text is.
    const std::string written = libraries.back()->Written();
    parsing.Add("raw: look at each byte",
                NsPerRun([&text] { Keep(std::count(text.begin(), text.end(), ',')); }));
    writing.Add("raw: copy", NsPerRun([&written] { Keep(std::string(written).data()); }));
    CheckKept(libraries);
    parsing.Run(rounds);
    writing.Run(rounds);
}

void Compare(int rounds) {
    MeasureDocument("guide", ProgrammeGuide(), rounds);
    MeasureDocument("numbers", Numbers(), rounds);
    MeasureDocument("strings", EscapedStrings(), rounds);
}

// Bytes a nanosecond as MB/s.
constexpr double kMegabytes = 1e3;

// A turn that does it once, for what takes long anyway.
template <typename Run>
std::function<double()> Once(Run run) {
    return [run]() mutable { return NsOf(run, 1); };
}

// Texts that are parsed often in a turn, then those that one parse of is enough. A large tree is
// kept only while its library writes it.
void Grow(size_t size, int rounds) {
    const bool large = size > 20000000;
    const std::string text = ProgrammeGuide(size);
    const auto bytes = static_cast<double>(text.size());
    const Libraries libraries = AllLibraries();
    Contest parsing("JSON parse and destroy, MB/s", "MB/s", std::to_string(size));
    Contest writing("JSON write, MB/s", "MB/s", std::to_string(size));
    for (const auto& owned : libraries) {
        JsonLibrary* library = owned.get();
        const auto parse = [library, &text] { library->ParseAndDestroy(text); };
        const auto write = [library] { Keep(library->Write()); };
        parsing.Add(library->Name(), [bytes, nanoseconds = large ? Once(parse) : NsPerRun(parse)] {
            return bytes / nanoseconds() * kMegabytes;
        });
        writing.Add(library->Name(), [&text, library, write, nanoseconds = NsPerRun(write), large] {
            if (!large) {
                return static_cast<double>(library->Write()) / nanoseconds() * kMegabytes;
            }
            library->Keep(text);
            size_t written = 0;
            auto once = [library, &written] { written = library->Write(); };
            const double took = NsOf(once, 1);
            library->Drop();
            return static_cast<double>(written) / took * kMegabytes;
        });
        if (!large) {
            library->Keep(text);
        }
    }
    parsing.Run(large ? std::min(rounds, 2) : rounds);
    writing.Run(large ? std::min(rounds, 2) : rounds);
}

void GrowAll(int rounds) {
    for (size_t size = 1000; size <= 100000000; size *= 10) {
        Grow(size, rounds);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const bool growth = argc > 1 && strcmp(argv[1], "growth") == 0;
    const char* given = argc > (growth ? 2 : 1) ? argv[growth ? 2 : 1] : nullptr;
    const int rounds = given != nullptr ? atoi(given) : growth ? 5 : 41;
    if (rounds < 1) {
        fprintf(stderr, "usage: json_bench [growth] [rounds]\n");
        return 2;
    }
    StayOnOneCore();
    if (growth) {
        GrowAll(rounds);
    } else {
        Compare(rounds);
    }
    return 0;
}
