// WebSocket as it was before RFC 6455, on the server's side of one connection: an opening
// handshake, then texts, each between a byte 0 and a byte 255, of which every one is sent back.
#ifndef HANDSHAKE_PROTOCOL_H_
#define HANDSHAKE_PROTOCOL_H_

#include <stddef.h>

#include <string>
#include <utility>

#include "kpl/com/CUnknownBase.h"
#include "kpl/net/server/CServerProtocolProcessor.h"
#include "kpl/net/server/IProtocol.h"

namespace handshake {

// What the demuxer cuts off the received bytes, whole.
class Request : public kpl::com::CUnknownBase {
public:
    explicit Request(std::string bytes) : m_bytes(std::move(bytes)) {}

    const std::string& Bytes() const { return m_bytes; }

private:
    const std::string m_bytes;
};

class Demuxer : public kpl::net::server::IProtocolDemuxer {
public:
    enum Type { kNone, kHandshake, kText };

    kpl::com::IUnknown* Demux(char* data, int length, int& consumed) override;
    int GetDemuxedType() override { return m_type; }

private:
    Type m_type = kNone;
};

// Answers the opening handshake; refuses one without keys, or with a key that has no space.
class Handshaker : public kpl::net::server::IProtocolHandshaker {
public:
    int ProcessHandshake(kpl::com::IUnknown* request) override;
    int GetAnswerLength() override { return static_cast<int>(m_answer.size()); }
    const char* GetAnswerData() override { return m_answer.data(); }

    bool HasAnswered() const { return !m_answer.empty(); }

private:
    std::string m_answer;
};

// Its response is the request.
class Echo : public kpl::net::server::IProtocolExecutor {
public:
    int Execute(kpl::com::IUnknown* request) override;
    bool IsResponseReady() override { return true; }
    bool HasResponseData() override { return !m_response.empty(); }
    int ReadResponse(char* buffer, int size) override;
    void EndResponse() override { m_response.clear(); }

private:
    std::string m_response;
    size_t m_read = 0;
};

class Processor : public kpl::net::server::CServerProtocolProcessor {
public:
    using CServerProtocolProcessor::CServerProtocolProcessor;

    bool PrepareDemuxer(char*, int) override { return true; }
    kpl::net::server::IProtocolDemuxer* GetDemuxer() override { return &m_demuxer; }
    bool IsHandshakeRequired() override;
    kpl::net::server::IProtocolHandshaker* GetHandshaker() override { return &m_handshaker; }
    kpl::net::server::IProtocolExecutor* GetExecutor() override;  // null before the handshake
    kpl::net::server::IProtocolMuxer* GetMuxer() override { return nullptr; }
    bool NeedToKeepConnection() override { return true; }
    bool PostProcessRequest(kpl::com::IUnknown* request,
                            kpl::net::server::IProtocolExecutor* executor) override {
        return WriteResponseWithoutMuxer(request, executor);
    }

private:
    Demuxer m_demuxer;
    Handshaker m_handshaker;
    Echo m_echo;
};

}  // namespace handshake

#endif  // HANDSHAKE_PROTOCOL_H_
