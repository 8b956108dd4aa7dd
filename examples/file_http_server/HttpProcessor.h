#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPPROCESSOR_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPPROCESSOR_H_

#include <memory>

#include "HttpDemuxer.h"
#include "HttpResponse.h"
#include "kpl/net/server/CServerProtocolProcessor.h"

namespace file_http {

// One HTTP connection.
//
// It ends in two steps, so that a client that is still sending gets its last answer: the sending
// side is shut down behind that, and what still comes is thrown away until the client closes, too.
class HttpProcessor : public kpl::net::server::CServerProtocolProcessor {
public:
    // `fd` is the socket's descriptor. A client that takes nothing for `sendTimeoutMs` is dropped.
    // The socket is closed after the end of `response`.
    HttpProcessor(int fd, kpl::net::CSocket* socket, std::unique_ptr<HttpResponse> response,
                  int sendTimeoutMs);

private:
    bool PrepareDemuxer(char* data, int length) override;
    kpl::net::server::IProtocolDemuxer* GetDemuxer() override;
    bool IsHandshakeRequired() override;
    kpl::net::server::IProtocolHandshaker* GetHandshaker() override;
    kpl::net::server::IProtocolExecutor* GetExecutor() override;
    kpl::net::server::IProtocolMuxer* GetMuxer() override;
    bool NeedToKeepConnection() override;
    bool PostProcessRequest(kpl::com::IUnknown* request,
                            kpl::net::server::IProtocolExecutor* executor) override;

    bool SendResponse();
    bool SendAll(const char* data, int length);

    const int m_fd;
    kpl::net::CSocket* const m_socket;  // the base class's
    HttpDemuxer m_demuxer;
    const std::unique_ptr<HttpResponse> m_response;
    int m_ignored = 0;
};

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPPROCESSOR_H_
