#include "kpl/net/Rc4.h"

#include <stdint.h>

#include <utility>

#include "net/ByteOrder.h"

namespace {

// The key stream, with both indices out of the way of the stores to the permutation.
class KeyStream {
public:
    explicit KeyStream(rc4_state* state)
        : m_state(state), m_s(state->state), m_x(state->x), m_y(state->y) {}
    ~KeyStream() {
        m_state->x = static_cast<unsigned char>(m_x);
        m_state->y = static_cast<unsigned char>(m_y);
    }
    KeyStream(const KeyStream&) = delete;
    KeyStream& operator=(const KeyStream&) = delete;

    uint32_t Next() {
        m_x = (m_x + 1) & 0xff;
        const uint32_t a = m_s[m_x];
        m_y = (m_y + a) & 0xff;
        const uint32_t b = m_s[m_y];
        m_s[m_x] = static_cast<unsigned char>(b);
        m_s[m_y] = static_cast<unsigned char>(a);
        return m_s[(a + b) & 0xff];
    }

    // Four bytes, the first one lowest.
    uint32_t NextWord() {
        const uint32_t first = Next();
        const uint32_t second = Next();
        const uint32_t third = Next();
        return first | second << 8 | third << 16 | Next() << 24;
    }

private:
    rc4_state* const m_state;
    unsigned char* const m_s;
    uint32_t m_x;
    uint32_t m_y;
};

}  // namespace

void rc4_init(rc4_state* state, unsigned char* key, int keyLength) {
    unsigned char* const s = state->state;
    for (int i = 0; i < 256; ++i) {
        s[i] = static_cast<unsigned char>(i);
    }
    state->x = 0;
    state->y = 0;
    if (keyLength < 1) {
        return;
    }
    unsigned char y = 0;
    for (int i = 0, k = 0; i < 256; ++i, k = k + 1 < keyLength ? k + 1 : 0) {
        y = static_cast<unsigned char>(y + s[i] + key[k]);
        std::swap(s[i], s[y]);
    }
}

void rc4_crypt(rc4_state* state, const unsigned char* in, unsigned char* out, int length) {
    KeyStream stream(state);
    // Four bytes at a time: a store to `out` less for each of them, and stores are what RC4 waits
    // for.
    for (; length >= 4; length -= 4, in += 4, out += 4) {
        kpl::net::StoreLittle(out, kpl::net::LoadLittle(in) ^ stream.NextWord());
    }
    for (; length > 0; --length, ++in, ++out) {
        *out = static_cast<unsigned char>(*in ^ stream.Next());
    }
}

void rc4_decrypt(rc4_state* state, const unsigned char* in, unsigned char* out, int length) {
    rc4_crypt(state, in, out, length);
}
