// The head of a request: the request line and the fields below it (RFC 9112).
#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPHEAD_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPHEAD_H_

#include <stddef.h>

#include <string_view>

#include "HttpRequest.h"

namespace file_http {

// Longer ones are refused. Both lie below what the processor can keep, 8191 bytes.
constexpr size_t kMaxRequestLine = 4096;
constexpr size_t kMaxHead = 8000;

// Reads a whole head, up to and with its empty line, into `request`; what it is refused for goes to
// its status.
void ParseHead(std::string_view head, HttpRequest* request);

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_HTTPHEAD_H_
