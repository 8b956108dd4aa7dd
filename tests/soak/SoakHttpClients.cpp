// Twenty clients of an HTTP server on this machine that stall: with half a request, with an answer
// that they do not read, with bytes that are none. They vanish after a while, and others come,
// until the time is over:
//
//   soak_http_clients SECONDS SEED PORT
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t kClients = 20;

// What a client sends before it stalls.
const std::vector<std::string> kBeginnings = {
    "",
    "GET /sm",
    "GET /small.txt HTTP/1.1\r\nHost: here\r\n",
    "GET /large.bin HTTP/1.1\r\nHost: here\r\n\r\n",
    "GET /small.txt HTTP/1.1\r\nHost: here\r\n\r\nGET /large.bin HTTP/1.1\r\nHost: h\r\n\r\n",
    "\x16\x03\x01 is no request\r\n\r\n",
};

struct Client {
    int socket = -1;
    Clock::time_point end;
};

// A socket that is -1 where there is no connection to be had.
int Connect(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int connected = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(connected, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(connected);
        return -1;
    }
    return connected;
}

// Half of them end their connection as a crash does, with a reset.
void Leave(int client, bool byReset) {
    const linger atOnce{1, 0};
    if (byReset) {
        (void)setsockopt(client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    }
    close(client);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fputs("usage: soak_http_clients SECONDS SEED PORT\n", stderr);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    const auto end = Clock::now() + std::chrono::seconds(atoi(argv[1]));
    std::mt19937 dice(static_cast<unsigned int>(strtoul(argv[2], nullptr, 10)));
    std::vector<Client> clients(kClients);
    int count = 0;
    int refused = 0;
    while (Clock::now() < end) {
        for (Client& client : clients) {
            if (client.socket != -1 && Clock::now() < client.end) {
                continue;
            }
            if (client.socket != -1) {
                Leave(client.socket, dice() % 2 == 0);
            }
            client.socket = Connect(atoi(argv[3]));
            client.end = Clock::now() + milliseconds(dice() % 6000);
            const std::string& bytes = kBeginnings[dice() % kBeginnings.size()];
            const ssize_t sent = send(client.socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            (sent < 0 ? refused : count) += 1;
        }
        std::this_thread::sleep_for(milliseconds(20));  // allow-sleep: the load
    }
    printf("soak_http_clients: %d stalled, %d found nobody\n", count, refused);
    return 0;
}
