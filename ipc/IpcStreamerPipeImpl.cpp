#include "kpl/ipc/IpcStreamerPipeImpl.h"

#include <errno.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "ipc/Breaker.h"
#include "ipc/Fifo.h"
#include "ipc/PathLimit.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/tools/DebugLog.h"
#include "os/WaitReadable.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;

namespace {

void CloseDescriptor(int* descriptor) {
    if (*descriptor != -1) {
        close(*descriptor);
        *descriptor = -1;
    }
}

}  // namespace

IpcStreamer* IpcStreamerPipeImpl::Create(const char* name, int id, bool isServer) {
    return new IpcStreamerPipeImpl(name, id, isServer);
}

IpcStreamerPipeImpl::IpcStreamerPipeImpl(const char* name, int id, bool isServer)
    : m_isServer(isServer),
      m_readDescriptor(-1),
      m_writeDescriptor(-1),
      m_id(id),
      m_readPath(),
      m_writePath(),
      m_serverName(name != nullptr ? name : ""),
      m_openTimeoutMs(-1),
      m_breaker(new Breaker),
      m_openCancelled(false) {
    DumpDbgMsg("IpcStreamerPipeImpl::IpcStreamerPipeImpl(): Pipe ID=%d, Server=%d\n", id,
               static_cast<int>(isServer));
    if (name == nullptr || !PathsFit(name)) {
        return;  // Empty paths: nothing can be opened under them.
    }
    (void)GetPipeServerPath(name, id, isServer ? m_readPath : m_writePath, kPathSize);
    (void)GetPipeClientPath(name, id, isServer ? m_writePath : m_readPath, kPathSize);
}

IpcStreamerPipeImpl::~IpcStreamerPipeImpl() {
    DumpDbgMsg("IpcStreamerPipeImpl::~IpcStreamerPipeImpl(): Server=%d, ID=%d\n",
               static_cast<int>(m_isServer), m_id);
}

bool IpcStreamerPipeImpl::DoOpen() {
    const bool opened = OpenDescriptors();
    DumpDbgMsg("IpcStreamerPipeImpl::DoOpen(): %s is opened. Result=%d\n",
               m_isServer ? "Server" : "Client", static_cast<int>(opened));
    return opened;
}

// A descriptor that did open when the other failed stays open until the last Close, and a further
// Open starts with fresh ones.
bool IpcStreamerPipeImpl::OpenDescriptors() {
    CloseDescriptor(&m_writeDescriptor);
    CloseDescriptor(&m_readDescriptor);
    m_isAnothers = false;
    if (m_openCancelled || m_breaker->IsBroken()) {
        return false;
    }
    MakeFifo(m_writePath);
    MakeFifo(m_readPath);
    WaitLimit limit(m_breaker.get(), m_openTimeoutMs);
    limit.WatchFlag(&m_openCancelled);
    // The Client FIFO first on both sides: this order is what lets the two meet.
    if (m_isServer) {
        m_writeDescriptor = OpenFifoForWriting(m_writePath, limit);
        if (m_writeDescriptor != -1) {
            m_hasMetPeer = true;
            limit.WatchPeer(m_writeDescriptor);
            m_readDescriptor = OpenFifoForReading(m_readPath, limit);
        }
    } else {
        m_readDescriptor = OpenFifoForReading(m_readPath, limit);
        if (m_readDescriptor != -1) {
            m_hasMetPeer = true;
            limit.WatchPeer(m_readDescriptor);
            m_writeDescriptor = OpenFifoForWriting(m_writePath, limit);
        }
    }
    return IsOpened() && (m_isServer || Claim());
}

// Ids are drawn at random, each process from a sequence of its own: two clients can draw the same.
// Then both find the FIFOs and the server's end, but only one can lock the FIFO that it reads. The
// other one must leave everything as it is.
bool IpcStreamerPipeImpl::Claim() {
    m_isAnothers = flock(m_readDescriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (m_isAnothers) {
        CloseDescriptor(&m_writeDescriptor);
        CloseDescriptor(&m_readDescriptor);
    }
    return !m_isAnothers;
}

void IpcStreamerPipeImpl::DoClose() {
    CloseDescriptor(&m_writeDescriptor);
    CloseDescriptor(&m_readDescriptor);
    if (!m_isAnothers) {
        unlink(m_readPath);
        unlink(m_writePath);
    }
    DumpDbgMsg("IpcStreamerPipeImpl::DoClose(): (%s)(%s)\n", m_readPath, m_writePath);
    delete this;
}

bool IpcStreamerPipeImpl::OpenWithin(long timeoutMs) {
    m_openTimeoutMs = timeoutMs;
    const bool opened = Open();
    m_openTimeoutMs = -1;
    return opened;
}

bool IpcStreamerPipeImpl::IsOpened() {
    return m_readDescriptor != -1 && m_writeDescriptor != -1;
}

int IpcStreamerPipeImpl::SetOption(int code, int value) {
    DumpDbgMsg("IpcStreamerPipeImpl::SetOption(): %d=0x%x\n", code, static_cast<unsigned>(value));
    return 0;
}

int IpcStreamerPipeImpl::GetOption(int) {
    return -1;
}

int IpcStreamerPipeImpl::Read(char* buf, int len, int timeout) {
    const timespec wait = os::UnscaledTimeout(timeout);
    return ReadWithin(buf, len, timeout < 1 ? nullptr : &wait);
}

int IpcStreamerPipeImpl::ReadTimed(char* buf, int len, long timeoutMs) {
    const timespec wait = os::MsTimeout(timeoutMs);
    return ReadWithin(buf, len, timeoutMs < 0 ? nullptr : &wait);
}

int IpcStreamerPipeImpl::ReadWithin(char* buf, int len, const timespec* wait) {
    if (m_readDescriptor == -1 || buf == nullptr || len < 1) {
        return -1;
    }
    for (;;) {
        const int ready = os::WaitEitherReadable(m_readDescriptor, m_breaker->Descriptor(), wait);
        if (ready < 0) {
            DumpDbgMsg("IpcStreamerPipeImpl::Read(): select failed(%d)\n", ready);
            return -1;
        }
        if ((ready & 1) == 0) {
            return -2;  // Time is over, or interrupted.
        }
        const ssize_t got = read(m_readDescriptor, buf, static_cast<size_t>(len));
        // EAGAIN: the hang-up that woke us is over, because somebody else writes now.
        if (got >= 0 || (errno != EINTR && errno != EAGAIN)) {
            return static_cast<int>(got);
        }
    }
}

int IpcStreamerPipeImpl::Write(const char* buf, int len) {
    return WriteTimed(buf, len, -1);
}

int IpcStreamerPipeImpl::WriteTimed(const char* buf, int len, long timeoutMs) {
    if (m_writeDescriptor == -1 || buf == nullptr || len < 1) {
        return -1;
    }
    return WriteFifo(m_writeDescriptor, buf, len, WaitLimit(m_breaker.get(), timeoutMs));
}

void IpcStreamerPipeImpl::Interrupt() {
    m_breaker->Break();
}

bool IpcStreamerPipeImpl::IsInterrupted() const {
    return m_breaker->IsBroken();
}

void IpcStreamerPipeImpl::CancelOpen() {
    m_openCancelled = true;
}

}  // namespace kpl::ipc
