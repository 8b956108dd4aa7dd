#ifndef KPL_RPC_OUTBOX_H_
#define KPL_RPC_OUTBOX_H_

#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/tools/CommandProcessor.h"

namespace kpl::rpc {

struct OutboxEntry {
    char* bytes;  // heap array, owned by the entry
    int size;
};

// Writes whole commands to one connection, in the order of Send, without ever blocking the sender:
// an executor sends while it holds the registry's lock. What does not fit into the FIFO at once
// goes to a queue whose thread, started when it is first needed, writes it with a time limit.
//
// The queue's thread waits in the write: the peer, the limit or an interrupted streamer ends that.
// WaitUntilSent waits for the queue's thread. A peer that does not read in time, or lets more than
// 1 MiB pile up, is given up: the streamer is interrupted, which also ends its reader.
class Outbox : private tools::CommandProcessor<OutboxEntry> {
public:
    // `streamer` is open and stays so until Stop.
    Outbox(ipc::IpcStreamerPipeImpl* streamer, long writeTimeoutMs);
    ~Outbox() override;

    // False once the connection is given up or stopped. Any thread.
    bool Send(const char* bytes, int size);

    // Waits until everything was written or given up. Any thread.
    void WaitUntilSent();

    // Gives up what is not written and does not touch the streamer any more. The streamer must have
    // been interrupted. One thread.
    void Stop();

private:
    bool Execute(OutboxEntry entry) override;
    void OnCommandDone(OutboxEntry entry) override;
    int WriteNow(const char* bytes, int size) KPL_REQUIRES(m_lock);
    bool Queue(const char* bytes, int size) KPL_REQUIRES(m_lock);
    void GiveUp() KPL_REQUIRES(m_lock);

    static constexpr int kMaxQueuedBytes = 0x100000;

    ipc::IpcStreamerPipeImpl* const m_streamer;
    const long m_writeTimeoutMs;

    os::CCritSec m_lock;
    bool m_isGivenUp KPL_GUARDED_BY(m_lock) = false;
    int m_queuedBytes KPL_GUARDED_BY(m_lock) = 0;
    os::CEvent m_sent{true};  // set while nothing is queued
    tools::CommandQueue<OutboxEntry> m_queue;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_OUTBOX_H_
