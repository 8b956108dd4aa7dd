#ifndef KPL_IPC_ANNOUNCEMENTBUFFER_H_
#define KPL_IPC_ANNOUNCEMENTBUFFER_H_

#include <stdint.h>

#include <memory>
#include <optional>

#include "ipc/Announcement.h"

namespace kpl::ipc {

// What the server has read from its Root FIFO and not parsed yet. Announcements are 16 bytes in one
// write, which a FIFO delivers whole; anything else in here is somebody's mistake, and must not
// cost anybody else a connection. Accept thread only.
class AnnouncementBuffer {
public:
    static constexpr int kSize = 0x40000;

    AnnouncementBuffer();

    // Where the next bytes go, and how many fit. A buffer without room for all that a FIFO may hold
    // is emptied first.
    char* Room();
    int RoomSize() const;

    bool IsEmpty() const { return m_pending == 0; }
    int Pending() const { return m_pending; }

    // Takes `received` more bytes (0 for none) and consumes the next announcement with its extra
    // data. Nothing for an incomplete or impossible one.
    std::optional<Announcement> Next(int received);

    void Clear();

private:
    // What a header really covers: with a wrong magic its length means nothing, so what it claims
    // is skipped only up to the next announcement.
    int64_t SizeToConsume(const Announcement& header) const;
    // True if somebody wrote only the beginning of an announcement: another one begins inside it.
    bool IsCutShort(const Announcement& header) const;
    void Consume(int64_t size);
    void ProcessCorruptedData();
    void SkipToNextAnnouncement();
    // Position of the next magic from `from` on, -1 if there is none with a whole header.
    int FindMagic(int from, int end) const;
    Announcement HeaderAt(int position) const;

    std::unique_ptr<char[]> m_buffer;
    int m_pending = 0;  // bytes received and not parsed
    int m_offset = 0;   // of the first of them
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_ANNOUNCEMENTBUFFER_H_
