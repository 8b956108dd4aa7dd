// What an HTTP response is to its connection, and the head that all of them begin with.
#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPRESPONSE_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPRESPONSE_H_

#include <string>

#include "kpl/net/server/IProtocol.h"

namespace file_http {

// Answers the requests of one connection, which are HttpRequest. A response that is not ready when
// Execute has returned is not sent: the executor sees to its sending, and the connection's other
// requests are ignored by it.
class HttpResponse : public kpl::net::server::IProtocolExecutor {
public:
    // How much of the response has not been read.
    virtual long long BytesLeft() const = 0;
};

// "Not Found".
const char* ReasonOf(int status);

// The head, up to and with its empty line. `fields` are further ones, each with its line end.
std::string HeadOf(int status, const char* type, long long length, bool keepsConnection,
                   const std::string& fields = "");

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPRESPONSE_H_
