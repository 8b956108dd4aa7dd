// The file that `kpl-rpc record` writes; docs/wire-formats.md has it as a table. Every number is
// little-endian, whatever the host is:
//
//   header, 24 bytes   magic "KPLREC\r\n", u32 version 1, u32 0, u64 start in microseconds since
//   1970 entries            u32 kind, u32 connection, u64 microseconds since the start, u32 length
//   L,
//                      L bytes
#ifndef KPL_CLI_RECORDFILE_H_
#define KPL_CLI_RECORDFILE_H_

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <functional>
#include <istream>
#include <mutex>
#include <string>

namespace kpl::cli {

// The second word of a file; a reader refuses any other.
constexpr uint32_t kRecordVersion = 1;

// The most bytes in an entry; a reader refuses more.
constexpr uint32_t kMaxEntryBytes = 65536;

enum class EntryKind : uint32_t {
    Opened = 1,      // a client was accepted
    FromClient = 2,  // bytes that it wrote
    FromServer = 3,  // bytes that the real server wrote
    Closed = 4,      // the connection has ended
    Refused = 5,     // the real server did not take it
};

struct RecordEntry {
    EntryKind kind{};
    uint32_t connection = 0;  // counted from 1 in the order of their coming
    uint64_t timeUs = 0;      // since the start of the recording
    std::string bytes;        // only of the two kinds that have some
};

// The bytes of a header and of an entry.
std::string RecordHeader(uint64_t startUs);
std::string RecordEntryBytes(const RecordEntry& entry);

// Writes a recording as it happens. Each entry is one write(2), so that what a killed recorder
// leaves is readable up to its last entry. Any thread.
class RecordWriter {
public:
    RecordWriter();
    ~RecordWriter();
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    // Makes the file, which must not exist, for its owner alone: calls may hold secrets. Empty if
    // all is well, else why not.
    std::string Create(const std::string& path);

    // False when it, or an earlier one, could not be written.
    bool Write(EntryKind kind, uint32_t connection, const char* bytes, size_t size);

    // Why not; empty if all were written.
    std::string Fault();
    uint64_t EntryCount();

private:
    bool WriteAll(const std::string& bytes);

    const std::chrono::steady_clock::time_point m_start;
    int m_descriptor = -1;
    std::mutex m_lock;  // the rest is guarded by it
    std::string m_fault;
    uint64_t m_entries = 0;
};

// Reads a recording, which may be anything.
class RecordReader {
public:
    explicit RecordReader(std::istream* in) : m_in(in) {}

    // Reads the header. Empty if all is well, else what is wrong with it.
    std::string Open();

    uint64_t StartUs() const { return m_startUs; }

    // The next entry. False at the end: then Fault says whether the file ends as it should.
    bool Next(RecordEntry* entry);

    // Empty, or what is wrong with the file and where.
    const std::string& Fault() const { return m_fault; }

private:
    bool Refuse(const std::string& what);

    std::istream* const m_in;
    uint64_t m_startUs = 0;
    uint64_t m_offset = 0;
    std::string m_fault;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_RECORDFILE_H_
