// Sends any bytes, in any pieces, through a connection's buffer and the HTTP example's demuxer. The
// requests must be those that the demuxer finds when it has all bytes at once.
#include <android/log.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "examples/file_http_server/HttpDemuxer.h"
#include "examples/file_http_server/HttpRequest.h"
#include "kpl/net/CSocket.h"
#include "kpl/net/server/CServerProtocolProcessor.h"

// Takes the library's messages and drops them.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using namespace kpl::net::server;
using file_http::HttpDemuxer;
using file_http::HttpRequest;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// What came out, in words.
class Requests {
public:
    void Add(const HttpRequest& request) {
        if (!request.isIgnored) {
            m_all.push_back(std::to_string(request.status) + (request.isHead ? "H" : "G") +
                            (request.isOldVersion ? "0" : "1") +
                            (request.keepsConnection ? "k " : "c ") + request.target);
            Require(!m_isOver);
            m_isOver = !request.keepsConnection;
            Require(request.status == 200 || m_isOver);
        }
    }
    bool operator==(const Requests& other) const { return m_all == other.m_all; }

private:
    std::vector<std::string> m_all;
    bool m_isOver = false;
};

Requests DemuxAtOnce(std::string bytes) {
    HttpDemuxer demuxer;
    Requests requests;
    for (size_t offset = 0; offset < bytes.size();) {
        int consumed = -1;
        const int left = static_cast<int>(bytes.size() - offset);
        auto* request =
            static_cast<HttpRequest*>(demuxer.Demux(bytes.data() + offset, left, consumed));
        Require(consumed >= 0 && consumed <= left && (request == nullptr) == (consumed == 0));
        if (request == nullptr) {
            break;
        }
        requests.Add(*request);
        request->Release();
        offset += static_cast<size_t>(consumed);
    }
    return requests;
}

// Notes requests instead of answering them.
class Connection : public CServerProtocolProcessor, private IProtocolExecutor {
public:
    explicit Connection(kpl::net::CSocket* socket) : CServerProtocolProcessor(socket, nullptr) {}
    const Requests& All() const { return m_requests; }

private:
    bool PrepareDemuxer(char*, int) override { return true; }
    IProtocolDemuxer* GetDemuxer() override { return &m_demuxer; }
    bool IsHandshakeRequired() override { return false; }
    IProtocolHandshaker* GetHandshaker() override { return nullptr; }
    IProtocolExecutor* GetExecutor() override { return this; }
    IProtocolMuxer* GetMuxer() override { return nullptr; }
    bool NeedToKeepConnection() override { return true; }
    bool PostProcessRequest(kpl::com::IUnknown*, IProtocolExecutor*) override { return true; }

    int Execute(kpl::com::IUnknown* request) override {
        m_requests.Add(*static_cast<HttpRequest*>(request));
        return 0;
    }
    bool IsResponseReady() override { return false; }
    bool HasResponseData() override { return false; }
    int ReadResponse(char*, int) override { return 0; }
    void EndResponse() override {}

    HttpDemuxer m_demuxer;
    Requests m_requests;
};

Requests DemuxInPieces(std::string_view bytes, uint32_t seed) {
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    auto* received = new kpl::net::CSocket(ends[0]);
    Connection connection(received);
    kpl::net::CSocket sender(ends[1]);
    while (!bytes.empty()) {
        seed = seed * 1103515245 + 12345;
        const uint32_t limit = 1u << (seed >> 28);  // mostly small pieces, some large ones
        const size_t size = std::min<size_t>(bytes.size(), 1 + (seed >> 8) % limit);
        Require(sender.Write(bytes.data(), static_cast<unsigned int>(size), 0) ==
                static_cast<int>(size));
        bytes.remove_prefix(size);
        while (received->GetAvailableDataLength() > 0) {
            Require(connection.Process());
        }
    }
    return connection.All();
}

}  // namespace

// The first four bytes say how the others are cut into pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) {
        return 0;
    }
    uint32_t seed = 0;
    memcpy(&seed, data, sizeof(seed));
    const std::string bytes(reinterpret_cast<const char*>(data) + 4, size - 4);
    Require(DemuxInPieces(bytes, seed) == DemuxAtOnce(bytes));
    return 0;
}
