#ifndef KPL_IPC_IPCSTREAMER_H_
#define KPL_IPC_IPCSTREAMER_H_

#include <stdint.h>

#include <atomic>

#include "kpl/Export.h"

namespace kpl::ipc {

// A duplex byte stream between two processes, counted by its references. Whoever creates it holds
// the first; each successful Open adds one; each Close drops one. The last Close destroys it: users
// never delete a streamer and never touch it after giving up their own reference.
class KPL_EXPORT IpcStreamer {
public:
    // Opens the stream if it is not open and adds a reference. Blocks until the peer has opened its
    // ends too. False if it cannot be opened; then no reference was added.
    // One thread at a time, and not at the same time as the creator's Close.
    virtual bool Open() = 0;

    // No option exists: SetOption returns 0, GetOption -1.
    virtual int SetOption(int code, int value) = 0;
    virtual int GetOption(int code) = 0;

    // Waits until there is something to read, then reads once. Returns the number of bytes, at most
    // `len`; 0 when the peer has gone; -1 on an error, a null `buf`, a `len` below 1 or a closed
    // stream; -2 when nothing came in time. `timeout`: its whole seconds are seconds, the remaining
    // milliseconds count as microseconds (1500 waits 1.0005 s); 0 and below wait without limit.
    // One reading thread at a time.
    virtual int Read(char* buf, int len, int timeout) = 0;

    // Writes and returns the number of bytes written; -1 on an error, a null `buf`, a `len` below 1
    // or a closed stream. Blocks while the peer does not read. A peer that has gone is an error,
    // never a signal. One writing thread at a time.
    virtual int Write(const char* buf, int len) = 0;

    // Drops one reference. Any thread, once for each reference it holds.
    virtual void Close() = 0;

    // Any thread that holds a reference.
    virtual bool IsOpened() = 0;

    virtual ~IpcStreamer() = default;
};

// The reference counting of a streamer; a transport derives from it and supplies the two hooks.
class KPL_EXPORT IpcStreamerRefCnt : public IpcStreamer {
public:
    IpcStreamerRefCnt();
    IpcStreamerRefCnt(const IpcStreamerRefCnt&) = delete;
    IpcStreamerRefCnt& operator=(const IpcStreamerRefCnt&) = delete;

    bool Open() override;
    void Close() override;
    ~IpcStreamerRefCnt() override;

    // Opens the transport; false leaves the count as it is. Called by the first Open.
    virtual bool DoOpen() = 0;

    // Closes the transport and destroys the object. Called by the last Close.
    virtual void DoClose() = 0;

    // Adds a reference without opening, for whoever is to open it later on another thread: until
    // then nobody takes the stream for an unused one. Any thread with a reference.
    void Hold();

    // 1 after creation; 0 once nothing may touch the object any more. Any thread with a reference.
    int GetRefCount() const;

private:
    // Drops one reference and returns what is left; -1 if there was none.
    int DropReference();

    std::atomic<uint32_t> m_refCount;
    std::atomic<bool> m_opened;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCSTREAMER_H_
