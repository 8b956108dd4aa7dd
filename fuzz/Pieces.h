// Cuts a stream into pieces: mostly small ones, some large.
#ifndef KPL_FUZZ_PIECES_H_
#define KPL_FUZZ_PIECES_H_

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <string_view>

namespace kpl::fuzz {

class Pieces {
public:
    Pieces(std::string_view bytes, uint32_t seed) : m_bytes(bytes), m_seed(seed) {}

    bool IsEmpty() const { return m_bytes.empty(); }

    // At most `limit` bytes.
    std::string_view Next(size_t limit) {
        m_seed = m_seed * 1103515245 + 12345;
        const uint32_t largest = 1U << (m_seed >> 28);
        const size_t size = std::min({m_bytes.size(), limit, size_t{1 + (m_seed >> 8) % largest}});
        const std::string_view piece = m_bytes.substr(0, size);
        m_bytes.remove_prefix(size);
        return piece;
    }

private:
    std::string_view m_bytes;
    uint32_t m_seed;
};

}  // namespace kpl::fuzz

#endif  // KPL_FUZZ_PIECES_H_
