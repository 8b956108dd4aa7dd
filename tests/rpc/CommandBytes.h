// Bytes of commands, for tests that compare or damage them.
#ifndef KPL_TESTS_RPC_COMMANDBYTES_H_
#define KPL_TESTS_RPC_COMMANDBYTES_H_

#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "kpl/rpc/RpcCommandMuxer.h"

namespace kpl::test {

// 32-bit words as they travel on the little-endian machines that we test on.
inline std::string Words(std::initializer_list<uint32_t> words) {
    std::string bytes;
    for (const uint32_t word : words) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<char>(word >> shift & 0xFF));
        }
    }
    return bytes;
}

// One parameter: code, length and value.
inline std::string Param(uint32_t code, const std::string& value) {
    return Words({code, static_cast<uint32_t>(value.size())}) + value;
}

// A string value with its terminator.
inline std::string Text(const char* text) {
    return std::string(text, strlen(text) + 1);
}

// A whole command around parameters that are there already.
inline std::string Command(uint32_t type, uint32_t id, uint32_t count, const std::string& params) {
    return Words({type, id, static_cast<uint32_t>(params.size()) + 16, count}) + params;
}

inline void SetWord(std::string* bytes, size_t offset, uint32_t word) {
    bytes->replace(offset, 4, Words({word}));
}

// What the muxer finished last.
inline std::string Finished(const rpc::RpcCommandMuxer& muxer) {
    return std::string(muxer.GetBuffer(), static_cast<size_t>(muxer.GetFinishedSize()));
}

// A heap copy of exactly as many bytes, so that the sanitizers see any access around them.
class ExactBytes {
public:
    // Not inline: a compiler that sees the size warns of writes that the checks of sizes prevent.
    __attribute__((noinline)) explicit ExactBytes(const std::string& bytes)
        : m_data(new char[bytes.size()]), m_size(static_cast<int>(bytes.size())) {
        memcpy(m_data.get(), bytes.data(), bytes.size());
    }

    char* Data() const { return m_data.get(); }
    int Size() const { return m_size; }
    std::string Str() const { return std::string(m_data.get(), static_cast<size_t>(m_size)); }

private:
    std::unique_ptr<char[]> m_data;
    int m_size;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_RPC_COMMANDBYTES_H_
