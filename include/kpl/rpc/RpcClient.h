#ifndef KPL_RPC_RPCCLIENT_H_
#define KPL_RPC_RPCCLIENT_H_

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kpl/Export.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "kpl/rpc/RpcParam.h"

namespace kpl::ipc {
class IpcClient;
class IpcStreamer;
class IpcStreamerPipeImpl;
}  // namespace kpl::ipc

namespace kpl::os {
class Deadline;
}  // namespace kpl::os

namespace kpl::rpc {

class CommandBuffer;
class WriteTurn;

// Calls functions by name in a serving process. Connect once; then, on any thread: push the
// arguments into GetCommandMuxer(), Invoke(name), read the results from GetCommandDemuxer().
// Call<R>() in RpcCall.h does all three. Every thread has a command buffer of its own; one thread
// makes one call at a time. Callbacks run one after the other on a thread of the client's own,
// after the call that brought them has returned; they may make calls on the same client. A server
// that sends more than 16 MiB of callbacks ahead of them is given up: the connection is not alive
// any more.
class KPL_EXPORT RpcClient {
public:
    // One thread's buffer, which its command and then the result stand in, and the state of its
    // call. It belongs to the client and to the thread, which can use it until it disconnects
    // itself or ends; that another thread disconnects does not harm it.
    class KPL_EXPORT CallContext {
    public:
        CallContext();
        ~CallContext();
        CallContext(const CallContext&) = delete;
        CallContext& operator=(const CallContext&) = delete;

        // Its command under way, and its result. They live as long as the context.
        RpcCommandMuxer* GetMuxer() const { return m_muxer; }
        RpcCommandDemuxer* GetDemuxer() const { return m_demuxer; }

        // The id and the function of the current or last call.
        unsigned long GetId() const { return m_id; }
        const std::string& GetFunctionName() const { return m_functionName; }

    private:
        friend class RpcClient;

        // The client lets go of it: who waits for its call is woken, and the call fails.
        void Detach();

        enum class State {
            Fresh,     // has not called yet
            Writing,   // its command is still being written: a result has to wait beside the buffer
            Sent,      // in flight: a result goes into the buffer
            Answered,  // the result is in the buffer
            Abandoned,  // the call gave up; a late result finds nobody
        };

        char* m_buffer;
        RpcCommandMuxer* m_muxer;
        RpcCommandDemuxer* m_demuxer;
        unsigned long m_id = 0;
        std::string m_functionName;
        os::CEvent* m_resultEvent;  // the call has an answer, or must look why it has none

        // Guarded by the client's state lock.
        State m_state = State::Fresh;
        bool m_isTimed = false;                  // ends by itself when the reader does
        ipc::IpcStreamer* m_streamer = nullptr;  // the call's own reference, null when given back
        bool m_hasTurn = false;                  // its thread is the one that receives
        bool m_mustWake = false;                 // answered, and its thread was not woken yet

        char* m_early;  // a result that came while Writing
        int m_earlySize = 0;

        std::atomic<bool> m_detached{false};           // the client has let go of it
        std::vector<std::shared_ptr<void>> m_proxies;  // kept for the next call; the thread's own
    };

    RpcClient();

    // Disconnects and waits for a callback that runs. Never from inside a callback.
    ~RpcClient();
    RpcClient(const RpcClient&) = delete;
    RpcClient& operator=(const RpcClient&) = delete;

    // Connects to the server of that name, after ending a connection to another. True at once when
    // already connected under that name. False for a null or empty name, when there is no such
    // server, when it does not take the connection, when no thread can be made to read from it, and
    // when Disconnect is called meanwhile. Waits without limit for a server that has a Root FIFO
    // and does not answer. Any thread.
    bool Connect(const char* serverName, void* param);

    // Connect that gives up after `timeoutMs` milliseconds; negative waits without limit. They
    // begin when another thread's Connect or Disconnect has ended.
    bool Connect(const char* serverName, void* param, long timeoutMs);

    // Ends the connection: every waiting Invoke and Connect returns false, and when it returns no
    // thread, descriptor or FIFO of the connection is left. Callback functions of earlier calls are
    // forgotten; one that runs is not waited for. Any thread, also from inside a callback.
    void Disconnect();

    // What Disconnect does, without its messages.
    void ReleaseResource();

    // The name of the server; null when not connected. Valid until the connection ends.
    const char* GetServerName() const;

    // The calling thread's context, made on first use. Any thread.
    CallContext* GetCallContext();

    // The context whose call has that id; null if there is none. Belongs to its thread: good for a
    // look while that thread is known to be in its call. Any thread.
    CallContext* GetCallContext(unsigned int id);

    // Of the calling thread's context. Any thread.
    RpcCommandMuxer* GetCommandMuxer();
    RpcCommandDemuxer* GetCommandDemuxer();

    // Sends the command built in the thread's muxer as a call of that function and waits for its
    // result, without limit: also when the server has died. False when not connected, for a null or
    // empty name, for a command larger than 16384 bytes, and when the connection is ended
    // meanwhile. Any thread.
    bool Invoke(const char* functionName);

    // Invoke that returns false after `timeoutMs` milliseconds, and at once when the server has
    // gone; negative waits without limit. A late result is dropped.
    bool Invoke(const char* functionName, long timeoutMs);

    // True while the connection can bring results. Any thread.
    bool IsAlive() const;

    // Forget every thread's context (their calls return false, within a second), and every call's
    // callbacks. Any thread.
    void RemoveAllCachedCallContext();
    void RemoveAllCachedCallbackFunctions();

    // Keeps `object` for the calling thread's next call and, if that succeeds, as long as the
    // call's callbacks stay registered: for a callback's proxy that nobody else owns. Any thread.
    void KeepForCall(std::shared_ptr<void> object);

    // Discards the command that the calling thread has begun, with what KeepForCall keeps for it.
    // Any thread.
    void ForgetCommand();

    // The reader thread's body; `client` is the RpcClient.
    static void ThreadProc(void* client);

private:
    class CallbackHandler;
    class OwnContexts;
    struct ClientTag {};  // what a thread knows a living client by; addresses come again

    using ContextPtr = std::shared_ptr<CallContext>;

    // The callbacks of one call, by index, and what keeps their proxies.
    struct CallbackList {
        std::vector<RpcCallbackContext> functions;
        std::vector<std::shared_ptr<void>> proxies;
    };
    using CallbackListPtr = std::shared_ptr<CallbackList>;

    // What a release sets free, to be destroyed when no lock is held any more: the destructors of
    // the callbacks' proxies are the user's.
    struct Released {
        std::map<unsigned long, ContextPtr> contexts;
        std::map<unsigned int, CallbackListPtr> callbacks;
    };

    // Connecting and ending a connection.
    bool ConnectLocked(const char* serverName, void* param, long timeoutMs, Released* released,
                       Released* unfinished) KPL_REQUIRES(m_lock);
    bool ConnectIpc(const char* serverName, void* param, long timeoutMs) KPL_REQUIRES(m_lock);
    bool BeginConnect(ipc::IpcClient* ipcClient);
    bool OpenStreamer(const char* serverName, ipc::IpcStreamer* streamer);
    bool StartReader() KPL_REQUIRES(m_lock);
    void RequestRelease();
    void ReleaseLocked(Released* released) KPL_REQUIRES(m_lock);
    void TakeCached(Released* released);
    void EndWaits();
    int TakeCallReferences();

    // One call, on the calling thread.
    bool IsConnected() const;
    ContextPtr OwnContext();
    ContextPtr FindOwnContext();
    void ForgetOwnContext();
    void Attach(const ContextPtr& context);
    ContextPtr FindContext(unsigned int id) KPL_REQUIRES(m_stateLock);
    bool InvokeIn(CallContext* context, const char* functionName, const os::Deadline& deadline);
    int PrepareCall(CallContext* context, const char* functionName, bool isTimed);
    static CallbackListPtr ListCallbacks(CallContext* context,
                                         std::vector<std::shared_ptr<void>>* proxies);
    bool WriteCall(CallContext* context, int size, const os::Deadline& deadline);
    void EndWrite(CallContext* context);
    enum class Step { Leave, Wait, Receive };
    void AwaitResult(CallContext* context, const os::Deadline& deadline);
    Step NextStep(CallContext* context);
    bool CanReceive(CallContext* context) KPL_REQUIRES(m_stateLock);
    ContextPtr GiveTurn(CallContext* context) KPL_REQUIRES(m_stateLock);
    bool IsInFlight(const CallContext& context) const KPL_REQUIRES(m_stateLock);
    bool EndCall(CallContext* context, const CallbackListPtr& callbacks);
    void StoreCallbacks(unsigned int id, const CallbackListPtr& list) KPL_REQUIRES(m_stateLock);

    // Receiving, on the reader thread or on that of a waiting caller.
    void Read();
    void BeginReceiving();
    void EndReceiving();
    bool TakeTurnAsReader();
    ContextPtr PassTurn() KPL_REQUIRES(m_stateLock);
    static void Wake(const ContextPtr& context);
    ContextPtr FindAnswered() const KPL_REQUIRES(m_stateLock);
    ContextPtr TakeAnswered();
    void WakeAnswered();
    void Receive(const os::Deadline& deadline);
    void HandleReceived(int received);
    bool HandleCommands(int received);
    void HandleCommand(RpcCommandDemuxer* command, char* bytes);
    void DeliverResult(unsigned int id, const char* bytes, int size);
    static void PutResult(CallContext* context, const char* bytes, int size);
    static void PutEarlyResult(CallContext* context, const char* bytes, int size);
    void EndTimedCalls();

    // The callback thread.
    void RunCallback(RpcCommandDemuxer* command);
    CallbackListPtr FindCallbacks(unsigned int id) KPL_REQUIRES(m_stateLock);
    CallbackListPtr AwaitCallbacks(unsigned int id);
    CallbackListPtr AwaitEnd(unsigned int id);
    bool IsUnderWay(unsigned int id) KPL_REQUIRES(m_stateLock);
    void WakeCallbackThread() KPL_REQUIRES(m_stateLock);

    char* m_serverName KPL_GUARDED_BY(m_stateLock) = nullptr;
    ipc::IpcStreamer* m_streamer KPL_GUARDED_BY(m_stateLock) = nullptr;
    // m_streamer, if it is a pair of FIFOs: only their reads and writes know time limits.
    ipc::IpcStreamerPipeImpl* m_pipe KPL_GUARDED_BY(m_stateLock) = nullptr;
    ipc::IpcClient* m_ipcClient KPL_GUARDED_BY(m_stateLock) = nullptr;
    std::map<unsigned long, ContextPtr> m_callContexts KPL_GUARDED_BY(m_stateLock);
    std::map<unsigned int, CallbackListPtr> m_callbackMap KPL_GUARDED_BY(m_stateLock);
    os::CCritSec* m_lock;
    os::CThread* m_reader KPL_GUARDED_BY(m_lock) = nullptr;
    unsigned int m_nextId KPL_GUARDED_BY(m_stateLock) = 0;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stop{false};
    CallbackHandler* m_callbackHandler;

    mutable os::CCritSec m_stateLock;
    bool m_holdsStreamer KPL_GUARDED_BY(m_stateLock) = false;  // our own reference on it
    bool m_isConnecting KPL_GUARDED_BY(m_stateLock) = false;
    int m_releaseRequests KPL_GUARDED_BY(m_stateLock) = 0;  // waiting for m_lock
    std::atomic<bool> m_isBroken{false};  // half a command was written, or too much came
    os::CEvent m_readerStarted{false};
    const std::unique_ptr<WriteTurn> m_writeTurn;

    // Who receives: see RpcClientReader.cpp.
    const std::unique_ptr<CommandBuffer> m_received;  // belongs to who has the turn
    bool m_turnTaken KPL_GUARDED_BY(m_stateLock) = false;
    bool m_receivingEnded KPL_GUARDED_BY(m_stateLock) = true;     // nobody takes the turn any more
    bool m_readerSleeps KPL_GUARDED_BY(m_stateLock) = false;      // until a caller wakes it
    unsigned int m_turnRequests KPL_GUARDED_BY(m_stateLock) = 0;  // of callers
    unsigned int m_seenTurnRequests KPL_GUARDED_BY(m_stateLock) = 0;  // when the reader last looked
    os::CEvent m_readerWakes{false};
    os::CEvent m_turnGiven{false};  // after the end of receiving: nobody has the turn

    bool m_callbackThreadWaits KPL_GUARDED_BY(m_stateLock) = false;  // until a call has ended
    os::CEvent m_callEnded{false};  // reset by the callback thread alone: it misses no end

    const std::shared_ptr<ClientTag> m_tag;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCLIENT_H_
