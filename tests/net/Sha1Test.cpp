#include "kpl/net/Sha1.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "tests/net/Bytes.h"

namespace {

using kpl::test::Bytes;
using kpl::test::SomeBytes;
using kpl::test::ToBytes;

constexpr char kAbc[] = "a9993e364706816aba3e25717850c26c9cd0d89d";

std::string Digest(const SHA1Context& ctx) {
    std::string text;
    for (const uint32_t word : ctx.digest) {
        char hex[9];
        snprintf(hex, sizeof(hex), "%08x", word);
        text += hex;
    }
    return text;
}

SHA1Context Fresh() {
    SHA1Context ctx;
    memset(&ctx, 0xee, sizeof(ctx));
    SHA1Reset(&ctx);
    return ctx;
}

void Input(SHA1Context* ctx, const Bytes& bytes) {
    SHA1Input(ctx, bytes.data(), static_cast<unsigned int>(bytes.size()));
}

std::string Hash(const Bytes& bytes) {
    SHA1Context ctx = Fresh();
    Input(&ctx, bytes);
    EXPECT_EQ(1, SHA1Result(&ctx));
    return Digest(ctx);
}

std::string Hash(const std::string& text) {
    return Hash(ToBytes(text));
}

TEST(Sha1Test, VectorsOfFips180) {
    EXPECT_EQ(kAbc, Hash("abc"));
    EXPECT_EQ("84983e441c3bd26ebaae4aa1f95129e5e54670f1",
              Hash("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ("34aa973cd4c4daa4f61eeb2bdbad27316534016f", Hash(std::string(1000000, 'a')));
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", Hash(""));
}

TEST(Sha1Test, AFreshContext) {
    const SHA1Context ctx = Fresh();
    EXPECT_EQ("67452301efcdab8998badcfe10325476c3d2e1f0", Digest(ctx));
    EXPECT_EQ(0U, ctx.lengthLow);
    EXPECT_EQ(0U, ctx.lengthHigh);
    EXPECT_EQ(0, ctx.index);
    EXPECT_EQ(0, ctx.computed);
    EXPECT_EQ(0, ctx.corrupted);
}

TEST(Sha1Test, AnyPiecesGiveTheSame) {
    const Bytes data = SomeBytes(300);
    const std::string whole = Hash(data);
    for (size_t piece = 1; piece <= 300; ++piece) {
        SHA1Context ctx = Fresh();
        for (size_t at = 0; at < data.size(); at += piece) {
            SHA1Input(&ctx, data.data() + at,
                      static_cast<unsigned int>(std::min(piece, data.size() - at)));
            EXPECT_LT(ctx.index, 64);
        }
        EXPECT_EQ(300U * 8, ctx.lengthLow);
        ASSERT_EQ(1, SHA1Result(&ctx));
        ASSERT_EQ(whole, Digest(ctx)) << piece;
    }
}

TEST(Sha1Test, EveryLengthByteByByte) {
    for (size_t length = 0; length <= 300; ++length) {
        const Bytes data = SomeBytes(length);
        SHA1Context ctx = Fresh();
        for (const unsigned char byte : data) {
            SHA1Input(&ctx, &byte, 1);
        }
        ASSERT_EQ(1, SHA1Result(&ctx));
        ASSERT_EQ(Hash(data), Digest(ctx)) << length;
    }
}

TEST(Sha1Test, ALengthOfZeroDoesNothing) {
    SHA1Context ctx = Fresh();
    SHA1Input(&ctx, nullptr, 0);
    Input(&ctx, ToBytes("ab"));
    SHA1Input(&ctx, nullptr, 0);
    Input(&ctx, ToBytes("c"));
    EXPECT_EQ(1, SHA1Result(&ctx));
    EXPECT_EQ(kAbc, Digest(ctx));
    SHA1Input(&ctx, nullptr, 0);  // not even after the result
    EXPECT_EQ(0, ctx.corrupted);
    EXPECT_EQ(1, SHA1Result(&ctx));
}

TEST(Sha1Test, ASecondResultDoesNotPadAgain) {
    SHA1Context ctx = Fresh();
    Input(&ctx, ToBytes("abc"));
    EXPECT_EQ(0, ctx.computed);
    EXPECT_EQ(1, SHA1Result(&ctx));
    EXPECT_EQ(1, ctx.computed);
    const SHA1Context after = ctx;
    EXPECT_EQ(1, SHA1Result(&ctx));
    EXPECT_EQ(0, memcmp(&after, &ctx, sizeof(ctx)));
    EXPECT_EQ(kAbc, Digest(ctx));
}

TEST(Sha1Test, InputAfterTheResultCorrupts) {
    SHA1Context ctx = Fresh();
    Input(&ctx, ToBytes("abc"));
    EXPECT_EQ(1, SHA1Result(&ctx));
    Input(&ctx, ToBytes("d"));
    EXPECT_EQ(1, ctx.corrupted);
    EXPECT_EQ(0, SHA1Result(&ctx));
    Input(&ctx, ToBytes("d"));
    EXPECT_EQ(0, SHA1Result(&ctx));
}

TEST(Sha1Test, AResetMendsACorruptedContext) {
    SHA1Context ctx = Fresh();
    EXPECT_EQ(1, SHA1Result(&ctx));
    Input(&ctx, ToBytes("d"));
    EXPECT_EQ(0, SHA1Result(&ctx));
    SHA1Reset(&ctx);
    Input(&ctx, ToBytes("abc"));
    EXPECT_EQ(1, SHA1Result(&ctx));
    EXPECT_EQ(kAbc, Digest(ctx));
}

TEST(Sha1Test, AMessageOfMoreBitsThanItsLengthCanSayCorrupts) {
    SHA1Context ctx = Fresh();
    ctx.lengthHigh = 0xffffffff;
    ctx.lengthLow = 0xfffffff0;
    Input(&ctx, ToBytes("a"));
    EXPECT_EQ(0, ctx.corrupted);
    EXPECT_EQ(0xfffffff8, ctx.lengthLow);
    SHA1Context result = ctx;
    EXPECT_EQ(1, SHA1Result(&result));
    Input(&ctx, ToBytes("b"));
    EXPECT_EQ(1, ctx.corrupted);
    EXPECT_EQ(0, SHA1Result(&ctx));
}

TEST(Sha1Test, TheLengthIsCarriedIntoItsHighHalf) {
    SHA1Context ctx = Fresh();
    ctx.lengthLow = 0xfffffff8;
    Input(&ctx, ToBytes("ab"));
    EXPECT_EQ(8U, ctx.lengthLow);
    EXPECT_EQ(1U, ctx.lengthHigh);
}

TEST(Sha1Test, PaddingEndsWithTheLengthHighestByteFirst) {
    SHA1Context ctx = Fresh();
    ctx.lengthHigh = 0x01020304;
    ctx.lengthLow = 0x05060700;
    Input(&ctx, ToBytes("a"));
    SHA1PadMessage(&ctx);
    unsigned char expected[64] = {'a', 0x80};
    const unsigned char length[] = {1, 2, 3, 4, 5, 6, 7, 8};
    memcpy(expected + 56, length, sizeof(length));
    EXPECT_EQ(0, memcmp(expected, ctx.block, sizeof(expected)));
    EXPECT_EQ(0, ctx.index);
    EXPECT_EQ(0, ctx.computed);  // that is SHA1Result's to say
}

TEST(Sha1Test, ABlockFilledByHand) {
    SHA1Context ctx = Fresh();
    memset(ctx.block, 0, sizeof(ctx.block));
    memcpy(ctx.block, "abc\x80", 4);
    ctx.block[63] = 24;
    ctx.index = 64;
    SHA1ProcessMessageBlock(&ctx);
    EXPECT_EQ(0, ctx.index);
    EXPECT_EQ(kAbc, Digest(ctx));
}

TEST(Sha1Test, AMessageMayBeAtAnyAddress) {
    const Bytes data = SomeBytes(129);
    const Bytes rest(data.begin() + 1, data.end());
    SHA1Context ctx = Fresh();
    SHA1Input(&ctx, data.data() + 1, 128);
    EXPECT_EQ(1, SHA1Result(&ctx));
    EXPECT_EQ(Hash(rest), Digest(ctx));
}

}  // namespace
