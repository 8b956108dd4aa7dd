#include "Protocol.h"

#include <string.h>
#include <strings.h>

#include <algorithm>
#include <string_view>

#include "kpl/net/WebSocketHandshake.h"

namespace handshake {

namespace {

constexpr std::string_view kMethod = "GET ";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr size_t kBodySize = 8;
constexpr char kTextBegin = '\0';
constexpr char kTextEnd = '\xff';

const Request& ToRequest(kpl::com::IUnknown* request) {
    return *static_cast<Request*>(request);  // the demuxer makes no others
}

// The length of the handshake at the front of `data`; 0 if it is not complete, -1 if it is none.
int HandshakeLength(std::string_view data) {
    if (data.substr(0, kMethod.size()) != kMethod.substr(0, data.size())) {
        return -1;
    }
    const size_t end = data.find(kHeaderEnd);
    if (end == std::string_view::npos) {
        return 0;
    }
    const size_t length = end + kHeaderEnd.size() + kBodySize;
    return length <= data.size() ? static_cast<int>(length) : 0;
}

int TextLength(std::string_view data) {
    const size_t end = data.find(kTextEnd);
    return end == std::string_view::npos ? 0 : static_cast<int>(end + 1);
}

// The value of the field `name` ("Host: "); empty if there is none.
std::string Field(const std::string& header, const std::string& name) {
    for (size_t at = header.find(kLineEnd); at != std::string::npos;
         at = header.find(kLineEnd, at)) {
        at += kLineEnd.size();
        if (strncasecmp(header.c_str() + at, name.c_str(), name.size()) == 0) {
            const size_t value = at + name.size();
            return header.substr(value, header.find(kLineEnd, value) - value);
        }
    }
    return "";
}

// What stands between "GET " and " HTTP/1.1".
std::string Resource(const std::string& header) {
    const size_t end = header.find_first_of(" \r", kMethod.size());
    return header.substr(kMethod.size(), end - kMethod.size());
}

// Without a space there is no number in a key: no browser sent it.
bool IsKey(const std::string& key) {
    return key.find(' ') != std::string::npos;
}

}  // namespace

kpl::com::IUnknown* Demuxer::Demux(char* data, int length, int& consumed) {
    const std::string_view bytes(data, static_cast<size_t>(length));
    m_type = data[0] == kTextBegin ? kText : kHandshake;
    consumed = m_type == kText ? TextLength(bytes) : HandshakeLength(bytes);
    if (consumed < 1) {
        return nullptr;
    }
    return new Request(std::string(data, static_cast<size_t>(consumed)));
}

int Handshaker::ProcessHandshake(kpl::com::IUnknown* request) {
    const std::string& bytes = ToRequest(request).Bytes();
    const std::string header = bytes.substr(0, bytes.size() - kBodySize);
    const std::string key1 = Field(header, "Sec-WebSocket-Key1: ");
    const std::string key2 = Field(header, "Sec-WebSocket-Key2: ");
    if (!IsKey(key1) || !IsKey(key2)) {
        return -1;
    }
    char proof[16];
    const int length = md5_getWebSocketHandshakeAnswer(
        key1.c_str(), key2.c_str(), bytes.data() + header.size(), proof, sizeof(proof));
    if (length < 0) {
        return -1;
    }
    m_answer =
        "HTTP/1.1 101 WebSocket Protocol Handshake\r\n"
        "Upgrade: WebSocket\r\n"
        "Connection: Upgrade\r\n"
        "Sec-WebSocket-Origin: " +
        Field(header, "Origin: ") +
        "\r\n"
        "Sec-WebSocket-Location: ws://" +
        Field(header, "Host: ") + Resource(header) +
        "\r\n"
        "\r\n";
    m_answer.append(proof, static_cast<size_t>(length));
    return GetAnswerLength();
}

int Echo::Execute(kpl::com::IUnknown* request) {
    m_response = ToRequest(request).Bytes();
    m_read = 0;
    return 0;
}

int Echo::ReadResponse(char* buffer, int size) {
    const size_t count = std::min(static_cast<size_t>(size), m_response.size() - m_read);
    memcpy(buffer, m_response.data() + m_read, count);
    m_read += count;
    return static_cast<int>(count);
}

bool Processor::IsHandshakeRequired() {
    return m_demuxer.GetDemuxedType() == Demuxer::kHandshake;
}

kpl::net::server::IProtocolExecutor* Processor::GetExecutor() {
    return m_handshaker.HasAnswered() ? &m_echo : nullptr;
}

}  // namespace handshake
