#include "kpl/net/Sha1.h"

#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "net/ByteOrder.h"
#include "net/Sha1Blocks.h"

namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kLengthSize = 8;
// Asked for once: to look at what the processor can do takes longer than a block.
void ProcessBlocks(uint32_t* digest, const unsigned char* data, size_t count) {
    static const kpl::net::Sha1Blocks instructions = kpl::net::Sha1BlocksByInstructions();
    (instructions != nullptr ? instructions : kpl::net::Sha1BlocksPortable)(digest, data, count);
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
