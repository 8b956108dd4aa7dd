// What a message costs while the log is off, beside a call that does nothing but look, an empty
// loop, and the formatting that is saved; and what one costs that goes to a file, beside spdlog.
// All files are in a directory that goes with the program.
//
//   log_bench [rounds]
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include "bench/support/Contest.h"
#include "bench/support/Machine.h"
#include "bench/tools/SpdlogPeer.h"
#include "kpl/tools/DebugLog.h"

// The console is no part of what is measured.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using kpl::bench::Contest;
using kpl::bench::Keep;
using kpl::bench::NsPerRun;
using kpl::bench::SpdlogPeer;

constexpr char kFormat[] = "Bench::Run(): step %d of %s\n";
constexpr char kOf[] = "many";

[[noreturn]] void Fail(const std::string& what) {
    fprintf(stderr, "log_bench: %s\n", what.c_str());
    exit(1);
}

void MeasureDisabled(int rounds) {
    kpl::tools::EnableDumpLog(false, false);
    Contest contest("disabled message", "ns");
    int i = 0;
    contest.Add("ours", NsPerRun([&i] { kpl::tools::DumpDbgMsg(kFormat, ++i, kOf); }));
    // To look at the same flag, without arguments.
    contest.Add("raw: IsDumpLogEnabled", NsPerRun([] { Keep(kpl::tools::IsDumpLogEnabled()); }));
    contest.Add("raw: nothing", NsPerRun([&i] { Keep(++i); }));
    char text[4096];
    contest.Add("vsnprintf alone", NsPerRun([&i, &text] {
                    snprintf(text, sizeof(text), kFormat, ++i, kOf);
                    Keep(text);
                }));
    contest.Run(rounds);
}

// The current directory, where the log puts its files.
class TempDirectory {
public:
    TempDirectory() : m_path(std::filesystem::temp_directory_path() / "log_bench.XXXXXX") {
        if (mkdtemp(m_path.data()) == nullptr || chdir(m_path.c_str()) != 0) {
            Fail("no directory for the files");
        }
    }
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

private:
    std::string m_path;
};

// A log as one would write it by hand: a format, a lock, a stream.
class PlainLog {
public:
    explicit PlainLog(const char* path) : m_path(path), m_file(fopen(path, "wbe")) {
        if (m_file == nullptr) {
            Fail("no file");
        }
    }
    ~PlainLog() { fclose(m_file); }
    PlainLog(const PlainLog&) = delete;
    PlainLog& operator=(const PlainLog&) = delete;

    void Truncate() {
        m_file = freopen(m_path, "wbe", m_file);
        if (m_file == nullptr) {
            Fail("no file");
        }
    }

    void Write(const char* text, size_t length) { fwrite(text, 1, length, m_file); }

    void Flush() { fflush(m_file); }

    __attribute__((noinline, format(printf, 2, 3))) void Print(const char* format, ...) {
        char text[4096];
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(text, sizeof(text), format, arguments);
        va_end(arguments);
        pthread_mutex_lock(&m_lock);
        Write(text, static_cast<size_t>(length));
        pthread_mutex_unlock(&m_lock);
    }

private:
    const char* const m_path;
    FILE* m_file;
    pthread_mutex_t m_lock = PTHREAD_MUTEX_INITIALIZER;
};

std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void CheckText(const char* name, const std::string& path) {
    if (FileText(path) != "Bench::Run(): step 1 of many\nBench::Run(): step 2 of many\n") {
        Fail(std::string(name) + " writes another text");
    }
}

// A file that only grows begins anew for each turn, so that the disk holds them.
template <typename Log, typename Run>
std::function<double()> OnNewFile(Log* log, Run run) {
    return [log, turn = NsPerRun(std::move(run))] {
        log->Truncate();
        return turn();
    };
}

void MeasureToFile(int rounds) {
    const TempDirectory directory;
    kpl::tools::EnableDumpLog(true, true);
    SpdlogPeer spdlog("spdlog.txt");
    PlainLog plain("plain.txt");
    PlainLog ready("ready.txt");
    std::string text = "Bench::Run(): step 1 of many\n";
    for (int step = 1; step <= 2; ++step) {
        kpl::tools::DumpDbgMsg(kFormat, step, kOf);
        spdlog.Step(step, kOf);
        plain.Print(kFormat, step, kOf);
    }
    kpl::tools::FlushLogFile();
    spdlog.Flush();
    plain.Flush();
    CheckText("ours", "LogTools0.txt");
    CheckText("spdlog", "spdlog.txt");
    CheckText("vsnprintf, lock and fwrite", "plain.txt");

    kpl::tools::EnableDumpLog(true, true);
    Contest contest("enabled message to file", "ns");
    int i = 0;
    contest.Add("ours", NsPerRun([&i] { kpl::tools::DumpDbgMsg(kFormat, ++i, kOf); }));
    contest.Add("spdlog", OnNewFile(&spdlog, [&i, &spdlog] { spdlog.Step(++i, kOf); }));
    contest.Add("raw: fwrite",
                OnNewFile(&ready, [&ready, &text] { ready.Write(text.data(), text.size()); }));
    contest.Add("raw: vsnprintf, lock and fwrite",
                OnNewFile(&plain, [&i, &plain] { plain.Print(kFormat, ++i, kOf); }));
    contest.Run(rounds);
    kpl::tools::EnableDumpLog(false, false);
    kpl::tools::FlushLogFile();
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = std::max(argc > 1 ? atoi(argv[1]) : 15, 1);
    fprintf(stderr, "%s\n", SpdlogPeer::Version().c_str());
    kpl::bench::StayOnOneCore();
    MeasureDisabled(rounds);
    MeasureToFile(rounds);
    return 0;
}
