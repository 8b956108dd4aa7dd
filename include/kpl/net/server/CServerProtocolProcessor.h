#ifndef KPL_NET_SERVER_CSERVERPROTOCOLPROCESSOR_H_
#define KPL_NET_SERVER_CSERVERPROTOCOLPROCESSOR_H_

#include <atomic>

#include "kpl/Export.h"
#include "kpl/com/IUnknown.h"
#include "kpl/net/CSocket.h"
#include "kpl/net/server/IProtocol.h"
#include "kpl/os/CCritSec.h"

namespace kpl::net::server {

// Serves one connection: receives, cuts requests off, has each executed and sends its response, in
// the order in which they came. A protocol derives from it and supplies the pure operations. A
// factory operation may return null at any time; the connection then ends, nothing else.
//
// At most 8191 bytes are kept, so no request may be longer. Everything runs on the connection's
// server thread, also the destructor, unless the server is being stopped.
class KPL_EXPORT CServerProtocolProcessor {
public:
    // Takes over `socket`. `param` is for derived classes; it is neither kept nor counted here.
    CServerProtocolProcessor(CSocket* socket, com::IUnknown* param);

    // Closes the connection.
    virtual ~CServerProtocolProcessor();
    CServerProtocolProcessor(const CServerProtocolProcessor&) = delete;
    CServerProtocolProcessor& operator=(const CServerProtocolProcessor&) = delete;

    // What a protocol supplies. Worker thread only.

    // Called once, with the first bytes that were received; false ends the connection. The other
    // operations are first called after it.
    virtual bool PrepareDemuxer(char* data, int length) = 0;

    // What cuts the received bytes; one for the life of the connection.
    virtual IProtocolDemuxer* GetDemuxer() = 0;

    // Whether the request just demuxed is an opening handshake: it then goes to GetHandshaker
    // instead of being executed. A connection answers one handshake; another ends it.
    virtual bool IsHandshakeRequired() = 0;
    virtual IProtocolHandshaker* GetHandshaker() = 0;

    // The executor of the request just demuxed.
    virtual IProtocolExecutor* GetExecutor() = 0;

    // What wraps the response; not asked by WriteResponseWithoutMuxer.
    virtual IProtocolMuxer* GetMuxer() = 0;

    // What a protocol may change. Worker thread only.

    // The peer has closed the connection.
    virtual void ProcessDisconnect();

    // Asked when everything received has been processed: whether the connection stays open. It does
    // not, unless a protocol says so.
    virtual bool NeedToKeepConnection();

    // Called with each request that was executed; false ends the connection. Sends the response by
    // WriteResponse; a protocol without a muxer has WriteResponseWithoutMuxer called here.
    virtual bool PostProcessRequest(com::IUnknown* request, IProtocolExecutor* executor);

    // What the server thread calls when there is something to read. False: the connection is to
    // end. Worker thread only.
    bool Process();

    // The steps of Process, each usable by a protocol. Worker thread only, but for ProcessRequest,
    // which other threads may call too: a lock has it run once at a time.

    // The next request in `data`, see IProtocolDemuxer::Demux. Null with `consumed` untouched if
    // there are no bytes; null with `consumed` -1 without a demuxer.
    com::IUnknown* Demux(char* data, int length, int& consumed);

    // Above 0: the answer was sent. 0: more must be received. Negative: refused.
    int Handshake(com::IUnknown* request);

    // Executes the request, sends its response and releases the request. False: the connection is
    // to end.
    bool ProcessRequest(com::IUnknown* request);

    // Send a response in pieces of at most 262144 bytes, from the muxer or straight from the
    // executor. What a short send leaves of a piece is dropped. Waits while the peer does not read.
    // False if there is no response to send; a failed send ends it, and the result is true.
    bool WriteResponse(com::IUnknown* request, IProtocolExecutor* executor);
    bool WriteResponseWithoutMuxer(com::IUnknown* request, IProtocolExecutor* executor);

    // Moves `length` bytes that stand at `offset` of the receive buffer to its beginning.
    void MoveDataToBeginOfBuffer(int offset, int length);

    // Closes the connection; the server thread then deletes this object within a poll. Worker
    // thread, or one that keeps the object alive meanwhile (by a lock that the derived destructor
    // takes, for example).
    void Disconnect();

private:
    friend class CServerThread;

    enum class Outcome { Done, Incomplete, Failed };

    bool Receive();
    bool ServeReceived();
    Outcome ServeRequest(com::IUnknown* request);
    Outcome AnswerHandshake(com::IUnknown* request);
    bool Execute(com::IUnknown* request);
    bool KeepForLater(int offset, com::IUnknown* request);
    bool IsConnected() const;
    void Interrupt();

    CSocket* const m_socket;  // owned; may be null
    char* const m_buffer;
    int m_length = 0;
    bool m_handshaken = false;
    os::CCritSec m_lock;
    std::atomic<bool> m_connected{true};
    bool m_demuxerPrepared = false;
    int m_demuxedType = 0;

    std::atomic<bool> m_interrupted{false};
    bool m_hasReadAll = false;  // the last Process has left nothing in the socket
};

}  // namespace kpl::net::server

#endif  // KPL_NET_SERVER_CSERVERPROTOCOLPROCESSOR_H_
