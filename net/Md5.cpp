#include "kpl/net/Md5.h"

#include <stddef.h>
#include <string.h>

#include "net/ByteOrder.h"

// A definition that the compiler may compute with: the steps below take their constants from it as
// immediate operands.
constexpr uint32_t md5_T[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

namespace {

constexpr size_t kBlockSize = 64;
constexpr unsigned int kBlockBits = 512;
constexpr size_t kLengthSize = 8;

// For each round: the rotations of four steps, and which word of the block step i takes.
constexpr int kRotation[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
constexpr int kWordFactor[4] = {1, 5, 3, 7};
constexpr int kWordOffset[4] = {0, 1, 5, 0};

// The sum of what the newest value, b, is not needed for. It is the last to come, so it is added
// last; a compiler that adds in another order (clang) makes every step wait longer.
[[gnu::always_inline]] inline uint32_t Before(uint32_t sum) {
    asm("" : "+r"(sum));
    return sum;
}

// The round's function of b, c and d, added to `sum`.
template <int kRound>
[[gnu::always_inline]] inline uint32_t AddFunction(uint32_t sum, uint32_t b, uint32_t c,
                                                   uint32_t d) {
    if constexpr (kRound == 0) {
        return Before(sum) + (((c ^ d) & b) ^ d);
    } else if constexpr (kRound == 1) {
        return Before(sum + (c & ~d)) + (b & d);  // no bit is in both: the sum is the union
    } else if constexpr (kRound == 2) {
        return Before(sum) + ((c ^ d) ^ b);
    } else {
        return Before(sum) + ((~d | b) ^ c);
    }
}

template <int kStep>
[[gnu::always_inline]] inline void Step(uint32_t* a, uint32_t b, uint32_t c, uint32_t d,
                                        const unsigned char* block) {
    constexpr int kRound = kStep / 16;
    constexpr size_t kWord = (kStep * kWordFactor[kRound] + kWordOffset[kRound]) % 16;
    constexpr int kShift = kRotation[kRound][kStep % 4];
    constexpr uint32_t kConstant = md5_T[kStep];
    const uint32_t sum =
        AddFunction<kRound>(*a + kConstant + kpl::net::LoadLittle(block + 4 * kWord), b, c, d);
    *a = b + (sum << kShift | sum >> (32 - kShift));
}

template <int kFirst>
[[gnu::always_inline]] inline void StepsFrom(uint32_t* h, const unsigned char* block) {
    if constexpr (kFirst < 64) {
        Step<kFirst>(&h[0], h[1], h[2], h[3], block);
        Step<kFirst + 1>(&h[3], h[0], h[1], h[2], block);
        Step<kFirst + 2>(&h[2], h[3], h[0], h[1], block);
        Step<kFirst + 3>(&h[1], h[2], h[3], h[0], block);
        StepsFrom<kFirst + 4>(h, block);
    }
}

// Any number of whole blocks.
void ProcessBlocks(md5_ctx_st* ctx, const unsigned char* data, size_t count) {
    uint32_t h[4] = {ctx->h[0], ctx->h[1], ctx->h[2], ctx->h[3]};
    for (size_t i = 0; i < count; ++i) {
        const uint32_t before[4] = {h[0], h[1], h[2], h[3]};
        StepsFrom<0>(h, data + i * kBlockSize);
        for (int word = 0; word < 4; ++word) {
            h[word] += before[word];
        }
    }
    memcpy(ctx->h, h, sizeof(h));
    ctx->blocks += static_cast<uint32_t>(count);
}

// The last `bits` bits, fewer than a block of them, a 1, zeros, and the total length.
void ProcessEnd(md5_ctx_st* ctx, const unsigned char* data, unsigned int bits) {
    const uint64_t total = uint64_t{ctx->blocks} * kBlockBits + bits;
    const size_t whole = bits / 8;
    const unsigned int mark = 0x80U >> (bits % 8);
    unsigned char end[2 * kBlockSize] = {};
    if (bits != 0) {
        memcpy(end, data, (bits + 7) / 8);
    }
    end[whole] = static_cast<unsigned char>((end[whole] & ~(mark - 1)) | mark);
    const size_t blocks = whole + 1 + kLengthSize > kBlockSize ? 2 : 1;
    unsigned char* const length = end + blocks * kBlockSize - kLengthSize;
    kpl::net::StoreLittle(length, static_cast<uint32_t>(total));
    kpl::net::StoreLittle(length + 4, static_cast<uint32_t>(total >> 32));
    ProcessBlocks(ctx, end, blocks);
}

void ProcessLast(md5_ctx_st* ctx, const void* data, unsigned int lengthInBits) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    const size_t blocks = lengthInBits / kBlockBits;
    ProcessBlocks(ctx, bytes, blocks);
    ProcessEnd(ctx, bytes + blocks * kBlockSize, lengthInBits % kBlockBits);
}

}  // namespace

void md5_init(md5_ctx_st* ctx) {
    *ctx = {{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, 0};
}

void md5_nextBlock(md5_ctx_st* ctx, const void* block) {
    ProcessBlocks(ctx, static_cast<const unsigned char*>(block), 1);
}

void md5_lastBlock(md5_ctx_st* ctx, const void* data, unsigned short lengthInBits) {
    ProcessLast(ctx, data, lengthInBits);
}

void md5_ctx2hash(unsigned char* hash, const md5_ctx_st* ctx) {
    for (size_t i = 0; i < 4; ++i) {
        kpl::net::StoreLittle(hash + 4 * i, ctx->h[i]);
    }
}

void md5(unsigned char* hash, const void* data, unsigned int lengthInBits) {
    md5_ctx_st ctx;
    md5_init(&ctx);
    ProcessLast(&ctx, data, lengthInBits);
    md5_ctx2hash(hash, &ctx);
}
