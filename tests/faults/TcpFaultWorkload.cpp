#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kpl/net/CSocket.h"
#include "tests/faults/FaultWorkloads.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/Process.h"

namespace kpl::test {

namespace {

constexpr int kLimitMs = 200;
constexpr int kFreshMs = 10000;
constexpr int kClients = 3;

// A client on plain sockets, whose own calls have no faults.
class PlainClient {
public:
    explicit PlainClient(int port) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        m_connected =
            connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    }
    ~PlainClient() { close(m_fd); }
    PlainClient(const PlainClient&) = delete;
    PlainClient& operator=(const PlainClient&) = delete;

    // Whether the answer to `request` begins with `start`.
    bool Ask(const std::string& request, const std::string& start, int limitMs) const {
        if (!m_connected || send(m_fd, request.data(), request.size(), MSG_NOSIGNAL) !=
                                static_cast<ssize_t>(request.size())) {
            return false;
        }
        std::string answer;
        pollfd descriptor{m_fd, POLLIN, 0};
        while (answer.size() < start.size() && poll(&descriptor, 1, limitMs) == 1) {
            char piece[4096];
            const ssize_t received = recv(m_fd, piece, sizeof(piece), 0);
            if (received <= 0) {
                break;
            }
            answer.append(piece, static_cast<size_t>(received));
        }
        return answer.compare(0, start.size(), start) == 0;
    }

private:
    const int m_fd;
    bool m_connected = false;
};

// Whatever comes of it.
void AskUnderFaults(int port, int turn) {
    {
        const Spared spared;
        for (int round = 0; round < 3; ++round) {
            const PlainClient client(port);
            (void)client.Ask("ping\n", ">ping\n", kLimitMs);
            (void)client.Ask("big 300000\n", "x", kLimitMs);
            (void)client.Ask(turn == 0 ? "fail\n" : "pong\nping\n", ">pong\n>ping\n", kLimitMs);
        }
    }
    net::CSocket socket;
    if (socket.Connect("127.0.0.1", port) && socket.Write("ping\n", 5, 0) == 5) {
        char answer[16];
        if (socket.IsDataAvailable(1000)) {
            (void)socket.Read(answer, sizeof(answer), 0);
        }
    }
}

bool UseFresh(int port) {
    // Whom the backlog held while nobody accepted is served first.
    const PlainClient client(port);
    return client.Ask("ping\n", ">ping\n", kFreshMs);
}

std::string ServeUnderFaults(const FaultPlan& plan, Script* script) {
    StartFaults(plan);
    LineServer server(script);
    const bool started = server.StartServer();
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients && started; ++i) {
        clients.emplace_back([&server, i] { AskUnderFaults(server.GetListeningPort(), i); });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    std::string problem;
    if (plan.seed % 2 == 0) {
        StopFaults();
        if (started && HadFatalAcceptError()) {
            // It has stopped accepting, as it is said to, and can be started again.
            server.StopServer();
            problem = server.StartServer() ? "" : "the server does not start again";
        }
        if (started && problem.empty() && !UseFresh(server.GetListeningPort())) {
            problem = "a fresh connection is not served";
        }
    }
    server.StopServer();
    StopFaults();
    return problem;
}

}  // namespace

std::string RunTcpWorkload(const FaultPlan& plan) {
    const int threads = ThreadCount();
    const int descriptors = OpenDescriptorCount();
    Script script;
    std::string problem = ServeUnderFaults(plan, &script);
    if (problem.empty() && !script.AllGone()) {
        problem = "objects of the protocol are left";
    }
    if (problem.empty() && OpenDescriptorCount() != descriptors) {
        problem = "descriptors are left: " + std::to_string(OpenDescriptorCount() - descriptors);
    }
    if (problem.empty() && !WaitUntil([&] { return ThreadCount() <= threads; })) {
        problem = "threads are left";
    }
    return problem;
}

}  // namespace kpl::test
