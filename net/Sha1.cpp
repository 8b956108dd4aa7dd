#include "kpl/net/Sha1.h"

#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "net/ByteOrder.h"

namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kLengthSize = 8;
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
        word = kpl::net::LoadBig(block + size_t{4} * kStep);
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

void ProcessBlocks(uint32_t* digest, const unsigned char* data, size_t count) {
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

// False if the message would be longer than its length can say.
bool AddLength(SHA1Context* ctx, unsigned int bytes) {
    const uint64_t length = uint64_t{ctx->lengthHigh} << 32 | ctx->lengthLow;
    const uint64_t more = uint64_t{bytes} * 8;
    if (length > UINT64_MAX - more) {
        return false;
    }
    ctx->lengthLow = static_cast<uint32_t>(length + more);
    ctx->lengthHigh = static_cast<uint32_t>((length + more) >> 32);
    return true;
}

// Fills the block that was begun, and hashes it when it is full. Returns how many bytes it took.
size_t FillBlock(SHA1Context* ctx, const unsigned char* data, size_t length) {
    const auto index = static_cast<size_t>(ctx->index);
    const size_t count = std::min(kBlockSize - index, length);
    memcpy(ctx->block + index, data, count);
    ctx->index += static_cast<int>(count);
    if (index + count == kBlockSize) {
        SHA1ProcessMessageBlock(ctx);
    }
    return count;
}

}  // namespace

void SHA1Reset(SHA1Context* ctx) {
    *ctx = {};
    const uint32_t first[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
    memcpy(ctx->digest, first, sizeof(first));
}

void SHA1Input(SHA1Context* ctx, const unsigned char* data, unsigned int length) {
    if (length == 0) {
        return;
    }
    if (ctx->computed != 0 || ctx->corrupted != 0 || !AddLength(ctx, length)) {
        ctx->corrupted = 1;
        return;
    }
    const unsigned char* const end = data + length;
    if (ctx->index != 0) {
        data += FillBlock(ctx, data, length);
    }
    const size_t blocks = static_cast<size_t>(end - data) / kBlockSize;
    ProcessBlocks(ctx->digest, data, blocks);
    data += blocks * kBlockSize;
    if (data != end) {
        FillBlock(ctx, data, static_cast<size_t>(end - data));
    }
}

int SHA1Result(SHA1Context* ctx) {
    if (ctx->corrupted != 0) {
        return 0;
    }
    if (ctx->computed == 0) {
        SHA1PadMessage(ctx);
        ctx->computed = 1;
    }
    return 1;
}

void SHA1PadMessage(SHA1Context* ctx) {
    auto index = static_cast<size_t>(ctx->index);
    ctx->block[index++] = 0x80;
    if (index > kBlockSize - kLengthSize) {
        memset(ctx->block + index, 0, kBlockSize - index);
        SHA1ProcessMessageBlock(ctx);
        index = 0;
    }
    memset(ctx->block + index, 0, kBlockSize - kLengthSize - index);
    kpl::net::StoreBig(ctx->block + kBlockSize - 8, ctx->lengthHigh);
    kpl::net::StoreBig(ctx->block + kBlockSize - 4, ctx->lengthLow);
    SHA1ProcessMessageBlock(ctx);
}

void SHA1ProcessMessageBlock(SHA1Context* ctx) {
    ProcessBlocks(ctx->digest, ctx->block, 1);
    ctx->index = 0;
}
