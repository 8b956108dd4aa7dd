#include "rpc/Outbox.h"

#include <string.h>

namespace kpl::rpc {

Outbox::Outbox(ipc::IpcStreamerPipeImpl* streamer, long writeTimeoutMs)
    : m_streamer(streamer), m_writeTimeoutMs(writeTimeoutMs), m_queue(this) {}

Outbox::~Outbox() {
    m_queue.Stop();  // While this object can still take the entries back.
}

bool Outbox::Send(const char* bytes, int size) {
    os::CAutoLock lock(&m_lock);
    if (m_isGivenUp) {
        return false;
    }
    // Behind queued bytes only the queue may write.
    const int written = m_queuedBytes == 0 ? WriteNow(bytes, size) : 0;
    if (written == size) {
        return true;
    }
    if (written < 0 || !Queue(bytes + written, size - written)) {
        GiveUp();
        return false;
    }
    return true;
}

// What fits at once; -1 when the peer has gone.
int Outbox::WriteNow(const char* bytes, int size) {
    const int written = m_streamer->WriteTimed(bytes, size, 0);
    return written == -2 ? 0 : written;
}

bool Outbox::Queue(const char* bytes, int size) {
    if (m_queuedBytes + size > kMaxQueuedBytes) {
        return false;
    }
    char* const copy = new char[static_cast<size_t>(size)];
    memcpy(copy, bytes, static_cast<size_t>(size));
    m_queuedBytes += size;
    m_sent.Reset();
    m_queue.Post({copy, size});
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the queue's entry owns it.
    return m_queue.HasWorker();
}

void Outbox::GiveUp() {
    if (!m_isGivenUp) {
        m_isGivenUp = true;
        m_streamer->Interrupt();
        m_sent.Set();  // What is queued may have no thread to drop it before the end.
    }
}

bool Outbox::Execute(OutboxEntry entry) {
    {
        os::CAutoLock lock(&m_lock);
        if (m_isGivenUp) {
            return true;
        }
    }
    if (m_streamer->WriteTimed(entry.bytes, entry.size, m_writeTimeoutMs) != entry.size) {
        os::CAutoLock lock(&m_lock);
        GiveUp();
    }
    return true;
}

void Outbox::OnCommandDone(OutboxEntry entry) {
    delete[] entry.bytes;
    os::CAutoLock lock(&m_lock);
    m_queuedBytes -= entry.size;
    if (m_queuedBytes == 0) {
        m_sent.Set();
    }
}

void Outbox::WaitUntilSent() {
    m_sent.Wait(-1);
}

void Outbox::Stop() {
    {
        os::CAutoLock lock(&m_lock);
        GiveUp();
    }
    m_queue.Stop();
}

}  // namespace kpl::rpc
