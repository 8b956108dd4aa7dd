#ifndef KPL_RPC_RPCCONNECTION_H_
#define KPL_RPC_RPCCONNECTION_H_

#include <atomic>
#include <string>

#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcExecutor.h"
#include "rpc/CommandBuffer.h"
#include "rpc/Outbox.h"

namespace kpl::rpc {

class RpcConnection;

// Told by a connection's thread, as the last thing it does, that the connection has ended. The
// receiver then holds the thread's reference: it joins the thread and releases it.
class RpcConnectionOwner {
public:
    virtual void ConnectionEnded(RpcConnection* connection) = 0;

protected:
    virtual ~RpcConnectionOwner() = default;
};

// One client of an RpcServer: its thread reads commands, has them executed and writes the results.
// Executors know it as their RpcCallback and may keep it when the client has long gone.
class RpcConnection : public RpcCallback {
public:
    // Holds the streamer, which its thread opens; a client that does not come within
    // `openTimeoutMs` is given up. One reference is the creator's.
    RpcConnection(RpcConnectionOwner* owner, const char* serverName,
                  ipc::IpcStreamerPipeImpl* streamer, long openTimeoutMs, long writeTimeoutMs);

    // Starts the thread, which holds a reference of its own. False if there is none to be had.
    bool Run();

    // Gives the streamer of a connection that does not run back.
    void Abort() { CloseStreamer(); }

    // How far the two sides have come.
    enum class State {
        Opening,  // the client has announced itself, and is waited for
        Open,
        Ended,
    };
    // Any thread with a reference.
    State GetState();

    // Whether a client has been seen at all. Any thread with a reference.
    bool HasMetClient();

    // Ends a connection that is not open yet; its end comes at once. False if it is open or ended.
    // Any thread with a reference.
    bool GiveUpOpening();

    // Makes the thread end as soon as its executor has returned. Any thread, before Join.
    void End();

    // Waits for the end of the connection, -1 without limit. Any thread with a reference.
    bool WaitForEnd(long timeoutMs) { return m_ended.Wait(timeoutMs); }

    // Joins the thread. Once, after ConnectionEnded.
    void Join() { m_thread.Exit(true); }

    // The function that is being executed, or waits for its turn; empty if none. Any thread.
    std::string GetFunctionName();
    int GetId() const { return m_id; }
    const char* GetServerName() const { return m_serverName.c_str(); }

    bool Send(RpcCommandMuxer* muxer, unsigned int id) override;
    void AddRef() override;
    void Release() override;

private:
    ~RpcConnection() override = default;

    static void ThreadProc(void* self);
    bool Open();
    void Serve();
    bool ServeCommands();
    bool ServeInvoke(RpcCommandDemuxer* command);
    int Execute(RpcCommandDemuxer* command);
    bool ComplainAboutBytes();
    void SetFunctionName(const char* name);
    void CloseStreamer();

    RpcConnectionOwner* const m_owner;
    const std::string m_serverName;
    const int m_id;
    ipc::IpcStreamerPipeImpl* const m_streamer;  // held until CloseStreamer
    const long m_openTimeoutMs;
    Outbox m_outbox;
    os::CThread m_thread;
    os::CEvent m_ended{false};
    std::atomic<int> m_refCount{1};
    std::atomic<bool> m_isEnding{false};

    os::CCritSec m_lock;
    State m_state KPL_GUARDED_BY(m_lock) = State::Opening;
    std::string m_functionName KPL_GUARDED_BY(m_lock);

    // The thread's own.
    CommandBuffer m_received;
    char m_result[kMaxCommandSize];
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCONNECTION_H_
