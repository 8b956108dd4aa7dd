#include "net/Sha1Blocks.h"

#include <string.h>

#include "net/ByteOrder.h"

namespace kpl::net {

namespace {

constexpr size_t kBlockSize = 64;
constexpr uint32_t kConstants[4] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};

[[gnu::always_inline]] inline uint32_t RotateLeft(uint32_t word, int bits) {
    return word << bits | word >> (32 - bits);
}

// The step's function of b, c and d, added to `sum`. No bit is in both parts of the majority: their
// sum is their union, and the parts are added as they come.
template <int kRound>
[[gnu::always_inline]] inline uint32_t AddFunction(uint32_t sum, uint32_t b, uint32_t c,
                                                   uint32_t d) {
    if constexpr (kRound == 0) {
        return sum + (((c ^ d) & b) ^ d);
    } else if constexpr (kRound == 2) {
        return sum + (c & d) + ((c ^ d) & b);
    } else {
        return sum + (b ^ c ^ d);
    }
}

// The step's word: from the block at first, then from four of the last 16.
template <int kStep>
[[gnu::always_inline]] inline uint32_t NextWord(uint32_t* last, const unsigned char* block) {
    uint32_t& word = last[kStep % 16];
    if constexpr (kStep < 16) {
        word = LoadBig(block + size_t{4} * kStep);
    } else {
        word = RotateLeft(
            last[(kStep + 13) % 16] ^ last[(kStep + 8) % 16] ^ last[(kStep + 2) % 16] ^ word, 1);
    }
    return word;
}

template <int kStep>
[[gnu::always_inline]] inline void Step(uint32_t a, uint32_t* b, uint32_t c, uint32_t d,
                                        uint32_t* e, uint32_t* last, const unsigned char* block) {
    constexpr int kRound = kStep / 20;
    *e += kConstants[kRound] + NextWord<kStep>(last, block);
    *e = AddFunction<kRound>(*e, *b, c, d) + RotateLeft(a, 5);
    *b = RotateLeft(*b, 30);
}

template <int kFirst>
[[gnu::always_inline]] inline void StepsFrom(uint32_t* h, uint32_t* last,
                                             const unsigned char* block) {
    if constexpr (kFirst < 80) {
        Step<kFirst>(h[0], &h[1], h[2], h[3], &h[4], last, block);
        Step<kFirst + 1>(h[4], &h[0], h[1], h[2], &h[3], last, block);
        Step<kFirst + 2>(h[3], &h[4], h[0], h[1], &h[2], last, block);
        Step<kFirst + 3>(h[2], &h[3], h[4], h[0], &h[1], last, block);
        Step<kFirst + 4>(h[1], &h[2], h[3], h[4], &h[0], last, block);
        StepsFrom<kFirst + 5>(h, last, block);
    }
}

}  // namespace

void Sha1BlocksPortable(uint32_t* digest, const unsigned char* data, size_t count) {
    uint32_t h[5] = {digest[0], digest[1], digest[2], digest[3], digest[4]};
    uint32_t last[16];
    for (size_t i = 0; i < count; ++i) {
        const uint32_t before[5] = {h[0], h[1], h[2], h[3], h[4]};
        StepsFrom<0>(h, last, data + i * kBlockSize);
        for (int word = 0; word < 5; ++word) {
            h[word] += before[word];
        }
    }
    memcpy(digest, h, sizeof(h));
}

}  // namespace kpl::net
