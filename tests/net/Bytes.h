// Bytes for the codecs' tests.
#ifndef KPL_TESTS_NET_BYTES_H_
#define KPL_TESTS_NET_BYTES_H_

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace kpl::test {

using Bytes = std::vector<unsigned char>;

inline Bytes ToBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

inline std::string Hex(const unsigned char* data, size_t length) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < length; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 15];
    }
    return text;
}

inline std::string Hex(const Bytes& bytes) {
    return Hex(bytes.data(), bytes.size());
}

// The same `length` bytes in every run, without a pattern.
inline Bytes SomeBytes(size_t length) {
    Bytes bytes(length);
    uint32_t seed = 1;
    for (unsigned char& byte : bytes) {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<unsigned char>(seed >> 24);
    }
    return bytes;
}

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_BYTES_H_
