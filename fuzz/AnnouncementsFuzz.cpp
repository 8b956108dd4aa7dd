// Writes announcements and foreign bytes into a server's buffer as a Root FIFO delivers them: each
// write whole, some of them in one read. Bytes without a magic in them cost no announcement, and
// after any bytes at all one that arrives by itself is found.
#include <android/log.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ipc/AnnouncementBuffer.h"

// Takes the library's messages and drops them.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using namespace kpl::ipc;

constexpr size_t kPipeCapacity = 65536;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// The accept steps of a server, as far as they concern the buffer.
class Server {
public:
    // What lies in the FIFO: as many reads as the buffer's room asks for.
    void Deliver(const std::string& bytes) {
        size_t at = 0;
        while (at < bytes.size()) {
            char* const room = m_buffer.Room();
            Require(m_buffer.RoomSize() > 0);
            const size_t size =
                std::min(bytes.size() - at, static_cast<size_t>(m_buffer.RoomSize()));
            memcpy(room, bytes.data() + at, size);
            at += size;
            Note(m_buffer.Next(static_cast<int>(size)));
            TakePending();
        }
    }
    const std::vector<uint32_t>& Found() const { return m_found; }

private:
    void TakePending() {
        int before = 0;
        while (!m_buffer.IsEmpty() && before != m_buffer.Pending()) {
            before = m_buffer.Pending();
            Note(m_buffer.Next(0));
            Require(m_buffer.Pending() <= before && m_buffer.Pending() >= 0);
        }
    }
    void Note(const std::optional<Announcement>& header) {
        if (header && header->magic == kAnnouncementMagic) {
            m_found.push_back(header->id);
        }
    }

    AnnouncementBuffer m_buffer;
    std::vector<uint32_t> m_found;
};

std::string Bytes(uint32_t id, uint32_t length) {
    const Announcement header{kAnnouncementMagic, id, 0, length};
    return std::string(reinterpret_cast<const char*>(&header), sizeof(header));
}

// What the clients do, as the input says it.
class Clients {
public:
    Clients(const uint8_t* data, size_t size, bool mayForge)
        : m_data(data), m_size(size), m_mayForge(mayForge) {}

    void Run(Server* server) {
        while (m_size > 0) {
            const unsigned int action = Byte();
            const size_t size = action / 4;
            switch (action % 4) {
                case 0:
                    Announce(server, size);
                    break;
                case 1:
                    Write(server, Foreign(size));
                    break;
                case 2:
                    Flush(server);
                    break;
                default:
                    WriteMuch(server, Foreign(size));
                    break;
            }
        }
        Flush(server);
    }
    const std::vector<uint32_t>& Announced() const { return m_announced; }

private:
    unsigned int Byte() {
        --m_size;
        return *m_data++;
    }

    // One announcement, with that much extra data.
    void Announce(Server* server, size_t extra) {
        const auto id = static_cast<uint32_t>(m_announced.size()) + 1;
        const std::string more = Foreign(extra);
        m_announced.push_back(id);
        Write(server, Bytes(id, static_cast<uint32_t>(more.size())) + more);
    }

    std::string Foreign(size_t size) {
        std::string bytes;
        while (bytes.size() < size && m_size > 0) {
            const char byte = static_cast<char>(Byte());
            bytes.push_back(byte == 'C' && !m_mayForge ? 'c' : byte);
        }
        return bytes;
    }

    // Only a few times: a FIFO full of headers takes long to look through.
    void WriteMuch(Server* server, const std::string& bytes) {
        ++m_muchWritten;
        for (size_t size = 0; !bytes.empty() && size < kPipeCapacity && m_muchWritten < 6;
             size += bytes.size()) {
            Write(server, bytes);
        }
    }

    void Write(Server* server, const std::string& bytes) {
        if (m_inFifo.size() + bytes.size() > kPipeCapacity) {
            Flush(server);
        }
        m_inFifo += bytes;
    }

    void Flush(Server* server) {
        server->Deliver(m_inFifo);
        m_inFifo.clear();
    }

    const uint8_t* m_data;
    size_t m_size;
    const bool m_mayForge;
    int m_muchWritten = 0;
    std::string m_inFifo;
    std::vector<uint32_t> m_announced;
};

}  // namespace

// The first byte says whether the foreign bytes may hold announcements too.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool mayForge = data[0] % 2 == 1;
    Server server;
    Clients clients(data + 1, size - 1, mayForge);
    clients.Run(&server);
    Require(mayForge || server.Found() == clients.Announced());
    constexpr uint32_t kAlone = 0x7ffffff0;
    server.Deliver(Bytes(kAlone, 0));
    // What foreign bytes have forged may be found once more behind it.
    const std::vector<uint32_t>& found = server.Found();
    Require(std::find(found.begin(), found.end(), kAlone) != found.end());
    return 0;
}
