#include "kpl/net/Md5.h"

#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <string>
#include <vector>

#include "tests/net/Bytes.h"

namespace {

using kpl::test::Bytes;
using kpl::test::Hex;
using kpl::test::SomeBytes;

std::string Result(const md5_ctx_st& ctx) {
    unsigned char hash[16];
    md5_ctx2hash(hash, &ctx);
    return Hex(hash, sizeof(hash));
}

std::string Hash(const void* data, unsigned int bits) {
    unsigned char hash[16];
    md5(hash, data, bits);
    return Hex(hash, sizeof(hash));
}

std::string Hash(const std::string& text) {
    return Hash(text.data(), static_cast<unsigned int>(text.size() * 8));
}

// The message bit by bit, padded as RFC 1321 says, then block by block.
std::string HashOfBits(const Bytes& data, uint64_t bits, const md5_ctx_st& start) {
    std::vector<bool> message;
    for (uint64_t i = 0; i < bits; ++i) {
        message.push_back((data[static_cast<size_t>(i / 8)] >> (7 - i % 8) & 1) != 0);
    }
    message.push_back(true);
    while (message.size() % 512 != 448) {
        message.push_back(false);
    }
    const uint64_t total = start.blocks * uint64_t{512} + bits;
    for (unsigned int byte = 0; byte < 8; ++byte) {
        for (unsigned int bit = 8; bit-- > 0;) {
            message.push_back((total >> (8 * byte + bit) & 1) != 0);
        }
    }
    md5_ctx_st ctx = start;
    for (size_t at = 0; at < message.size(); at += 512) {
        unsigned char block[64] = {};
        for (size_t i = 0; i < 512; ++i) {
            block[i / 8] =
                static_cast<unsigned char>(block[i / 8] << 1 | (message[at + i] ? 1 : 0));
        }
        md5_nextBlock(&ctx, block);
    }
    return Result(ctx);
}

std::string HashOfBits(const Bytes& data, uint64_t bits) {
    md5_ctx_st ctx;
    md5_init(&ctx);
    return HashOfBits(data, bits, ctx);
}

TEST(Md5Test, VectorsOfRfc1321) {
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", Hash(""));
    EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661", Hash("a"));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", Hash("abc"));
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", Hash("message digest"));
    EXPECT_EQ("c3fcd3d76192e4007dfb496cca67e13b", Hash("abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ("d174ab98d277d9f5a5611c2c9f419d9f",
              Hash("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"));
    EXPECT_EQ("57edf4a22be3c955ac49da2e2107b67a",
              Hash("1234567890123456789012345678901234567890123456789012345678901234567890"
                   "1234567890"));
}

TEST(Md5Test, TheTableHasTheSines) {
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(static_cast<uint32_t>(floor(fabs(sin(i + 1)) * 4294967296.0)), md5_T[i]) << i;
    }
}

TEST(Md5Test, AFreshContext) {
    md5_ctx_st ctx;
    memset(&ctx, 0xee, sizeof(ctx));
    md5_init(&ctx);
    EXPECT_EQ(0x67452301U, ctx.h[0]);
    EXPECT_EQ(0xefcdab89U, ctx.h[1]);
    EXPECT_EQ(0x98badcfeU, ctx.h[2]);
    EXPECT_EQ(0x10325476U, ctx.h[3]);
    EXPECT_EQ(0U, ctx.blocks);
    EXPECT_EQ(20U, sizeof(ctx));
}

TEST(Md5Test, EveryNumberOfBitsOverThreeBlocks) {
    const Bytes data = SomeBytes(200);
    for (unsigned int bits = 0; bits <= 1536; ++bits) {
        ASSERT_EQ(HashOfBits(data, bits), Hash(data.data(), bits)) << bits;
    }
}

TEST(Md5Test, OfALastByteThatIsNotWholeTheHighestBitsCount) {
    const unsigned char high = 0xa0;
    const unsigned char withLowBits = 0xbf;
    EXPECT_EQ(Hash(&high, 3), Hash(&withLowBits, 3));
    EXPECT_NE(Hash(&high, 4), Hash(&withLowBits, 4));
    EXPECT_NE(Hash(&high, 3), Hash(&high, 2));
    EXPECT_NE(Hash(&high, 3), Hash(&high, 4));
}

TEST(Md5Test, BlocksOneByOneAndTheRest) {
    const Bytes data = SomeBytes(64 * 5 + 17);
    md5_ctx_st ctx;
    md5_init(&ctx);
    for (size_t block = 0; block < 5; ++block) {
        md5_nextBlock(&ctx, data.data() + 64 * block);
        EXPECT_EQ(block + 1, ctx.blocks);
    }
    md5_lastBlock(&ctx, data.data() + 64 * 5, 17 * 8);
    EXPECT_EQ(Hash(data.data(), static_cast<unsigned int>(data.size() * 8)), Result(ctx));
}

TEST(Md5Test, TheLastBlockMayBeEmptyOrNull) {
    const Bytes data = SomeBytes(64);
    md5_ctx_st ctx;
    md5_init(&ctx);
    md5_nextBlock(&ctx, data.data());
    md5_lastBlock(&ctx, nullptr, 0);
    EXPECT_EQ(Hash(data.data(), 512), Result(ctx));
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", Hash(nullptr, 0));
}

TEST(Md5Test, TheLastBlockMayBeLong) {
    const Bytes data = SomeBytes(64 + 8192);
    for (const unsigned int bits : {511U, 512U, 513U, 1024U, 65528U, 65535U}) {
        md5_ctx_st ctx;
        md5_init(&ctx);
        md5_nextBlock(&ctx, data.data());
        md5_lastBlock(&ctx, data.data() + 64, static_cast<unsigned short>(bits));
        EXPECT_EQ(HashOfBits(data, 512 + bits), Result(ctx)) << bits;
    }
}

TEST(Md5Test, NothingBehindTheLastBitIsRead) {
    for (const unsigned int bits : {1U, 8U, 9U, 447U, 448U, 504U, 511U, 512U, 513U, 65535U}) {
        const Bytes exact = SomeBytes((bits + 7) / 8);  // for the address sanitizer
        EXPECT_EQ(HashOfBits(exact, bits), Hash(exact.data(), bits)) << bits;
    }
}

TEST(Md5Test, ABlockMayBeAtAnyAddress) {
    const Bytes data = SomeBytes(65);
    Bytes moved(66);
    memcpy(moved.data() + 1, data.data(), data.size());
    EXPECT_EQ(Hash(data.data(), 65 * 8), Hash(moved.data() + 1, 65 * 8));
}

// 2^32 bits and more: the length has 64 bits.
TEST(Md5Test, TheLengthOfAVeryLongMessage) {
    const Bytes data = SomeBytes(3);
    for (const uint32_t blocks : {0x007fffffU, 0x00800000U, 0xffffffffU}) {
        md5_ctx_st ctx;
        md5_init(&ctx);
        ctx.blocks = blocks;
        const std::string expected = HashOfBits(data, 24, ctx);
        md5_lastBlock(&ctx, data.data(), 24);
        EXPECT_EQ(expected, Result(ctx)) << blocks;
    }
}

}  // namespace
