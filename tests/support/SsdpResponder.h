// Answers SSDP searches with whatever a test wants.
#ifndef KPL_TESTS_SUPPORT_SSDPRESPONDER_H_
#define KPL_TESTS_SUPPORT_SSDPRESPONDER_H_

#include <netinet/in.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestNetwork.h"

namespace kpl::test {

class SsdpResponder {
public:
    // Listens on `host` from now on and sends each of `answers`, one datagram each, to whoever
    // searches.
    SsdpResponder(const NetHost& host, std::vector<std::string> answers);
    ~SsdpResponder();
    SsdpResponder(const SsdpResponder&) = delete;
    SsdpResponder& operator=(const SsdpResponder&) = delete;

    // The searches so far, byte by byte; the number of hops that the last one may make.
    std::vector<std::string> Requests() const;
    int HopsOfRequest() const;

    // Waits until that many searches were answered.
    bool WaitForRequests(size_t count) const;

    // Sends one more answer to whoever searched last.
    bool Send(const std::string& answer);

private:
    void Open();
    void Serve();
    bool Receive(std::string* request);

    const std::vector<std::string> m_answers;
    int m_fd = -1;
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_mutex;
    std::vector<std::string> m_requests;
    int m_hops = 0;
    sockaddr_in m_searcher{};
    std::thread m_thread;
};

// The answer of a device that plays by the rules; `number` tells one from another.
std::string SsdpAnswer(int number);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_SSDPRESPONDER_H_
