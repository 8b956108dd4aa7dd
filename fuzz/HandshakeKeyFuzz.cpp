// Reads any bytes as a key of the early WebSocket handshake, beside the same walk in its published
// steps; then answers a handshake of that key.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>

#include "kpl/net/WebSocketHandshake.h"

namespace {

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// Counters of eight bits, a buffer of 15 for the digits. The walk ends when the position begins
// again.
unsigned int NumberInSteps(const char* key) {
    char digits[15] = {};
    size_t digitCount = 0;
    uint8_t spaces = 0;
    uint8_t at = 0;
    if (key[0] == '\0') {
        return 0;
    }
    do {
        if (key[at] >= '0' && key[at] <= '9' && digitCount < sizeof(digits) - 1) {
            digits[digitCount++] = key[at];
        }
        if (key[at] == ' ') {
            ++spaces;
        }
        ++at;
    } while (at != 0 && key[at] != '\0');
    const unsigned long long number = std::min(strtoull(digits, nullptr, 10), 4294967295ULL);
    return spaces == 0 ? 0 : static_cast<unsigned int>(number / spaces);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Ends at its first NUL, and its memory just behind that.
    const auto length = static_cast<size_t>(std::find(data, data + size, 0) - data);
    const std::unique_ptr<char[]> key(new char[length + 1]);
    std::copy_n(data, length, key.get());
    key[length] = '\0';
    Require(doStuffToObtainAnInt32(key.get()) == NumberInSteps(key.get()));
    char answer[17] = "................";
    Require(md5_getWebSocketHandshakeAnswer(key.get(), key.get(), "8 bytes.", answer, 16) == 16);
    Require(answer[16] == '\0');
    return 0;
}
