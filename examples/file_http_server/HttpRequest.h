#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPREQUEST_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPREQUEST_H_

#include <string>

#include "kpl/com/CUnknownBase.h"

namespace file_http {

// One request, or the reason why there is none.
struct HttpRequest : kpl::com::CUnknownBase {
    // 200 if the request can be answered; otherwise the status that refuses it. What follows a
    // refused one is not understood any more, so the connection then ends.
    int status = 200;

    bool isHead = false;
    std::string target;         // as it came: "/a%20b?c"
    bool isOldVersion = false;  // HTTP/1.0
    bool keepsConnection = false;

    // Nothing to answer: bytes that came behind the last request of the connection.
    bool isIgnored = false;
};

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPREQUEST_H_
