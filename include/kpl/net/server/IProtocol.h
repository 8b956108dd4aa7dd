// What a protocol consists of, beside its CServerProtocolProcessor. All of these belong to the
// protocol, which decides how long they live; the frame only calls them, on the connection's server
// thread.
#ifndef KPL_NET_SERVER_IPROTOCOL_H_
#define KPL_NET_SERVER_IPROTOCOL_H_

#include "kpl/com/IUnknown.h"

namespace kpl::net::server {

// Cuts requests off the front of what was received.
class IProtocolDemuxer {
public:
    virtual ~IProtocolDemuxer() = default;

    // Looks at `length` bytes, which a zero byte follows, and returns the first request in them
    // with a reference for the caller. `consumed` is its length; 0 if the request is not complete
    // yet (it is offered again with more behind it); negative if it is none, which ends the
    // connection, as a null request with a positive `consumed` does.
    virtual com::IUnknown* Demux(char* data, int length, int& consumed) = 0;

    // A number for the log. Asked before each Demux, so it tells the type of the request before.
    virtual int GetDemuxedType() = 0;
};

// Answers a protocol's opening handshake.
class IProtocolHandshaker {
public:
    virtual ~IProtocolHandshaker() = default;

    // Above 0: the answer is ready. 0: more must be received first. Negative: refused, which ends
    // the connection.
    virtual int ProcessHandshake(com::IUnknown* request) = 0;

    // The answer, once it is ready: how many bytes, and the bytes, which stay the handshaker's.
    virtual int GetAnswerLength() = 0;
    virtual const char* GetAnswerData() = 0;
};

// Runs a request and gives its response, piece by piece.
class IProtocolExecutor {
public:
    virtual ~IProtocolExecutor() = default;

    // Negative: failed, which ends the connection without a response. The request stays the
    // caller's.
    virtual int Execute(com::IUnknown* request) = 0;

    // For the protocol's own use; the frame does not call it.
    virtual void Abort() {}

    // Unless both are true, the connection ends without a response.
    virtual bool IsResponseReady() = 0;
    virtual bool HasResponseData() = 0;

    // Stores the next bytes of the response, at most `size`, and returns how many; below 1 at its
    // end.
    virtual int ReadResponse(char* buffer, int size) = 0;

    // The response was read to its end, or could not be sent.
    virtual void EndResponse() = 0;
};

// Wraps an executor's response for the wire.
class IProtocolMuxer {
public:
    virtual ~IProtocolMuxer() = default;

    // Begins a response, which comes from `executor`.
    virtual void SetExecutor(IProtocolExecutor* executor) = 0;

    // As the executor's.
    virtual bool IsResponseReady() = 0;
    virtual bool HasResponseData() = 0;
    virtual int ReadResponse(char* buffer, int size) = 0;
    virtual void EndResponse() = 0;
};

}  // namespace kpl::net::server

#endif  // KPL_NET_SERVER_IPROTOCOL_H_
