#include "kpl/tools/DebugLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/support/OwnProgram.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace {

using kpl::test::ChildProcess;
using kpl::test::LogCapture;
using kpl::test::TempDir;
using kpl::tools::CollectLogFiles;
using kpl::tools::DumpBuffer;
using kpl::tools::DumpDbgMsg;
using kpl::tools::EnableDumpLog;
using kpl::tools::FlushLogFile;
using kpl::tools::ForceDumpDbgMsg;
using kpl::tools::IsDumpLogEnabled;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr size_t kFileLimit = 4194304;

// The file numbers of a process only ever grow, so every test of files runs in a child of its own,
// whose current directory is a fresh one.
class DebugLogFileTest : public testing::Test {
protected:
    void InChild(const std::function<void()>& body) {
        ChildProcess child([&] {
            if (chdir(m_directory.c_str()) != 0) {
                return 2;
            }
            const LogCapture capture(LogCapture::Debug::Off);
            body();
            FlushLogFile();
            return HasFailure() ? 1 : 0;
        });
        EXPECT_EQ(child.Wait(100000), 0);
    }

    std::vector<std::string> Files() const { return m_directory.Entries(); }

    std::string Path(const std::string& name) const { return m_directory.Path() + "/" + name; }

    std::string Text(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    TempDir m_directory;
};

// As much text as makes the current file pass its limit.
void PassTheLimit() {
    const std::string text(4000, 'x');
    for (size_t bytes = 0; bytes <= kFileLimit; bytes += text.size()) {
        ForceDumpDbgMsg("%s", text.c_str());
    }
}

std::string Output(const std::string& command) {
    std::string output;
    FILE* stream = popen(command.c_str(), "re");
    char piece[256];
    while (stream != nullptr && fgets(piece, sizeof(piece), stream) != nullptr) {
        output += piece;
    }
    EXPECT_EQ(stream == nullptr ? -1 : pclose(stream), 0);
    return output;
}

TEST(DebugLogTest, BeforeAnythingIsEnabledOnlyForcedMessagesGoToTheConsoleAndNoneToAFile) {
    const TempDir directory;
    const std::string command = "cd " + directory.Path() + " && " +
                                kpl::test::ShellCommand(KPL_LOG_PROGRAM) + " fresh 2>&1";
    EXPECT_EQ(Output(command), "D/KPL: forced 1\n");
    EXPECT_THAT(directory.Entries(), IsEmpty());
}

#if defined(KPL_COUNT_ALLOCATIONS)
TEST(DebugLogTest, AMessageTakesNoHeapMemory) {
    const TempDir directory;
    const std::string command = "cd " + directory.Path() + " && " +
                                kpl::test::ShellCommand(KPL_LOG_PROGRAM) + " heap 2>/dev/null";
    EXPECT_EQ(Output(command), "0\n");
}
#endif

TEST(DebugLogTest, MessagesHaveDebugPriorityAndTheTagKpl) {
    const LogCapture capture;
    DumpDbgMsg("Class::Method(): %s %d\n", "text", 5);
    EXPECT_THAT(capture.Messages(), ElementsAre("Class::Method(): text 5\n"));
    EXPECT_EQ(capture.LastPriority(), 3);
    EXPECT_EQ(capture.LastTag(), "KPL");
}

TEST(DebugLogTest, ATextWithPercentSignsIsPrintedAsItIs) {
    const LogCapture capture;
    DumpDbgMsg("%s", "100%s %n");
    EXPECT_THAT(capture.Messages(), ElementsAre("100%s %n"));
}

TEST(DebugLogTest, WhileItIsDisabledOnlyForcedMessagesArePrinted) {
    const LogCapture capture(LogCapture::Debug::Off);
    EXPECT_FALSE(IsDumpLogEnabled());
    DumpDbgMsg("ordinary\n");
    ForceDumpDbgMsg("forced\n");
    EXPECT_THAT(capture.Messages(), ElementsAre("forced\n"));
    EnableDumpLog(true, false);
    EXPECT_TRUE(IsDumpLogEnabled());
    DumpDbgMsg("now\n");
    EXPECT_THAT(capture.Messages(), ElementsAre("forced\n", "now\n"));
}

// The argument cannot be read: formatting it would end the process.
TEST(DebugLogTest, WhileItIsDisabledArgumentsAreNotTouched) {
    void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    const LogCapture capture(LogCapture::Debug::Off);
    DumpDbgMsg("%s", static_cast<const char*>(page));
    EXPECT_THAT(capture.Messages(), IsEmpty());
    munmap(page, 4096);
}

TEST(DebugLogTest, AMessageOf5000CharactersIsCutTo4094OnTheConsole) {
    const LogCapture capture;
    DumpDbgMsg("%s", std::string(5000, 'a').c_str());
    EXPECT_THAT(capture.Messages(), ElementsAre(std::string(4094, 'a')));
}

TEST(DebugLogTest, AMessageOf4094CharactersIsWhole) {
    const LogCapture capture;
    DumpDbgMsg("%s", (std::string(4093, 'a') + "b").c_str());
    DumpDbgMsg("%s", (std::string(4094, 'a') + "b").c_str());
    EXPECT_THAT(capture.Messages(),
                ElementsAre(std::string(4093, 'a') + "b", std::string(4094, 'a')));
}

// No character of the locale "C" is that wide.
constexpr wchar_t kNoCharacter[] = {L'a', 0x7fffffff, 0};

TEST(DebugLogTest, OfAMessageThatCannotBeFormattedTheConsoleShowsTheBeginning) {
    const LogCapture capture;
    DumpDbgMsg("a message before it\n");
    DumpDbgMsg("from %d %ls", 1, kNoCharacter);
    EXPECT_THAT(capture.Messages(), ElementsAre("a message before it\n", "from 1 "));
}

TEST(DebugLogTest, CollectLogFilesWithFileLoggingOffPrintsNothing) {
    const LogCapture capture;
    CollectLogFiles(0);
    EXPECT_THAT(capture.Messages(), IsEmpty());
}

TEST(DebugLogTest, DumpBufferAlwaysForcesItsMessage) {
    const LogCapture capture(LogCapture::Debug::Off);
    char buffer[4] = {};
    DumpBuffer(buffer, 4);
    DumpBuffer(nullptr, 0);
    EXPECT_EQ(capture.Count("DumpBuffer(): ???????? NOT IMPLEMENT!!"), 2);
    EXPECT_EQ(capture.Messages().size(), 2u);
}

TEST_F(DebugLogFileTest, CollectLogFilesWithFileLoggingOnForcesItsMessage) {
    InChild([] {
        EnableDumpLog(false, true);
        CollectLogFiles(7);
    });
    EXPECT_EQ(Text("LogTools0.txt"), "CollectLogFiles(): ???????? NOT IMPLEMENT!!");
}

TEST_F(DebugLogFileTest, MessagesGoToTheConsoleAndToTheFile) {
    InChild([] {
        const LogCapture console(LogCapture::Debug::Off);
        EnableDumpLog(true, true);
        DumpDbgMsg("one\n");
        ForceDumpDbgMsg("two\n");
        EXPECT_THAT(console.Messages(), ElementsAre("one\n", "two\n"));
    });
    EXPECT_THAT(Files(), ElementsAre("LogTools0.txt"));
    EXPECT_EQ(Text("LogTools0.txt"), "one\ntwo\n");
}

TEST_F(DebugLogFileTest, DisabledWithAFileOnlyForcedMessagesGoToConsoleAndFile) {
    InChild([] {
        const LogCapture console(LogCapture::Debug::Off);
        EnableDumpLog(false, true);
        DumpDbgMsg("ordinary\n");
        ForceDumpDbgMsg("forced\n");
        EXPECT_THAT(console.Messages(), ElementsAre("forced\n"));
    });
    EXPECT_EQ(Text("LogTools0.txt"), "forced\n");
}

TEST_F(DebugLogFileTest, WithoutFileLoggingTheOpenFileIsNoLongerWritten) {
    InChild([] {
        EnableDumpLog(true, true);
        DumpDbgMsg("in\n");
        EnableDumpLog(true, false);
        DumpDbgMsg("out\n");
    });
    EXPECT_THAT(Files(), ElementsAre("LogTools0.txt"));
    EXPECT_EQ(Text("LogTools0.txt"), "in\n");
}

TEST_F(DebugLogFileTest, EnablingAgainStartsTheNextFile) {
    InChild([] {
        EnableDumpLog(true, true);
        DumpDbgMsg("zero\n");
        EnableDumpLog(true, true);
        DumpDbgMsg("one\n");
    });
    EXPECT_EQ(Text("LogTools0.txt"), "zero\n");
    EXPECT_EQ(Text("LogTools1.txt"), "one\n");
}

TEST_F(DebugLogFileTest, TheDirectoryIsTheOneThatWasCurrentWhenLoggingWasSwitchedOn) {
    InChild([] {
        EnableDumpLog(true, true);
        ASSERT_EQ(chdir("/"), 0);
        PassTheLimit();
        DumpDbgMsg("in the second\n");
    });
    EXPECT_THAT(Files(), ElementsAre("LogTools0.txt", "LogTools1.txt"));
    EXPECT_EQ(Text("LogTools1.txt"), "in the second\n");
}

TEST_F(DebugLogFileTest, AnOlderFileOfThatNameIsTruncated) {
    std::ofstream(Path("LogTools0.txt")) << "from an earlier process\n";
    InChild([] {
        EnableDumpLog(true, true);
        DumpDbgMsg("new\n");
    });
    EXPECT_EQ(Text("LogTools0.txt"), "new\n");
}

TEST_F(DebugLogFileTest, TheMessageThatPassesTheLimitIsTheLastOneInItsFile) {
    InChild([] {
        EnableDumpLog(true, true);
        const std::string block(1024, 'x');
        for (size_t i = 0; i < kFileLimit / block.size(); ++i) {
            DumpDbgMsg("%s", block.c_str());
        }
        EXPECT_FALSE(std::filesystem::exists("LogTools1.txt"));
        DumpDbgMsg("last");
        EXPECT_TRUE(std::filesystem::exists("LogTools1.txt"));
        DumpDbgMsg("next");
    });
    const std::string first = Text("LogTools0.txt");
    EXPECT_EQ(first.size(), kFileLimit + 4);
    EXPECT_EQ(first.substr(kFileLimit), "last");
    EXPECT_EQ(Text("LogTools1.txt"), "next");
}

TEST_F(DebugLogFileTest, AnOverlongMessageIsWrittenAndCountedAsItIsInTheBuffer) {
    InChild([] {
        EnableDumpLog(true, true);
        const std::string text(9000, 'x');
        // 1024 of them hold 4192256 bytes; with their uncut lengths they would pass the limit.
        for (int i = 0; i < 1024; ++i) {
            DumpDbgMsg("%s", text.c_str());
        }
    });
    EXPECT_THAT(Files(), ElementsAre("LogTools0.txt"));
    EXPECT_EQ(Text("LogTools0.txt"), std::string(1024 * 4094, 'x'));
}

TEST_F(DebugLogFileTest, EveryFormattedCharacterIsWrittenAlsoAZero) {
    InChild([] {
        EnableDumpLog(true, true);
        DumpDbgMsg("a%cb", 0);
    });
    EXPECT_EQ(Text("LogTools0.txt"), std::string("a\0b", 3));
}

TEST_F(DebugLogFileTest, AMessageThatCannotBeFormattedDoesNotGoToTheFile) {
    InChild([] {
        EnableDumpLog(true, true);
        DumpDbgMsg("from %d %ls", 1, kNoCharacter);
        DumpDbgMsg("next");
    });
    EXPECT_EQ(Text("LogTools0.txt"), "next");
}

std::vector<std::string> NamesOf(int first, int last) {
    std::vector<std::string> names;
    for (int i = first; i <= last; ++i) {
        names.push_back("LogTools" + std::to_string(i) + ".txt");
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST_F(DebugLogFileTest, TheEleventhFileDeletesTheFirst) {
    InChild([this] {
        for (int i = 0; i < 10; ++i) {
            EnableDumpLog(true, true);
        }
        EXPECT_EQ(Files(), NamesOf(0, 9));
        EnableDumpLog(true, true);
        EXPECT_EQ(Files(), NamesOf(1, 10));
    });
}

// The opening when logging is switched on is the first of the twelve.
TEST_F(DebugLogFileTest, AfterTwelveRotationsOnlyLogTools2To11Remain) {
    InChild([] {
        EnableDumpLog(true, true);
        for (int i = 1; i < 12; ++i) {
            PassTheLimit();
        }
    });
    EXPECT_EQ(Files(), NamesOf(2, 11));
    EXPECT_EQ(Text("LogTools11.txt"), "");
    EXPECT_GT(std::filesystem::file_size(Path("LogTools10.txt")), kFileLimit);
}

TEST_F(DebugLogFileTest, AnOldFileThatCannotBeDeletedIsIgnored) {
    InChild([] {
        EnableDumpLog(true, true);
        ASSERT_EQ(unlink("LogTools0.txt"), 0);
        for (int i = 1; i < 11; ++i) {
            EnableDumpLog(true, true);
        }
        DumpDbgMsg("fine\n");
    });
    EXPECT_EQ(Text("LogTools10.txt"), "fine\n");
}

TEST_F(DebugLogFileTest, FlushClosesTheFileAndDropsOutputUntilLoggingIsEnabledAgain) {
    InChild([this] {
        EnableDumpLog(true, true);
        DumpDbgMsg("before\n");
        FlushLogFile();
        EXPECT_EQ(Text("LogTools0.txt"), "before\n");
        DumpDbgMsg("dropped\n");
        FlushLogFile();
        EXPECT_EQ(Text("LogTools0.txt"), "before\n");
        EXPECT_THAT(Files(), ElementsAre("LogTools0.txt"));
        EnableDumpLog(true, true);
        DumpDbgMsg("after\n");
    });
    EXPECT_THAT(Files(), ElementsAre("LogTools0.txt", "LogTools1.txt"));
    EXPECT_EQ(Text("LogTools1.txt"), "after\n");
}

TEST_F(DebugLogFileTest, FlushClearsTheByteCount) {
    InChild([] {
        EnableDumpLog(true, true);
        PassTheLimit();
        DumpDbgMsg("%s", std::string(4000, 'x').c_str());
        FlushLogFile();
        EnableDumpLog(true, true);
        const std::string block(4096 - 2, 'x');
        for (size_t i = 0; i < kFileLimit / block.size(); ++i) {
            DumpDbgMsg("%s", block.c_str());
        }
        EXPECT_FALSE(std::filesystem::exists("LogTools3.txt"));
    });
}

TEST_F(DebugLogFileTest, AFailedOpenStopsTheFileUntilLoggingIsEnabledAgain) {
    ASSERT_EQ(mkdir(Path("LogTools0.txt").c_str(), 0777), 0);
    InChild([] {
        EnableDumpLog(true, true);
        DumpDbgMsg("dropped\n");
        EXPECT_FALSE(std::filesystem::exists("LogTools1.txt"));
        EnableDumpLog(true, true);
        DumpDbgMsg("written\n");
    });
    EXPECT_EQ(Text("LogTools1.txt"), "written\n");
}

TEST_F(DebugLogFileTest, AFailedOpenAtARotationStopsTheFileToo) {
    ASSERT_EQ(mkdir(Path("LogTools1.txt").c_str(), 0777), 0);
    InChild([] {
        EnableDumpLog(true, true);
        PassTheLimit();
        PassTheLimit();
        EXPECT_FALSE(std::filesystem::exists("LogTools2.txt"));
        EnableDumpLog(true, true);
        DumpDbgMsg("written\n");
    });
    EXPECT_EQ(Text("LogTools2.txt"), "written\n");
}

TEST_F(DebugLogFileTest, TheFileIsNotHandedToChildProcesses) {
    InChild([this] {
        EnableDumpLog(true, true);
        int found = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry, gone) == Path("LogTools0.txt")) {
                const int fd = std::stoi(entry.path().filename());
                EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
                ++found;
            }
        }
        EXPECT_EQ(found, 1);
    });
}

constexpr int kThreads = 2;
constexpr int kLinesPerThread = 30000;
constexpr size_t kLineLength = 300;

// "thread number xxx...\n", all of one length.
std::string Line(int thread, int number) {
    std::string line = std::to_string(thread) + " " + std::to_string(number) + " ";
    return line + std::string(kLineLength - line.size() - 1, 'x') + "\n";
}

void LogLines(int thread) {
    for (int i = 0; i < kLinesPerThread; ++i) {
        DumpDbgMsg("%s", Line(thread, i).c_str());
    }
}

TEST_F(DebugLogFileTest, ThreadsThatPassTheLimitTogetherLoseAndTearNothing) {
    InChild([] {
        EnableDumpLog(true, true);
        std::thread other(&LogLines, 1);
        LogLines(0);
        other.join();
    });
    std::multiset<std::string> lines;
    ASSERT_EQ(Files(), NamesOf(0, 4));
    for (const std::string& name : Files()) {
        const std::string text = Text(name);
        EXPECT_LE(text.size(), kFileLimit + kThreads * kLineLength) << name;
        EXPECT_TRUE(text.size() > kFileLimit || name == "LogTools4.txt") << name;
        ASSERT_EQ(text.size() % kLineLength, 0u) << name;
        for (size_t i = 0; i < text.size(); i += kLineLength) {
            lines.insert(text.substr(i, kLineLength));
        }
    }
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLinesPerThread));
    for (int i = 0; i < kThreads * kLinesPerThread; ++i) {
        ASSERT_EQ(lines.count(Line(i % kThreads, i / kThreads)), 1u);
    }
}

}  // namespace
