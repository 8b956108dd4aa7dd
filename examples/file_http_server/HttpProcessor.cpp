#include "HttpProcessor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <utility>

#include "HttpRequest.h"

namespace file_http {

namespace {

using namespace kpl::net::server;

constexpr long long kMaxPiece = 262144;

// How often a client may still send something behind its last request.
constexpr int kMaxIgnored = 1000;

}  // namespace

HttpProcessor::HttpProcessor(int fd, kpl::net::CSocket* socket,
                             std::unique_ptr<HttpResponse> response, int sendTimeoutMs)
    : CServerProtocolProcessor(socket, nullptr),
      m_fd(fd),
      m_socket(socket),
      m_response(std::move(response)) {
    // One client that does not read would otherwise hold up all the others of its server thread.
    const timeval limit{sendTimeoutMs / 1000, sendTimeoutMs % 1000 * 1000};
    m_socket->SetOption(SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    // A short answer behind another one goes out at once.
    const int on = 1;
    m_socket->SetOption(IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

bool HttpProcessor::PrepareDemuxer(char*, int) {
    return true;
}

IProtocolDemuxer* HttpProcessor::GetDemuxer() {
    return &m_demuxer;
}

bool HttpProcessor::IsHandshakeRequired() {
    return false;
}

IProtocolHandshaker* HttpProcessor::GetHandshaker() {
    return nullptr;
}

IProtocolExecutor* HttpProcessor::GetExecutor() {
    return m_response.get();
}

IProtocolMuxer* HttpProcessor::GetMuxer() {
    return nullptr;
}

// HTTP/1.1 keeps connections. One that is not to be kept ends when the client closes it, too.
bool HttpProcessor::NeedToKeepConnection() {
    return true;
}

// The frame's own writing goes on behind a short send, and a client would take the next bytes for
// those that are missing. Here a response arrives whole or ends the connection.
bool HttpProcessor::PostProcessRequest(kpl::com::IUnknown* request, IProtocolExecutor*) {
    const auto& asked = *static_cast<HttpRequest*>(request);
    if (asked.isIgnored) {
        return ++m_ignored < kMaxIgnored;
    }
    if (!m_response->IsResponseReady()) {
        return true;
    }
    const bool sent = SendResponse();
    m_response->EndResponse();
    if (sent && !asked.keepsConnection) {
        shutdown(m_fd, SHUT_WR);
    }
    return sent;
}

bool HttpProcessor::SendResponse() {
    const auto room = static_cast<size_t>(std::min(m_response->BytesLeft(), kMaxPiece));
    const int size = static_cast<int>(room);
    const std::unique_ptr<char[]> piece(new char[room]);
    for (int count = m_response->ReadResponse(piece.get(), size); count > 0;
         count = m_response->ReadResponse(piece.get(), size)) {
        if (!SendAll(piece.get(), count)) {
            return false;
        }
    }
    return m_response->BytesLeft() == 0;
}

bool HttpProcessor::SendAll(const char* data, int length) {
    while (length > 0) {
        const int count = m_socket->Write(data, static_cast<unsigned int>(length), 0);
        if (count < 1) {
            return false;
        }
        data += count;
        length -= count;
    }
    return true;
}

}  // namespace file_http
