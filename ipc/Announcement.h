#ifndef KPL_IPC_ANNOUNCEMENT_H_
#define KPL_IPC_ANNOUNCEMENT_H_

#include <stdint.h>

namespace kpl::ipc {

// What a client writes into a server's Root FIFO, in one write of 16 bytes; host byte order.
// `length` bytes of extra data may follow and are skipped.
struct Announcement {
    uint32_t magic;
    uint32_t id;       // of the connection: 0 to 2^31-1, drawn at random by the client
    uint32_t command;  // 0; not interpreted
    uint32_t length;   // 0 from our client
};
static_assert(sizeof(Announcement) == 16, "the wire format has no padding");

constexpr uint32_t kAnnouncementMagic = 0x49504320;

// Ends the accept step's wait with an announcement of a wrong magic, which is otherwise ignored. A
// connection that has ended asks it in this way to come by and clean up. Does not wait; without a
// server of that name nothing happens.
void WakeAcceptStep(const char* serverName);

}  // namespace kpl::ipc

#endif  // KPL_IPC_ANNOUNCEMENT_H_
