#include "kpl/net/Address.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kpl::net {

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr size_t kMaxInterfaces = 50;

in_addr AddressOf(const sockaddr& address) {
    sockaddr_in v4{};
    memcpy(&v4, &address, sizeof(v4));
    return v4.sin_addr;
}

// Not inet_ntoa: its text is one for all threads in some C libraries.
std::string TextOf(const in_addr& address) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}

// The first interface's address that is not loopback; else the last one seen.
bool FirstAddress(int fd, std::string& ip) {
    ifreq records[kMaxInterfaces];
    ifconf list{};
    list.ifc_len = sizeof(records);
    list.ifc_req = records;
    if (ioctl(fd, SIOCGIFCONF, &list) < 0) {
        perror("ioctl");
        return false;
    }
    const size_t count = static_cast<size_t>(list.ifc_len) / sizeof(ifreq);
    for (size_t i = 0; i < count; ++i) {
        const in_addr address = AddressOf(records[i].ifr_addr);
        char text[INET_ADDRSTRLEN] = {};
        if (inet_ntop(AF_INET, &address, text, sizeof(text)) == nullptr) {
            perror("inet_ntop");
            return false;
        }
        ip = text;
        if (ip != kLoopback) {
            break;
        }
    }
    return true;
}

}  // namespace

bool GetIpByName(const char* host, const char* service, std::string& ip) {
    // First, because `ip` may be the string of the host.
    const std::string hostName(host != nullptr ? host : "");
    ip.clear();
    if (hostName.empty() || service == nullptr || service[0] == '\0') {
        return false;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* results = nullptr;
    if (getaddrinfo(hostName.c_str(), service, &hints, &results) != 0) {
        return false;
    }
    for (const addrinfo* result = results; result != nullptr; result = result->ai_next) {
        if (result->ai_addr == nullptr) {
            continue;
        }
        ip = TextOf(AddressOf(*result->ai_addr));
        if (ip != kLoopback) {
            break;
        }
        ip.clear();
    }
    freeaddrinfo(results);
    return !ip.empty();
}

bool GetIpByName(const std::string& host, std::string& ip) {
    // First, because `ip` may be the same string.
    const hostent* entry = host.empty() ? nullptr : gethostbyname(host.c_str());
    ip.clear();
    if (entry == nullptr) {
        return false;
    }
    for (char** address = entry->h_addr_list; *address != nullptr; ++address) {
        in_addr v4{};
        memcpy(&v4, *address, sizeof(v4));
        ip = TextOf(v4);
        if (ip != kLoopback) {
            return true;
        }
    }
    ip.clear();
    return false;
}

bool GetLocalIP(std::string& ip) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        perror("socket");
        return false;
    }
    const bool found = FirstAddress(fd, ip);
    close(fd);
    return found;
}

}  // namespace kpl::net
