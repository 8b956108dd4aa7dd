#include "cli/RecordFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <sstream>
#include <vector>

#include "tests/cli/Tool.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using namespace kpl::cli;
using kpl::test::ReadWhole;

std::string Example() {
    return kpl::test::WireFormatsExample("recording");
}

// The entries up to the end or the fault.
std::vector<RecordEntry> ReadAll(const std::string& bytes, std::string* fault) {
    std::istringstream in(bytes);
    RecordReader reader(&in);
    std::vector<RecordEntry> entries;
    *fault = reader.Open();
    RecordEntry entry;
    while (fault->empty() && reader.Next(&entry)) {
        entries.push_back(entry);
    }
    *fault = fault->empty() ? reader.Fault() : *fault;
    return entries;
}

std::string WriteAgain(const std::vector<RecordEntry>& entries) {
    std::string bytes = RecordHeader(1773520200000000);
    for (const RecordEntry& entry : entries) {
        bytes += RecordEntryBytes(entry);
    }
    return bytes;
}

TEST(RecordFileTest, TheWorkedExampleIsReadAndWritten) {
    std::string fault;
    const std::vector<RecordEntry> entries = ReadAll(Example(), &fault);
    EXPECT_EQ("", fault);
    ASSERT_EQ(4u, entries.size());
    EXPECT_EQ(EntryKind::Opened, entries[0].kind);
    EXPECT_EQ(10u, entries[0].timeUs);
    EXPECT_EQ(EntryKind::FromClient, entries[1].kind);
    EXPECT_EQ(28u, entries[1].bytes.size());
    EXPECT_EQ(EntryKind::FromServer, entries[2].kind);
    EXPECT_EQ(1u, entries[2].connection);
    EXPECT_EQ(EntryKind::Closed, entries[3].kind);
    EXPECT_EQ(Example(), WriteAgain(entries));
}

TEST(RecordFileTest, AFileCutAnywhereIsReadUpToThere) {
    const std::string whole = Example();
    const std::vector<size_t> ends = {24, 44, 92, 128, 148};
    ASSERT_EQ(ends.back(), whole.size());
    for (size_t size = 0; size <= whole.size(); ++size) {
        std::string fault;
        const size_t count = ReadAll(whole.substr(0, size), &fault).size();
        size_t begun = 0;
        bool isWhole = false;
        for (size_t i = 0; i < ends.size(); ++i) {
            begun = size >= ends[i] ? i : begun;
            isWhole = isWhole || size == ends[i];
        }
        EXPECT_EQ(begun, count) << size;
        const std::string expected =
            size < 24 ? "is no recording of kpl-rpc"
                      : "an entry is cut off at byte " + std::to_string(ends[begun]);
        EXPECT_EQ(isWhole ? "" : expected, fault) << size;
    }
}

TEST(RecordFileTest, AnotherVersionIsRefused) {
    std::string bytes = Example();
    bytes[8] = 2;
    std::string fault;
    EXPECT_TRUE(ReadAll(bytes, &fault).empty());
    EXPECT_EQ("is a recording of version 2; this program reads 1", fault);
}

TEST(RecordFileTest, AnUnknownKindIsRefused) {
    for (const char kind : {'\0', '\6', '\377'}) {
        std::string bytes = Example();
        bytes[44] = kind;
        std::string fault;
        EXPECT_EQ(1u, ReadAll(bytes, &fault).size());
        EXPECT_EQ(0u, fault.find("an entry of an unknown kind (")) << fault;
        EXPECT_NE(std::string::npos, fault.find(" at byte 44"));
    }
}

TEST(RecordFileTest, AnEntryBeyondTheLimitIsRefusedUnread) {
    std::string fault;
    const RecordEntry largest{EntryKind::FromClient, 1, 0, std::string(65536, 'x')};
    EXPECT_EQ(1u, ReadAll(RecordHeader(0) + RecordEntryBytes(largest), &fault).size());
    EXPECT_EQ("", fault);
    std::string bytes = Example();
    bytes[44 + 18] = 1;  // 65564 bytes
    EXPECT_EQ(1u, ReadAll(bytes, &fault).size());
    EXPECT_EQ("an entry of 65564 bytes at byte 44", fault);
}

TEST(RecordFileTest, AnEntryOfAnotherKindHasNoBytes) {
    std::string fault;
    const RecordEntry entry{EntryKind::Closed, 1, 0, "x"};
    EXPECT_TRUE(ReadAll(RecordHeader(0) + RecordEntryBytes(entry), &fault).empty());
    EXPECT_EQ("an entry of 1 bytes at byte 24", fault);
}

TEST(RecordFileTest, TheWriterWritesWhatTheReaderReads) {
    kpl::test::TempDir directory;
    const std::string path = directory.Path() + "/file";
    RecordWriter writer;
    ASSERT_EQ("", writer.Create(path));
    EXPECT_TRUE(writer.Write(EntryKind::Opened, 7, nullptr, 0));
    EXPECT_TRUE(writer.Write(EntryKind::FromServer, 7, "a\0b", 3));
    EXPECT_EQ(2u, writer.EntryCount());
    std::string fault;
    const std::vector<RecordEntry> entries = ReadAll(ReadWhole(path), &fault);
    EXPECT_EQ("", fault);
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ(7u, entries[1].connection);
    EXPECT_EQ(std::string("a\0b", 3), entries[1].bytes);
    EXPECT_LE(entries[0].timeUs, entries[1].timeUs);
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777u) << "calls may hold secrets";
}

TEST(RecordFileTest, AnExistingFileIsKept) {
    kpl::test::TempDir directory;
    const std::string path = directory.Path() + "/file";
    ASSERT_EQ("", RecordWriter().Create(path));
    const std::string before = ReadWhole(path);
    EXPECT_EQ("cannot make '" + path + "': File exists; remove it, or take another name",
              RecordWriter().Create(path));
    EXPECT_EQ(before, ReadWhole(path));
}

TEST(RecordFileTest, AFullDiskIsAFaultThatStays) {
    signal(SIGXFSZ, SIG_IGN);
    kpl::test::TempDir directory;
    RecordWriter writer;
    ASSERT_EQ("", writer.Create(directory.Path() + "/file"));
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    rlimit small = before;
    small.rlim_cur = 24;
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    EXPECT_FALSE(writer.Write(EntryKind::Opened, 1, nullptr, 0));
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
    EXPECT_FALSE(writer.Write(EntryKind::Opened, 1, nullptr, 0)) << "a gap would not be seen";
    EXPECT_EQ("cannot write the recording: File too large", writer.Fault());
    EXPECT_EQ(0u, writer.EntryCount());
}

}  // namespace
