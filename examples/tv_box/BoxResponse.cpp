#include "BoxResponse.h"

#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string_view>

#include "Page.h"
#include "ParseInt.h"

namespace tv_box {

using file_http::HeadOf;
using file_http::HttpRequest;

namespace {

constexpr char kWaitPath[] = "/api/wait";
constexpr int kDefaultWaitSeconds = 25;
constexpr int kMaxWaitSeconds = 60;

// Room in the socket for the largest answer to a wait, so that sending it takes no time.
constexpr int kSendBuffer = 212992;

constexpr char kJsonFields[] =
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n";
// The page is one file and talks to this server only.
constexpr char kPageFields[] =
    "Cache-Control: no-store\r\n"
    "Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'; "
    "script-src 'unsafe-inline'; connect-src 'self'; img-src data:; frame-ancestors 'none'\r\n"
    "X-Content-Type-Options: nosniff\r\n";

std::string_view PathOf(const std::string& target) {
    return std::string_view(target).substr(0, target.find('?'));
}

// The value of `name` in the target's query; nothing if it is not there.
std::optional<std::string_view> QueryValue(const std::string& target, std::string_view name) {
    const size_t mark = target.find('?');
    std::string_view rest;
    if (mark != std::string::npos) {
        rest = std::string_view(target).substr(mark + 1);
    }
    while (!rest.empty()) {
        const std::string_view pair = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
        const size_t equals = pair.find('=');
        if (pair.substr(0, equals) == name && equals != std::string_view::npos) {
            return pair.substr(equals + 1);
        }
    }
    return std::nullopt;
}

std::string JsonResponse(const std::string& json, const HttpRequest& request) {
    return HeadOf(200, "application/json", static_cast<long long>(json.size()),
                  request.keepsConnection, kJsonFields) +
           (request.isHead ? "" : json);
}

// The page's text with the state as a script's data: a "<" in it could end that script.
std::string PageWith(std::string state) {
    for (size_t at = state.find('<'); at != std::string::npos; at = state.find('<', at)) {
        state.replace(at, 1, "\\u003c");
    }
    constexpr std::string_view kMark = "{{state}}";
    std::string page = kPage;
    const size_t at = page.find(kMark);
    return at == std::string::npos ? page : page.replace(at, kMark.size(), state);
}

}  // namespace

BoxResponse::BoxResponse(BoxState* state, int fd) : m_state(state), m_fd(fd) {
    setsockopt(m_fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
}

BoxResponse::~BoxResponse() {
    m_state->Forget(this);
}

int BoxResponse::Execute(kpl::com::IUnknown* request) {
    EndResponse();
    auto& asked = *static_cast<HttpRequest*>(request);
    asked.isIgnored = asked.isIgnored || m_isWaiting;
    if (asked.isIgnored) {
        return 0;
    }
    if (asked.status == 200 && !asked.isHead && PathOf(asked.target) == kWaitPath) {
        Wait(&asked);
    } else {
        Respond(asked);
    }
    return 0;
}

void BoxResponse::Respond(const HttpRequest& request) {
    const std::string_view path = PathOf(request.target);
    if (request.status != 200) {
        RespondError(request, request.status);
    } else if (path == "/") {
        RespondPage(request);
    } else if (path == "/api/state" || path == kWaitPath) {
        RespondJson(request, m_state->Json());
    } else if (path == "/api/channel") {
        RespondChannel(request);
    } else {
        RespondError(request, 404);
    }
}

void BoxResponse::RespondPage(const HttpRequest& request) {
    const std::string page = PageWith(m_state->Json());
    m_bytes = HeadOf(200, "text/html; charset=utf-8", static_cast<long long>(page.size()),
                     request.keepsConnection, kPageFields);
    m_bytes += request.isHead ? "" : page;
}

void BoxResponse::RespondJson(const HttpRequest& request, const std::string& json) {
    m_bytes = JsonResponse(json, request);
}

void BoxResponse::RespondError(const HttpRequest& request, int status) {
    const std::string text = std::string(file_http::ReasonOf(status)) + "\n";
    m_bytes =
        HeadOf(status, "text/plain", static_cast<long long>(text.size()), request.keepsConnection);
    m_bytes += request.isHead ? "" : text;
}

void BoxResponse::RespondChannel(const HttpRequest& request) {
    const auto text = QueryValue(request.target, "number");
    const auto number = guide::ParseInt(text.value_or(""), 1, 1000000);
    if (!number) {
        RespondError(request, 400);
        return;
    }
    const std::optional<std::string> json = m_state->ChannelJson(*number);
    if (json) {
        RespondJson(request, *json);
    } else {
        RespondError(request, 404);
    }
}

void BoxResponse::Wait(HttpRequest* request) {
    const auto text = QueryValue(request->target, "seconds");
    const auto seconds =
        text ? guide::ParseInt(*text, 1, kMaxWaitSeconds) : std::optional<int>(kDefaultWaitSeconds);
    if (!seconds) {
        RespondError(*request, 400);
        return;
    }
    request->keepsConnection = false;
    const std::string seen(QueryValue(request->target, "version").value_or(""));
    const auto deadline = BoxState::Clock::now() + std::chrono::seconds(*seconds);
    const std::optional<std::string> other = m_state->WaitForOther(seen, deadline, this);
    m_isWaiting = !other;
    if (other) {
        RespondJson(*request, *other);
    }
}

// Beside the server thread, which at most reads from the connection meanwhile. Never waits: a
// client that has left no room in its socket is dropped, and the server thread sees the end.
void BoxResponse::Answer(const std::string& state) {
    HttpRequest last;  // which does not keep the connection
    const std::string bytes = JsonResponse(state, last);
    const ssize_t sent = send(m_fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    shutdown(m_fd, sent == static_cast<ssize_t>(bytes.size()) ? SHUT_WR : SHUT_RDWR);
}

bool BoxResponse::IsResponseReady() {
    return !m_isWaiting;
}

bool BoxResponse::HasResponseData() {
    return !m_bytes.empty();
}

int BoxResponse::ReadResponse(char* buffer, int size) {
    const size_t count = std::min(m_bytes.size(), static_cast<size_t>(size));
    memcpy(buffer, m_bytes.data(), count);
    m_bytes.erase(0, count);
    return static_cast<int>(count);
}

void BoxResponse::EndResponse() {
    m_bytes.clear();
}

long long BoxResponse::BytesLeft() const {
    return static_cast<long long>(m_bytes.size());
}

}  // namespace tv_box
