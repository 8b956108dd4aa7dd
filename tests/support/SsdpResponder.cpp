#include "tests/support/SsdpResponder.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace kpl::test {

SsdpResponder::SsdpResponder(const NetHost& host, std::vector<std::string> answers)
    : m_answers(std::move(answers)) {
    host.Run([this] { Open(); });
    m_thread = std::thread([this] { Serve(); });
}

SsdpResponder::~SsdpResponder() {
    m_stop = true;
    shutdown(m_fd, SHUT_RDWR);  // ends the receive
    m_thread.join();
    close(m_fd);
}

void SsdpResponder::Open() {
    m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(1900);
    ASSERT_EQ(bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ip_mreq group{};
    group.imr_multiaddr.s_addr = inet_addr("239.255.255.250");
    ASSERT_EQ(setsockopt(m_fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof(group)), 0);
    const int on = 1;
    ASSERT_EQ(setsockopt(m_fd, IPPROTO_IP, IP_RECVTTL, &on, sizeof(on)), 0);
}

bool SsdpResponder::Receive(std::string* request) {
    char bytes[2048];
    alignas(cmsghdr) char control[256];
    iovec piece{bytes, sizeof(bytes)};
    sockaddr_in searcher{};
    msghdr message{};
    message.msg_name = &searcher;
    message.msg_namelen = sizeof(searcher);
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t length = recvmsg(m_fd, &message, 0);
    if (length < 0 || m_stop) {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    for (cmsghdr* at = CMSG_FIRSTHDR(&message); at != nullptr; at = CMSG_NXTHDR(&message, at)) {
        if (at->cmsg_level == IPPROTO_IP && at->cmsg_type == IP_TTL) {
            int hops = 0;
            memcpy(&hops, CMSG_DATA(at), sizeof(hops));
            m_hops = hops;
        }
    }
    m_searcher = searcher;
    request->assign(bytes, static_cast<size_t>(length));
    return true;
}

void SsdpResponder::Serve() {
    std::string request;
    while (Receive(&request)) {
        for (const std::string& answer : m_answers) {
            Send(answer);
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(request);
    }
}

bool SsdpResponder::Send(const std::string& answer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return sendto(m_fd, answer.data(), answer.size(), 0,
                  reinterpret_cast<const sockaddr*>(&m_searcher),
                  sizeof(m_searcher)) == static_cast<ssize_t>(answer.size());
}

std::vector<std::string> SsdpResponder::Requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

int SsdpResponder::HopsOfRequest() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_hops;
}

bool SsdpResponder::WaitForRequests(size_t count) const {
    return WaitUntil([&] { return Requests().size() >= count; });
}

std::string SsdpAnswer(int number) {
    const std::string text = std::to_string(number);
    return "HTTP/1.1 200 OK\r\n"
           "CACHE-CONTROL: max-age=1800\r\n"
           "EXT:\r\n"
           "LOCATION: http://10.77.3.2:8080/" +
           text +
           ".xml\r\n"
           "SERVER: Linux/6.1 UPnP/1.0 Responder/1." +
           text +
           "\r\n"
           "ST: upnp:rootdevice\r\n"
           "USN: uuid:00000000-0000-0000-0000-" +
           text +
           "::upnp:rootdevice\r\n"
           "\r\n";
}

}  // namespace kpl::test
