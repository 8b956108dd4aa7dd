// A network of two hosts that exists only for a test: nothing that they send reaches this machine's
// own interfaces.
#ifndef KPL_TESTS_SUPPORT_TESTNETWORK_H_
#define KPL_TESTS_SUPPORT_TESTNETWORK_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace kpl::test {

// A network namespace: "lo", and "eth0" at one end of the cable.
class NetHost {
public:
    // Takes over a descriptor of the namespace.
    explicit NetHost(int descriptor) : m_descriptor(descriptor) {}
    ~NetHost();
    NetHost(const NetHost&) = delete;
    NetHost& operator=(const NetHost&) = delete;

    int Descriptor() const { return m_descriptor; }

    // Runs `body` on a thread of this host and waits for it. Sockets that it opens stay with this
    // host.
    void Run(const std::function<void()>& body) const;

    // Starts a program on this host, with its output in the file `log` unless that is empty. It
    // ends at the latest with the thread that started it.
    std::unique_ptr<ChildProcess> Start(const std::vector<std::string>& command,
                                        const std::string& log) const;

    // Runs "ip ARGUMENTS" on this host; true if it succeeded.
    bool Ip(const std::string& arguments) const;

private:
    const int m_descriptor;
};

// Runs `body` in a forked child that is on the host `near`, connected with the host `far`;
// multicasts go over the cable. The addresses are like "10.77.3.1/16"; an empty one leaves that
// host without. What fails in `body` fails the test. Where the system does not let us make such a
// network, the test is skipped. Before any thread exists; the last statement of a test.
void OnTwoHosts(const std::string& nearAddress, const std::string& farAddress,
                const std::function<void(const NetHost& near, const NetHost& far)>& body,
                long timeoutMs = 60000);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_TESTNETWORK_H_
