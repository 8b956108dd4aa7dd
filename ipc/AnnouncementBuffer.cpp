#include "ipc/AnnouncementBuffer.h"

#include <string.h>

#include <algorithm>

#include "kpl/tools/DebugLog.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

constexpr int kHeaderSize = static_cast<int>(sizeof(Announcement));

// What a FIFO holds unless somebody enlarges it, so the most that one read brings.
constexpr int kFifoCapacity = 0x10000;

}  // namespace

AnnouncementBuffer::AnnouncementBuffer() : m_buffer(new char[kSize]()) {}

void AnnouncementBuffer::Clear() {
    memset(m_buffer.get(), 0, kSize);
    m_pending = 0;
    m_offset = 0;
}

// Bytes are read to the parse offset, where bytes that could not be parsed still stand: they are
// overwritten, and only their count stays. So a header split across two reads is not put together
// again, and the next one is looked for at the start of what was read last. Counts of foreign bytes
// add up; with less room than a whole FIFO a read could end inside somebody's announcement.
char* AnnouncementBuffer::Room() {
    if (RoomSize() < kFifoCapacity) {
        Clear();
    }
    return m_buffer.get() + m_offset;
}

int AnnouncementBuffer::RoomSize() const {
    return kSize - std::max(m_pending, m_offset);
}

std::optional<Announcement> AnnouncementBuffer::Next(int received) {
    m_pending += received;
    // The second test is for a stale count near the end of the buffer.
    if (m_pending < kHeaderSize || m_offset > kSize - kHeaderSize) {
        ProcessCorruptedData();
        return std::nullopt;
    }
    const Announcement header = HeaderAt(m_offset);
    DumpDbgMsg("IpcServerPipeImpl::ParseBufferData(): MagicNum=0x%x, ID=%d, Cmd=%d, Length=%d\n",
               header.magic, static_cast<int>(header.id), static_cast<int>(header.command),
               static_cast<int>(header.length));
    const int64_t size = SizeToConsume(header);
    const int64_t rest = m_pending - size;
    if (rest < 0 || IsCutShort(header)) {
        ProcessCorruptedData();
        SkipToNextAnnouncement();
        return std::nullopt;
    }
    DumpDbgMsg(
        "IpcServerPipeImpl::ParseBufferData(): Total Data size=%d, Current Extra Data Size=%d, "
        "Header Size=%d, Rest Total Size=%d)\n",
        m_pending, static_cast<int>(header.length), kHeaderSize, static_cast<int>(rest));
    Consume(size);
    return header;
}

int64_t AnnouncementBuffer::SizeToConsume(const Announcement& header) const {
    const int64_t size = int64_t{header.length} + kHeaderSize;
    if (header.magic == kAnnouncementMagic) {
        return size;
    }
    const int64_t end = std::min<int64_t>({size, m_pending, kSize - m_offset});
    const int next = FindMagic(m_offset + 1, m_offset + static_cast<int>(end));
    return next < 0 ? size : next - m_offset;
}

// The length of the inner one tells the rare id that reads like a magic from a real beginning.
bool AnnouncementBuffer::IsCutShort(const Announcement& header) const {
    const int inner = FindMagic(m_offset + 1, m_offset + kHeaderSize);
    return header.magic == kAnnouncementMagic && inner >= 0 &&
           int64_t{HeaderAt(inner).length} + kHeaderSize <= m_offset + m_pending - inner;
}

Announcement AnnouncementBuffer::HeaderAt(int position) const {
    Announcement header{};
    memcpy(&header, m_buffer.get() + position, sizeof(header));
    return header;
}

void AnnouncementBuffer::Consume(int64_t size) {
    m_pending -= static_cast<int>(size);
    m_offset = m_pending == 0 ? 0 : static_cast<int>(std::min<int64_t>(m_offset + size, kSize));
}

// What is behind the bytes that stay is wiped: their count goes on when the next read overwrites
// them, so the parser will look there, and must not find an old announcement a second time.
void AnnouncementBuffer::ProcessCorruptedData() {
    ForceDumpDbgMsg(
        "IpcServerPipeImpl::ProcessCorruptedData(): ????????? corrupted data(Total=%d, Offset=%d, "
        "Max=%d)\n",
        m_pending, m_offset, kSize);
    const int room = kSize - m_offset;
    if (room != m_pending) {
        ForceDumpDbgMsg("IpcServerPipeImpl::ProcessCorruptedData(): ??????? Invalid size(%d, %d)\n",
                        room, m_pending);
    }
    const auto kept = static_cast<size_t>(std::min(room, m_pending));
    memmove(m_buffer.get(), m_buffer.get() + m_offset, kept);
    memset(m_buffer.get() + kept, 0, kSize - kept);
    m_offset = 0;
}

// After a header that claims more than there is: what follows it may be somebody else's.
void AnnouncementBuffer::SkipToNextAnnouncement() {
    const int next = FindMagic(1, std::min(m_pending, kSize));
    if (next >= 0) {
        Consume(next);
    }
}

int AnnouncementBuffer::FindMagic(int from, int end) const {
    const int lastHeader = std::min(m_offset + m_pending, kSize) - kHeaderSize;
    const int last = std::min(end - 1, lastHeader);
    if (from > last) {
        return -1;
    }
    const size_t size = static_cast<size_t>(last - from) + sizeof(kAnnouncementMagic);
    const void* found =
        memmem(m_buffer.get() + from, size, &kAnnouncementMagic, sizeof(kAnnouncementMagic));
    return found == nullptr ? -1
                            : static_cast<int>(static_cast<const char*>(found) - m_buffer.get());
}

}  // namespace kpl::ipc
