#ifndef KPL_TESTS_SUPPORT_RAWCONNECTION_H_
#define KPL_TESTS_SUPPORT_RAWCONNECTION_H_

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace kpl::test {

// A peer that knows nothing but the published names and bytes: plain, blocking system calls.
struct RawConnection {
    int readFd = -1;
    int writeFd = -1;

    bool IsOpen() const { return readFd != -1 && writeFd != -1; }
    void Close();
};

// `steps` says how far the client goes before it returns: 0 nothing, 1 Root FIFO opened, 2
// announced, 3 Root FIFO closed, 4 connection FIFOs made, 5 Client FIFO opened, 6 Server FIFO
// opened.
constexpr int kAllRawSteps = 6;
RawConnection RawConnect(const std::string& dir, const std::string& name, int id,
                         int steps = kAllRawSteps);

// The server's side: reads one announcement from an open Root FIFO and opens the connection. 1: the
// announcement was read, 2: the FIFOs were made, 3: the Client FIFO is open, 4: the Server FIFO
// too.
RawConnection RawAccept(int rootFd, const std::string& dir, const std::string& name, int* id,
                        int steps = 4);

// The whole of `size` bytes, or false.
bool ReadAll(int fd, void* data, size_t size);
bool WriteAll(int fd, const void* data, size_t size);
bool WriteWord(int fd, uint32_t value);

// 16 bytes, as they stand in the Root FIFO.
std::string AnnouncementBytes(uint32_t magic, uint32_t id, uint32_t command, uint32_t length);
std::string GoodAnnouncement(uint32_t id);

// Writes `bytes` into the server's Root FIFO with one write, waiting for the server.
bool WriteToRoot(const std::string& rootPath, const std::string& bytes);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_RAWCONNECTION_H_
