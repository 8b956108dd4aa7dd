#include "Opening.h"

#include <stdint.h>

#include "kpl/net/WebSocketHandshake.h"

namespace handshake {

namespace {

uint32_t Between(uint32_t first, uint32_t last, std::mt19937* random) {
    return std::uniform_int_distribution<uint32_t>(first, last)(*random);
}

// A printable character that is neither a digit nor a space.
char Noise(std::mt19937* random) {
    const uint32_t c = Between('!', '~' - 10, random);
    return static_cast<char>(c < '0' ? c : c + 10);
}

void InsertInside(std::string* key, char c, std::mt19937* random) {
    key->insert(Between(1, static_cast<uint32_t>(key->size()) - 1, random), 1, c);
}

std::string MakeBody(std::mt19937* random) {
    std::string body;
    for (int i = 0; i < 8; ++i) {
        body.push_back(static_cast<char>(Between(0, 255, random)));
    }
    return body;
}

}  // namespace

std::string MakeKey(std::mt19937* random) {
    const uint32_t spaces = Between(1, 12, random);
    std::string key = std::to_string(Between(0, UINT32_MAX / spaces, random) * spaces);
    key.insert(key.begin(), Noise(random));
    key.push_back(Noise(random));
    for (uint32_t noises = Between(0, 10, random); noises > 0; --noises) {
        InsertInside(&key, Noise(random), random);
    }
    for (uint32_t left = spaces; left > 0; --left) {
        InsertInside(&key, ' ', random);
    }
    return key;
}

Opening MakeOpening(const std::string& host) {
    std::random_device seed;
    std::mt19937 random(seed());
    const std::string key1 = MakeKey(&random);
    const std::string key2 = MakeKey(&random);
    const std::string body = MakeBody(&random);
    char proof[16];
    md5_getWebSocketHandshakeAnswer(key1.c_str(), key2.c_str(), body.data(), proof, sizeof(proof));
    return {
        "GET /echo HTTP/1.1\r\n"
        "Host: " +
            host +
            "\r\n"
            "Connection: Upgrade\r\n"
            "Sec-WebSocket-Key2: " +
            key2 +
            "\r\n"
            "Upgrade: WebSocket\r\n"
            "Sec-WebSocket-Key1: " +
            key1 +
            "\r\n"
            "Origin: http://" +
            host +
            "\r\n"
            "\r\n" +
            body,
        std::string(proof, sizeof(proof))};
}

}  // namespace handshake
