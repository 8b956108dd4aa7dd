#ifndef KPL_IPC_IPCSTREAMERPIPEIMPL_H_
#define KPL_IPC_IPCSTREAMERPIPEIMPL_H_

#include <atomic>
#include <memory>
#include <string>

#include "kpl/Export.h"
#include "kpl/ipc/IpcStreamer.h"

namespace kpl::ipc {

class Breaker;

// One end of a connection over two FIFOs, one for each direction. The server's end opens the Client
// FIFO for writing and then the Server FIFO for reading; the client's end opens the same two in the
// same order the other way round, so the two meet without waiting for each other crosswise.
class KPL_EXPORT IpcStreamerPipeImpl : public IpcStreamerRefCnt {
public:
    // Makes the server's or the client's end of connection `id` of server `name`, not yet open. A
    // name too long for a FIFO path gives a streamer that never opens. Owned by its references.
    static IpcStreamer* Create(const char* name, int id, bool isServer);

    int SetOption(int code, int value) override;
    int GetOption(int code) override;
    int Read(char* buf, int len, int timeout) override;
    int Write(const char* buf, int len) override;
    bool IsOpened() override;
    ~IpcStreamerPipeImpl() override;
    bool DoOpen() override;
    void DoClose() override;

    // Open that gives up after `timeoutMs` milliseconds; negative waits without limit.
    bool OpenWithin(long timeoutMs);

    // Read that waits at most `timeoutMs` milliseconds, real ones, and takes what is there by then;
    // negative waits without limit.
    int ReadTimed(char* buf, int len, long timeoutMs);

    // Write that gives up after `timeoutMs` milliseconds: returns what was written by then, -2 if
    // that is nothing. Negative waits without limit.
    int WriteTimed(const char* buf, int len, long timeoutMs);

    // Ends every wait in this streamer, now and from now on: an Open fails, a Read without data
    // returns -2, a Write that cannot go on returns what it has written, or -1.
    // Any thread that holds a reference.
    void Interrupt();
    bool IsInterrupted() const;

    // Ends an Open that waits, and makes every later one fail. A stream that is open by then goes
    // on as before. Any thread that holds a reference.
    void CancelOpen();

    // Whether the other side has begun to open too. Any thread that holds a reference.
    bool HasMetPeer() const { return m_hasMetPeer; }

    // Whether a client's Open has failed because the connection is another client's, who has drawn
    // the same id: nothing of it was touched. The thread that opens.
    bool IsAnothers() const { return m_isAnothers; }

    // Of the connection, as given to Create. Any thread that holds a reference.
    int GetId() const { return m_id; }
    const char* GetServerName() const { return m_serverName.c_str(); }

private:
    IpcStreamerPipeImpl(const char* name, int id, bool isServer);
    bool OpenDescriptors();
    bool Claim();
    int ReadWithin(char* buf, int len, const timespec* wait);

    const bool m_isServer;
    int m_readDescriptor;
    int m_writeDescriptor;
    const int m_id;
    char m_readPath[256];
    char m_writePath[256];

    const std::string m_serverName;
    long m_openTimeoutMs;  // what DoOpen waits at most; negative: no limit
    const std::unique_ptr<Breaker> m_breaker;
    std::atomic<bool> m_openCancelled;
    std::atomic<bool> m_hasMetPeer{false};
    bool m_isAnothers = false;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_IPCSTREAMERPIPEIMPL_H_
