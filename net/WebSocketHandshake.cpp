#include "kpl/net/WebSocketHandshake.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "kpl/net/Md5.h"
#include "net/ByteOrder.h"

namespace {

constexpr size_t kAnswerSize = 16;
constexpr size_t kBodySize = 8;

// Positions in a key have 8 bits: its walk ends there, where they would begin again.
constexpr int kKeyLimit = 256;
constexpr int kMaxDigits = 14;

}  // namespace

unsigned int doStuffToObtainAnInt32(const char* key) {
    uint64_t number = 0;
    int digits = 0;
    unsigned int spaces = 0;
    for (int i = 0; i < kKeyLimit && key[i] != '\0'; ++i) {
        const char c = key[i];
        if (c >= '0' && c <= '9' && digits < kMaxDigits) {
            number = number * 10 + static_cast<uint64_t>(c - '0');
            ++digits;
        } else if (c == ' ') {
            ++spaces;
        }
    }
    if (spaces == 0) {
        return 0;
    }
    return static_cast<unsigned int>(std::min<uint64_t>(number, UINT32_MAX)) / spaces;
}

int md5_getWebSocketHandshakeAnswer(const char* key1, const char* key2, const char* key3,
                                    char* answer, unsigned int answerSize) {
    if (key1 == nullptr || key2 == nullptr || key3 == nullptr || answer == nullptr ||
        answerSize < kAnswerSize) {
        return -1;
    }
    unsigned char challenge[16];
    kpl::net::StoreBig(challenge, doStuffToObtainAnInt32(key1));
    kpl::net::StoreBig(challenge + 4, doStuffToObtainAnInt32(key2));
    memcpy(challenge + 8, key3, kBodySize);
    unsigned char hash[kAnswerSize];
    md5(hash, challenge, sizeof(challenge) * 8);
    memcpy(answer, hash, kAnswerSize);
    return static_cast<int>(kAnswerSize);
}
