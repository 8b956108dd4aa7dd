// Opening, reading and writing FIFOs without ever being stuck in a system call: each wait ends with
// its time limit or its breaker.
//
// open(2) on a FIFO blocks until the other end is opened, and only opening the other end, by its
// path, could release it; a peer may have removed that path. So no thread of ours blocks in open:
// the descriptor is opened without blocking, and we wait until the peer is there.
#ifndef KPL_IPC_FIFO_H_
#define KPL_IPC_FIFO_H_

#include <atomic>

#include "ipc/Breaker.h"
#include "os/Deadline.h"

namespace kpl::ipc {

// How long a wait may last.
class WaitLimit {
public:
    // `timeoutMs` from now, negative, or more than a hundred years, for no limit.
    WaitLimit(const Breaker* breaker, long timeoutMs) : m_breaker(breaker), m_deadline(timeoutMs) {}

    // Waits until `fd` can be written; a reader that has gone counts. Returns 1, 0 when the time is
    // over, -1 when the breaker is broken or a descriptor is bad.
    int WaitWritable(int fd) const;

    // From now on a pause also ends when the other end of `fd` is closed.
    void WatchPeer(int fd) { m_peer = fd; }

    // From now on no pause begins once `flag` is set.
    void WatchFlag(const std::atomic<bool>* flag) { m_flag = flag; }

    // Pauses `microseconds`; false when the time is over, the breaker is broken, the peer has gone
    // or the flag is set.
    bool Pause(long microseconds) const;

private:
    const Breaker* m_breaker;
    os::Deadline m_deadline;
    int m_peer = -1;
    const std::atomic<bool>* m_flag = nullptr;
};

// Makes a FIFO that everybody may use, within the limits of the umask. An existing one is kept.
void MakeFifo(const char* path);

// Whether there is a FIFO at `path`, and not just any file.
bool IsFifo(const char* path);

// Open the FIFO at `path` and wait until it has a reader, or a writer. Return the descriptor, or
// -1: there is no such FIFO (any more), no descriptor is left, or the limit was reached. The
// descriptors do not block: wait before a read, see WriteFifo for writing.
int OpenFifoForWriting(const char* path, const WaitLimit& limit);
int OpenFifoForReading(const char* path, const WaitLimit& limit);

// The same for reading, without waiting for a writer.
int OpenFifoReader(const char* path);

// Writes like write(2) on a blocking descriptor, but without a SIGPIPE and no longer than `limit`.
// Returns the number of bytes written, which is below `len` only if the limit was reached or the
// reader went away meanwhile; -2 if the time was over before any, -1 on any other failure.
int WriteFifo(int fd, const char* buf, int len, const WaitLimit& limit);

// Blocks SIGPIPE for as long as the calling thread lives, so that its writes need not do it each
// time. Only a thread of the library's own; an application's keeps its mask.
void KeepSigPipeBlocked();

}  // namespace kpl::ipc

#endif  // KPL_IPC_FIFO_H_
