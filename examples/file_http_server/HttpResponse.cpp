#include "HttpResponse.h"

#include <time.h>

namespace file_http {

namespace {

// "Sun, 06 Nov 1994 08:49:37 GMT".
std::string Date() {
    static const char kDays[][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char kMonths[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const time_t now = time(nullptr);
    struct tm parts {};
    gmtime_r(&now, &parts);
    char rest[32];
    strftime(rest, sizeof(rest), " %Y %H:%M:%S GMT", &parts);
    char day[4];
    strftime(day, sizeof(day), "%d", &parts);
    return std::string(kDays[parts.tm_wday]) + ", " + day + " " + kMonths[parts.tm_mon] + rest;
}

}  // namespace

const char* ReasonOf(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 400:
            return "Bad Request";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 414:
            return "URI Too Long";
        case 431:
            return "Request Header Fields Too Large";
        case 505:
            return "HTTP Version Not Supported";
        default:
            return "Internal Server Error";
    }
}

std::string HeadOf(int status, const char* type, long long length, bool keepsConnection,
                   const std::string& fields) {
    std::string head = "HTTP/1.1 " + std::to_string(status) + " " + ReasonOf(status) + "\r\n";
    head += "Date: " + Date() + "\r\n";
    head += std::string("Content-Type: ") + type + "\r\n";
    head += "Content-Length: " + std::to_string(length) + "\r\n";
    head += status == 405 ? "Allow: GET, HEAD\r\n" : "";
    head += keepsConnection ? "Connection: keep-alive\r\n" : "Connection: close\r\n";
    return head + fields + "\r\n";
}

}  // namespace file_http
