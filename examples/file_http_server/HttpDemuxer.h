#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPDEMUXER_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPDEMUXER_H_

#include "kpl/net/server/IProtocol.h"

namespace file_http {

// Cuts requests out of what a client sends. What it gives does not depend on how the bytes come in
// pieces. Behind the connection's last request, which is one that does not keep it or is refused,
// everything becomes ignored requests.
class HttpDemuxer : public kpl::net::server::IProtocolDemuxer {
public:
    // Always gives an HttpRequest, unless the request is not complete yet.
    kpl::com::IUnknown* Demux(char* data, int length, int& consumed) override;

    // The status of the last request.
    int GetDemuxedType() override;

private:
    int m_type = 0;
    bool m_isOver = false;
};

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPDEMUXER_H_
