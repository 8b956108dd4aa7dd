#include "kpl/ipc/IpcStreamer.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;

IpcStreamerRefCnt::IpcStreamerRefCnt() : m_refCount(1), m_opened(false) {
    DumpDbgMsg("IpcStreamerRefCnt::IpcStreamerRefCnt(): ....\n");
}

IpcStreamerRefCnt::~IpcStreamerRefCnt() {
    DumpDbgMsg("IpcStreamerRefCnt::~IpcStreamerRefCnt(): ....\n");
    // Nothing to drop after the last Close, which is the normal way to get here. The hook is not
    // called: the transport's part of the object no longer exists.
    (void)DropReference();
}

bool IpcStreamerRefCnt::Open() {
    if (!m_opened) {
        if (!DoOpen()) {
            return false;
        }
        m_opened = true;
    }
    const uint32_t count = m_refCount.fetch_add(1) + 1;
    DumpDbgMsg("IpcStreamerRefCnt::Open(): Ref counter=%d\n", static_cast<int>(count));
    return true;
}

void IpcStreamerRefCnt::Close() {
    // After a decrement that was not the last, the object may already be gone.
    if (DropReference() == 0) {
        m_opened = false;
        DoClose();
    }
}

void IpcStreamerRefCnt::Hold() {
    ++m_refCount;
}

int IpcStreamerRefCnt::DropReference() {
    uint32_t count = m_refCount.load();
    do {
        if (count == 0) {
            return -1;
        }
    } while (!m_refCount.compare_exchange_weak(count, count - 1));
    const int left = static_cast<int>(count - 1);
    DumpDbgMsg("IpcStreamerRefCnt::Close(): Ref counter=%d\n", left);
    return left;
}

int IpcStreamerRefCnt::GetRefCount() const {
    return static_cast<int>(m_refCount.load());
}

}  // namespace kpl::ipc
