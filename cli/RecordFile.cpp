#include "cli/RecordFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

namespace kpl::cli {

namespace {

constexpr char kMagic[] = "KPLREC\r\n";
constexpr size_t kMagicSize = sizeof(kMagic) - 1;
constexpr size_t kHeaderSize = 24;
constexpr size_t kEntryHeaderSize = 20;

void Append(std::string* bytes, uint64_t value, int width) {
    for (int i = 0; i < width; ++i) {
        *bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    }
}

uint64_t Load(const char* from, int width) {
    uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i) {
        value = value << 8 | static_cast<unsigned char>(from[i]);
    }
    return value;
}

uint32_t LoadWord(const char* from) {
    return static_cast<uint32_t>(Load(from, 4));
}

bool HasBytes(EntryKind kind) {
    return kind == EntryKind::FromClient || kind == EntryKind::FromServer;
}

bool IsKnown(uint32_t kind) {
    return kind >= static_cast<uint32_t>(EntryKind::Opened) &&
           kind <= static_cast<uint32_t>(EntryKind::Refused);
}

}  // namespace

std::string RecordHeader(uint64_t startUs) {
    std::string bytes = kMagic;
    Append(&bytes, kRecordVersion, 4);
    Append(&bytes, 0, 4);
    Append(&bytes, startUs, 8);
    return bytes;
}

std::string RecordEntryBytes(const RecordEntry& entry) {
    std::string bytes;
    Append(&bytes, static_cast<uint32_t>(entry.kind), 4);
    Append(&bytes, entry.connection, 4);
    Append(&bytes, entry.timeUs, 8);
    Append(&bytes, entry.bytes.size(), 4);
    return bytes + entry.bytes;
}

RecordWriter::RecordWriter() : m_start(std::chrono::steady_clock::now()) {}

RecordWriter::~RecordWriter() {
    if (m_descriptor != -1) {
        close(m_descriptor);
    }
}

std::string RecordWriter::Create(const std::string& path) {
    m_descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (m_descriptor == -1) {
        const char* const hint = errno == EEXIST ? "; remove it, or take another name" : "";
        return "cannot make '" + path + "': " + strerror(errno) + hint;
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    const std::lock_guard<std::mutex> lock(m_lock);
    (void)WriteAll(RecordHeader(static_cast<uint64_t>(us)));
    return m_fault;
}

bool RecordWriter::Write(EntryKind kind, uint32_t connection, const char* bytes, size_t size) {
    using std::chrono::microseconds;
    RecordEntry entry;
    entry.kind = kind;
    entry.connection = connection;
    entry.bytes.assign(bytes, size);
    const std::lock_guard<std::mutex> lock(m_lock);
    // Under the lock, so that times never run backwards in the file.
    const auto since = std::chrono::steady_clock::now() - m_start;
    entry.timeUs = static_cast<uint64_t>(std::chrono::duration_cast<microseconds>(since).count());
    if (!m_fault.empty() || !WriteAll(RecordEntryBytes(entry))) {
        return false;
    }
    ++m_entries;
    return true;
}

bool RecordWriter::WriteAll(const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(m_descriptor, bytes.data() + done, bytes.size() - done);
        if (written > 0) {
            done += static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            m_fault = std::string("cannot write the recording: ") + strerror(errno);
            return false;
        }
    }
    return true;
}

std::string RecordWriter::Fault() {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_fault;
}

uint64_t RecordWriter::EntryCount() {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_entries;
}

std::string RecordReader::Open() {
    char header[kHeaderSize] = {};
    m_in->read(header, kHeaderSize);
    if (m_in->gcount() != static_cast<std::streamsize>(kHeaderSize) ||
        memcmp(header, kMagic, kMagicSize) != 0) {
        return "is no recording of kpl-rpc";
    }
    const uint32_t version = LoadWord(header + kMagicSize);
    if (version != kRecordVersion) {
        return "is a recording of version " + std::to_string(version) + "; this program reads " +
               std::to_string(kRecordVersion);
    }
    m_startUs = Load(header + 16, 8);
    m_offset = kHeaderSize;
    return "";
}

bool RecordReader::Refuse(const std::string& what) {
    m_fault = what + " at byte " + std::to_string(m_offset);
    return false;
}

bool RecordReader::Next(RecordEntry* entry) {
    char header[kEntryHeaderSize] = {};
    m_in->read(header, kEntryHeaderSize);
    if (m_in->gcount() == 0 || !m_fault.empty()) {
        return false;
    }
    if (m_in->gcount() != static_cast<std::streamsize>(kEntryHeaderSize)) {
        return Refuse("an entry is cut off");
    }
    const uint32_t kind = LoadWord(header);
    const uint32_t length = LoadWord(header + 16);
    if (!IsKnown(kind)) {
        return Refuse("an entry of an unknown kind (" + std::to_string(kind) + ")");
    }
    entry->kind = static_cast<EntryKind>(kind);
    if (length > (HasBytes(entry->kind) ? kMaxEntryBytes : 0)) {
        return Refuse("an entry of " + std::to_string(length) + " bytes");
    }
    entry->connection = LoadWord(header + 4);
    entry->timeUs = Load(header + 8, 8);
    entry->bytes.resize(length);
    m_in->read(entry->bytes.data(), static_cast<std::streamsize>(length));
    if (m_in->gcount() != static_cast<std::streamsize>(length)) {
        return Refuse("an entry is cut off");
    }
    m_offset += kEntryHeaderSize + length;
    return true;
}

}  // namespace kpl::cli
