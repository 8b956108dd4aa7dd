#include "HttpDemuxer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HttpHead.h"
#include "HttpRequest.h"

namespace {

using file_http::HttpDemuxer;
using file_http::HttpRequest;
using file_http::kMaxHead;
using file_http::kMaxRequestLine;
using testing::ElementsAre;

// Feeds a demuxer as the frame does: what was not consumed is offered again with more behind it.
class Feeder {
public:
    void Feed(const std::string& bytes) {
        m_kept += bytes;
        while (!m_kept.empty()) {
            int consumed = -1;
            auto* request = static_cast<HttpRequest*>(
                m_demuxer.Demux(m_kept.data(), static_cast<int>(m_kept.size()), consumed));
            if (consumed == 0) {
                EXPECT_EQ(nullptr, request);
                return;
            }
            ASSERT_NE(nullptr, request);
            ASSERT_GT(consumed, 0);
            ASSERT_LE(static_cast<size_t>(consumed), m_kept.size());
            Note(*request);
            request->Release();
            m_kept.erase(0, static_cast<size_t>(consumed));
        }
    }

    std::vector<std::string> requests;

private:
    void Note(const HttpRequest& request) {
        if (request.isIgnored) {
            return;
        }
        std::string text = std::to_string(request.status);
        if (request.status == 200) {
            text += request.isHead ? " HEAD " : " GET ";
            text += request.target + (request.keepsConnection ? " keep" : " close");
        }
        EXPECT_EQ(request.status, m_demuxer.GetDemuxedType());
        requests.push_back(text);
    }

    HttpDemuxer m_demuxer;
    std::string m_kept;
};

std::vector<std::string> Demux(const std::string& bytes) {
    Feeder feeder;
    feeder.Feed(bytes);
    return feeder.requests;
}

// The first request's outcome.
std::string Outcome(const std::string& requestLine, const std::string& fields = "Host: h\r\n") {
    const std::vector<std::string> requests = Demux(requestLine + "\r\n" + fields + "\r\n");
    return requests.empty() ? "none" : requests.front();
}

TEST(HttpDemuxerTest, GetAndHeadAreTaken) {
    EXPECT_EQ("200 GET /a?b keep", Outcome("GET /a?b HTTP/1.1"));
    EXPECT_EQ("200 HEAD / keep", Outcome("HEAD / HTTP/1.1"));
    EXPECT_EQ("200 GET /x keep", Outcome("GET http://h:80/x HTTP/1.1"));
    EXPECT_EQ("200 GET / keep", Outcome("GET HTTP://h HTTP/1.1"));
    EXPECT_EQ("200 GET /\xC3\xA4 keep", Outcome("GET /\xC3\xA4 HTTP/1.1"));
}

TEST(HttpDemuxerTest, OtherMethodsAndVersionsAreRefused) {
    EXPECT_EQ("405", Outcome("POST / HTTP/1.1"));
    EXPECT_EQ("405", Outcome("get / HTTP/1.1"));
    EXPECT_EQ("505", Outcome("GET / HTTP/2.0"));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.x"));
    EXPECT_EQ("400", Outcome("GET /"));
    EXPECT_EQ("400", Outcome("GET / / HTTP/1.1"));
    EXPECT_EQ("400", Outcome("GET  / HTTP/1.1"));
    EXPECT_EQ("400", Outcome("G@T / HTTP/1.1"));
    EXPECT_EQ("400", Outcome("GET * HTTP/1.1"));
    EXPECT_EQ("400", Outcome("GET a HTTP/1.1"));
    EXPECT_EQ("400", Outcome("GET /a\tb HTTP/1.1"));
    EXPECT_EQ("400", Outcome(std::string("GET /\0 HTTP/1.1", 15)));
    EXPECT_EQ("400", Outcome("nonsense"));
}

TEST(HttpDemuxerTest, Http11NeedsOneHost) {
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", ""));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host: a\r\nHost: a\r\n"));
    EXPECT_EQ("200 GET / keep", Outcome("GET / HTTP/1.1", "hOST:\r\n"));
    EXPECT_EQ("200 GET / close", Outcome("GET / HTTP/1.0", ""));
}

TEST(HttpDemuxerTest, FieldsThatAreNotWellFormedAreRefused) {
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host: h\r\nno colon\r\n"));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host : h\r\n"));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host: h\r\n folded: x\r\n"));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host: h\r\n: x\r\n"));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host: h\r\nX: a\rb\r\n"));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", std::string("Host: h\r\nX: a\0b\r\n", 17)));
}

TEST(HttpDemuxerTest, ARequestWithABodyIsRefused) {
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host: h\r\nContent-Length: 5\r\n"));
    EXPECT_EQ("400", Outcome("GET / HTTP/1.1", "Host: h\r\nTransfer-Encoding: chunked\r\n"));
    EXPECT_EQ("200 GET / keep", Outcome("GET / HTTP/1.1", "Host: h\r\nContent-Length: 0\r\n"));
}

TEST(HttpDemuxerTest, TheConnectionIsKeptByVersionAndField) {
    const auto kept = [](const char* version, const char* fields) {
        return Outcome(std::string("GET / ") + version, std::string("Host: h\r\n") + fields);
    };
    EXPECT_EQ("200 GET / keep", kept("HTTP/1.1", "Connection: upgrade\r\n"));
    EXPECT_EQ("200 GET / close", kept("HTTP/1.1", "Connection: close\r\n"));
    EXPECT_EQ("200 GET / close", kept("HTTP/1.1", "connection:a , CLOSE\t\r\n"));
    EXPECT_EQ("200 GET / close",
              kept("HTTP/1.1", "Connection: keep-alive\r\nConnection: close\r\n"));
    EXPECT_EQ("200 GET / keep", kept("HTTP/1.1", "Connection: closed\r\n"));
    EXPECT_EQ("200 GET / close", kept("HTTP/1.0", ""));
    EXPECT_EQ("200 GET / keep", kept("HTTP/1.0", "Connection: Keep-Alive\r\n"));
    EXPECT_EQ("200 GET / close", kept("HTTP/1.0", "Connection: keep-alive, close\r\n"));
}

TEST(HttpDemuxerTest, NothingIsTakenBehindTheLastRequest) {
    const std::string get = "GET /a HTTP/1.1\r\nHost: h\r\n\r\n";
    const std::string last = "GET /b HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n";
    EXPECT_THAT(Demux(get + last + get), ElementsAre("200 GET /a keep", "200 GET /b close"));
    EXPECT_THAT(Demux(get + "x\r\n\r\n" + get), ElementsAre("200 GET /a keep", "400"));
}

TEST(HttpDemuxerTest, LineEndsMayStandBeforeARequestAndBeLineFeedsAlone) {
    EXPECT_THAT(Demux("\r\n\n\r\nGET /a HTTP/1.0\nConnection: keep-alive\n\nGET /b HTTP/1.0\r\n\n"),
                ElementsAre("200 GET /a keep", "200 GET /b close"));
}

// A request line of `size` characters without its end.
std::string LineOf(size_t size) {
    return "GET /" + std::string(size - 14, 'x') + " HTTP/1.1";
}

TEST(HttpDemuxerTest, AnOverLongRequestLineIs414AsSoonAsThatIsCertain) {
    EXPECT_EQ("200", Outcome(LineOf(kMaxRequestLine - 1)).substr(0, 3));  // and the carriage return
    EXPECT_EQ("414", Outcome(LineOf(kMaxRequestLine)));
    EXPECT_THAT(Demux(LineOf(kMaxRequestLine)), ElementsAre());
    EXPECT_THAT(Demux(LineOf(kMaxRequestLine + 1)), ElementsAre("414"));
}

TEST(HttpDemuxerTest, AnOverLongHeadIs431AsSoonAsThatIsCertain) {
    const std::string start = "GET / HTTP/1.1\r\nHost: h\r\nX: ";
    const std::string fits = start + std::string(kMaxHead - start.size() - 4, 'x') + "\r\n\r\n";
    ASSERT_EQ(kMaxHead, fits.size());
    EXPECT_THAT(Demux(fits), ElementsAre("200 GET / keep"));
    EXPECT_THAT(Demux(fits.substr(0, kMaxHead - 1)), ElementsAre());
    EXPECT_THAT(Demux(start + std::string(kMaxHead - start.size() - 3, 'x') + "\r\n\r\n"),
                ElementsAre("431"));
    EXPECT_THAT(Demux(std::string(kMaxHead, '\n')), ElementsAre("431"));
}

TEST(HttpDemuxerTest, AnySplitOfTheSameBytesGivesTheSameRequests) {
    const std::string bytes =
        "\r\nGET /a HTTP/1.1\r\nHost: h\r\n\r\nHEAD /b HTTP/1.0\nConnection: keep-alive\n\n"
        "GET /c HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\nGET /d HTTP/1.1\r\n\r\n";
    const std::vector<std::string> whole = Demux(bytes);
    ASSERT_EQ(3u, whole.size());
    for (size_t first = 0; first <= bytes.size(); ++first) {
        for (size_t second = first; second <= bytes.size(); ++second) {
            Feeder feeder;
            feeder.Feed(bytes.substr(0, first));
            feeder.Feed(bytes.substr(first, second - first));
            feeder.Feed(bytes.substr(second));
            ASSERT_EQ(whole, feeder.requests) << first << " " << second;
        }
    }
}

}  // namespace
