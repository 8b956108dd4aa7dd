// Decodes any bytes as Base64, beside a decoder that goes bit by bit; what comes out is encoded and
// decoded again.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "kpl/net/Base64.h"

namespace {

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// What a character stands for, or -1.
int Value(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

std::string DecodedBitByBit(const std::string& text) {
    std::string data;
    unsigned int byte = 0;
    int bits = 0;
    for (const char c : text) {
        const int value = Value(c);
        if (value < 0) {
            break;
        }
        for (int bit = 5; bit >= 0; --bit) {
            byte = (byte << 1 | (static_cast<unsigned int>(value) >> bit & 1U)) & 0xffU;
            if (++bits % 8 == 0) {
                data.push_back(static_cast<char>(byte));
            }
        }
    }
    return data;
}

std::string Encoded(const std::string& data) {
    return base64_encode(reinterpret_cast<const unsigned char*>(data.data()),
                         static_cast<unsigned int>(data.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    const std::string decoded = base64_decode(text);
    Require(decoded == DecodedBitByBit(text));
    const std::string encoded = Encoded(decoded);
    Require(encoded.size() == (decoded.size() + 2) / 3 * 4);
    Require(base64_decode(encoded) == decoded);
    Require(base64_decode(Encoded(text)) == text);
    return 0;
}
