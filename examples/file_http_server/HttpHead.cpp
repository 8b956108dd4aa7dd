#include "HttpHead.h"

#include <string.h>
#include <strings.h>

#include <algorithm>

namespace file_http {

namespace {

constexpr int kOk = 200;
constexpr int kBadRequest = 400;
constexpr int kNotAllowed = 405;
constexpr int kVersionNotSupported = 505;

// What the fields say that matters here.
struct Fields {
    int hosts = 0;
    bool saysClose = false;
    bool saysKeepAlive = false;
    bool hasBody = false;
};

// Takes the text up to `separator` off the front; all of it if there is none.
std::string_view TakeUpTo(std::string_view* text, char separator) {
    const size_t end = text->find(separator);
    const std::string_view taken = text->substr(0, end);
    text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
    return taken;
}

// A line without its end, which is a line feed or a carriage return and one.
std::string_view TakeLine(std::string_view* text) {
    std::string_view line = TakeUpTo(text, '\n');
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool IsSame(std::string_view text, std::string_view lower) {
    return text.size() == lower.size() && strncasecmp(text.data(), lower.data(), lower.size()) == 0;
}

bool IsControl(char c) {
    return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7F';
}

bool IsTokenChar(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           (c != '\0' && strchr("!#$%&'*+-.^_`|~", c) != nullptr);
}

bool IsToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsTokenChar);
}

int ParseVersion(std::string_view version, HttpRequest* request) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (version.size() != 8 || version.substr(0, 5) != "HTTP/" || !isDigit(version[5]) ||
        version[6] != '.' || !isDigit(version[7])) {
        return kBadRequest;
    }
    request->isOldVersion = version[7] == '0';
    return version[5] == '1' ? kOk : kVersionNotSupported;
}

// An absolute "http://host/path" means the same as "/path".
std::string_view PathOfTarget(std::string_view target) {
    constexpr std::string_view kScheme = "http://";
    if (!IsSame(target.substr(0, kScheme.size()), kScheme)) {
        return target;
    }
    const size_t path = target.find_first_of("/?", kScheme.size());
    if (path == std::string_view::npos || target[path] == '?') {
        return "/";
    }
    return target.substr(path);
}

int ParseRequestLine(std::string_view line, HttpRequest* request) {
    const std::string_view method = TakeUpTo(&line, ' ');
    const std::string_view target = PathOfTarget(TakeUpTo(&line, ' '));
    if (!IsToken(method) || std::any_of(target.begin(), target.end(),
                                        [](char c) { return IsControl(c) || c == '\t'; })) {
        return kBadRequest;
    }
    const int status = ParseVersion(line, request);
    if (status != kOk) {
        return status;
    }
    request->isHead = method == "HEAD";
    if (!request->isHead && method != "GET") {
        return kNotAllowed;
    }
    request->target = target;
    return !target.empty() && target.front() == '/' ? kOk : kBadRequest;
}

void NoteConnection(std::string_view value, Fields* fields) {
    while (!value.empty()) {
        const std::string_view option = Trim(TakeUpTo(&value, ','));
        fields->saysClose = fields->saysClose || IsSame(option, "close");
        fields->saysKeepAlive = fields->saysKeepAlive || IsSame(option, "keep-alive");
    }
}

bool ParseField(std::string_view line, Fields* fields) {
    if (std::any_of(line.begin(), line.end(), IsControl) ||
        line.find(':') == std::string_view::npos) {
        return false;
    }
    const std::string_view name = TakeUpTo(&line, ':');
    const std::string_view value = Trim(line);
    if (IsSame(name, "host")) {
        ++fields->hosts;
    } else if (IsSame(name, "connection")) {
        NoteConnection(value, fields);
    } else if (IsSame(name, "transfer-encoding")) {
        fields->hasBody = true;
    } else if (IsSame(name, "content-length")) {
        fields->hasBody = fields->hasBody || value != "0";
    }
    return IsToken(name);
}

bool ParseFields(std::string_view text, Fields* fields) {
    for (std::string_view line = TakeLine(&text); !line.empty(); line = TakeLine(&text)) {
        if (!ParseField(line, fields)) {
            return false;
        }
    }
    return true;
}

}  // namespace

void ParseHead(std::string_view head, HttpRequest* request) {
    Fields fields;
    request->status = ParseRequestLine(TakeLine(&head), request);
    if (request->status != kOk) {
        return;
    }
    // A body would be taken for the next request, and a GET has no use for one.
    if (!ParseFields(head, &fields) || fields.hosts > 1 ||
        (fields.hosts == 0 && !request->isOldVersion) || fields.hasBody) {
        request->status = kBadRequest;
        return;
    }
    request->keepsConnection =
        !fields.saysClose && (!request->isOldVersion || fields.saysKeepAlive);
}

}  // namespace file_http
