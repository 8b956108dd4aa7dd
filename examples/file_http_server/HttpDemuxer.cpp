#include "HttpDemuxer.h"

#include <string_view>

#include "HttpHead.h"
#include "HttpRequest.h"

namespace file_http {

namespace {

constexpr int kUriTooLong = 414;
constexpr int kFieldsTooLarge = 431;

// What stands at the front of the bytes.
struct Front {
    int status;      // 0: more must come; 200: a head; otherwise what it is refused for
    size_t skipped;  // line ends before the head
    size_t end;      // where the head ends
};

// How many bytes the line ends before a request line take. A client may send some behind a request.
size_t CountLineEnds(std::string_view bytes) {
    const size_t first = bytes.find_first_not_of("\r\n");
    return first == std::string_view::npos ? bytes.size() : first;
}

// Where the empty line behind `from` ends; npos if it has not come.
size_t FindEndOfHead(std::string_view bytes, size_t from) {
    size_t lineFeed = bytes.find('\n', from);
    while (lineFeed != std::string_view::npos) {
        size_t next = lineFeed + 1;
        if (next < bytes.size() && bytes[next] == '\r') {
            ++next;
        }
        if (next < bytes.size() && bytes[next] == '\n') {
            return next + 1;
        }
        lineFeed = bytes.find('\n', lineFeed + 1);
    }
    return std::string_view::npos;
}

// Every answer is decided by a fixed number of the first bytes, so that it is the same however many
// of them have come.
Front LookAt(std::string_view bytes) {
    const bool isFull = bytes.size() >= kMaxHead;
    bytes = bytes.substr(0, kMaxHead);
    const size_t start = CountLineEnds(bytes);
    const std::string_view head = bytes.substr(start);
    const size_t lineFeed = head.find('\n');
    if (head.substr(0, lineFeed).size() > kMaxRequestLine) {
        return {kUriTooLong, start, 0};
    }
    const size_t end =
        lineFeed == std::string_view::npos ? lineFeed : FindEndOfHead(head, lineFeed);
    if (end != std::string_view::npos) {
        return {200, start, start + end};
    }
    return {isFull ? kFieldsTooLarge : 0, start, 0};
}

}  // namespace

kpl::com::IUnknown* HttpDemuxer::Demux(char* data, int length, int& consumed) {
    const std::string_view bytes(data, static_cast<size_t>(length));
    auto* request = new HttpRequest;
    if (m_isOver) {
        request->isIgnored = true;
        consumed = length;
        return request;
    }
    const Front front = LookAt(bytes);
    if (front.status == 0) {
        request->Release();
        consumed = 0;
        return nullptr;
    }
    if (front.status == 200) {
        ParseHead(bytes.substr(front.skipped, front.end - front.skipped), request);
    } else {
        request->status = front.status;
    }
    m_isOver = !request->keepsConnection;
    m_type = request->status;
    consumed = request->status == 200 ? static_cast<int>(front.end) : length;
    return request;
}

int HttpDemuxer::GetDemuxedType() {
    return m_type;
}

}  // namespace file_http
