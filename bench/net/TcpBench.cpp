// Requests per second of an echo protocol on the library's TCP server, beside an epoll loop that
// does nothing but echo.
//
//   tcp_bench [rounds]
//
// Both servers are processes of their own and take turns within every round, so that whatever
// disturbs the machine disturbs both; the medians over the rounds are compared.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "bench/net/EchoClient.h"
#include "bench/net/EpollServer.h"
#include "bench/net/FrameServer.h"
#include "bench/support/Machine.h"

namespace {

using kpl::bench::EchoClient;

constexpr double kTurnSeconds = 0.5;
constexpr double kWarmUpSeconds = 0.1;

// A port for the epoll server, on the loopback address.
int Listen(int* port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener, 128) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        perror("listen");
        exit(1);
    }
    *port = ntohs(address.sin_port);
    return listener;
}

// A server in a process of its own, which ends when this object does.
class Server {
public:
    // `serve` writes its port to the first descriptor, and returns once the second one can be read.
    // Before any thread exists.
    explicit Server(void (*serve)(int said, int end)) {
        int says[2];
        if (pipe(says) != 0 || pipe(m_end) != 0) {
            abort();
        }
        m_child = fork();
        if (m_child == 0) {
            close(m_end[1]);
            serve(says[1], m_end[0]);
            _exit(0);
        }
        close(says[1]);
        close(m_end[0]);
        if (read(says[0], &m_port, sizeof(m_port)) != sizeof(m_port)) {
            fputs("a server does not start\n", stderr);
            exit(1);
        }
        close(says[0]);
    }
    ~Server() {
        close(m_end[1]);
        waitpid(m_child, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int Port() const { return m_port; }

private:
    int m_end[2];
    pid_t m_child;
    int m_port = 0;
};

void RunEpollServer(int said, int end) {
    int port = 0;
    const int listener = Listen(&port);
    (void)!write(said, &port, sizeof(port));
    kpl::bench::ServeWithEpoll(listener, end);
}

void RunFrameServer(int said, int end) {
    kpl::bench::FrameServer server;
    const int port = server.StartServer() ? server.GetListeningPort() : 0;
    (void)!write(said, &port, sizeof(port));
    char byte = 0;
    (void)!read(end, &byte, 1);
    server.StopServer();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double TakeTurn(const Server& server, int connections) {
    EchoClient client(server.Port(), connections);
    client.Run(kWarmUpSeconds);
    return client.Run(kTurnSeconds);
}

void Compare(const Server& epoll, const Server& frame, int connections, int rounds) {
    std::vector<double> epollRates;
    std::vector<double> frameRates;
    for (int round = 0; round < rounds; ++round) {
        epollRates.push_back(TakeTurn(epoll, connections));
        frameRates.push_back(TakeTurn(frame, connections));
    }
    const double base = Median(epollRates);
    printf("%12d %12.0f %12.0f %9.2f x\n", connections, base, Median(frameRates),
           Median(frameRates) / base);
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 5;
    if (rounds < 1) {
        fprintf(stderr, "usage: tcp_bench [rounds]\n");
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    kpl::bench::PrintMachine();
    const Server epoll(RunEpollServer);
    const Server frame(RunFrameServer);
    printf("\nrequests/s of 32 bytes there and back, median of %d rounds\n", rounds);
    printf("%12s %12s %12s\n", "connections", "epoll", "library");
    for (const int connections : {1, 32, 256}) {
        Compare(epoll, frame, connections, rounds);
    }
    return 0;
}
