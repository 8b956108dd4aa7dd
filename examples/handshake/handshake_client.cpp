// Opens a connection to handshake_server, sends a text and prints what comes back.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "Opening.h"
#include "kpl/net/CSocket.h"

namespace {

constexpr unsigned int kTimeoutMs = 5000;
constexpr size_t kMaxAnswer = 8192;

bool Send(kpl::net::CSocket* socket, const std::string& bytes) {
    const auto length = static_cast<unsigned int>(bytes.size());
    return socket->Write(bytes.data(), length, 0) == static_cast<int>(length);
}

// Reads up to `end`, which is part of the result; empty if it does not come.
std::string ReadTo(kpl::net::CSocket* socket, const std::string& end) {
    std::string bytes;
    while (bytes.size() < end.size() ||
           bytes.compare(bytes.size() - end.size(), end.size(), end) != 0) {
        char c = 0;
        if (bytes.size() == kMaxAnswer || !socket->IsDataAvailable(kTimeoutMs) ||
            socket->Read(&c, 1, 0) != 1) {
            return "";
        }
        bytes.push_back(c);
    }
    return bytes;
}

int Fail(const char* why) {
    fprintf(stderr, "handshake_client: %s\n", why);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fputs("usage: handshake_client PORT TEXT\n", stderr);
        return 2;
    }
    kpl::net::CSocket socket;
    if (!socket.Connect("127.0.0.1", atoi(argv[1]))) {
        return Fail("there is no server");
    }
    const handshake::Opening opening = handshake::MakeOpening(std::string("127.0.0.1:") + argv[1]);
    if (!Send(&socket, opening.request) || ReadTo(&socket, "\r\n\r\n").empty() ||
        ReadTo(&socket, opening.proof).size() != opening.proof.size()) {
        return Fail("the handshake failed");
    }
    puts("handshake_client: the handshake is answered");
    const std::string text = std::string(1, '\0') + argv[2] + '\xff';
    if (!Send(&socket, text) || ReadTo(&socket, "\xff") != text) {
        return Fail("the text does not come back");
    }
    printf("handshake_client: %s\n", argv[2]);
}
