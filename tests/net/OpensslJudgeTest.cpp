// Our digests and our Base64 beside OpenSSL's: on every length from 0 to 300 and on a million
// bytes.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "kpl/net/Base64.h"
#include "kpl/net/Md5.h"
#include "kpl/net/Sha1.h"
#include "tests/net/Bytes.h"

namespace {

using kpl::test::Bytes;
using kpl::test::Hex;
using kpl::test::SomeBytes;
using kpl::test::ToBytes;

constexpr size_t kMillion = 1000000;

std::vector<size_t> Lengths() {
    std::vector<size_t> lengths;
    for (size_t length = 0; length <= 300; ++length) {
        lengths.push_back(length);
    }
    lengths.push_back(kMillion);
    return lengths;
}

std::string Judge(const EVP_MD* digest, const Bytes& data) {
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EXPECT_EQ(1, EVP_Digest(data.data(), data.size(), hash, &size, digest, nullptr));
    return Hex(hash, size);
}

std::string Sha1(const Bytes& data) {
    SHA1Context ctx;
    SHA1Reset(&ctx);
    SHA1Input(&ctx, data.data(), static_cast<unsigned int>(data.size()));
    EXPECT_EQ(1, SHA1Result(&ctx));
    std::string text;
    for (const uint32_t word : ctx.digest) {
        const unsigned char bytes[] = {
            static_cast<unsigned char>(word >> 24), static_cast<unsigned char>(word >> 16),
            static_cast<unsigned char>(word >> 8), static_cast<unsigned char>(word)};
        text += Hex(bytes, sizeof(bytes));
    }
    return text;
}

TEST(OpensslJudgeTest, Md5) {
    for (const size_t length : Lengths()) {
        const Bytes data = SomeBytes(length);
        unsigned char hash[16];
        md5(hash, data.data(), static_cast<unsigned int>(length * 8));
        ASSERT_EQ(Judge(EVP_md5(), data), Hex(hash, sizeof(hash))) << length;
    }
}

TEST(OpensslJudgeTest, Md5BlockByBlock) {
    const Bytes data = SomeBytes(kMillion);
    md5_ctx_st ctx;
    md5_init(&ctx);
    const size_t blocks = 15500;
    for (size_t i = 0; i < blocks; ++i) {
        md5_nextBlock(&ctx, data.data() + i * 64);
    }
    const size_t rest = kMillion - blocks * 64;
    ASSERT_LT(rest, 8192U);
    md5_lastBlock(&ctx, data.data() + blocks * 64, static_cast<unsigned short>(rest * 8));
    unsigned char hash[16];
    md5_ctx2hash(hash, &ctx);
    EXPECT_EQ(Judge(EVP_md5(), data), Hex(hash, sizeof(hash)));
}

TEST(OpensslJudgeTest, Sha1) {
    for (const size_t length : Lengths()) {
        const Bytes data = SomeBytes(length);
        ASSERT_EQ(Judge(EVP_sha1(), data), Sha1(data)) << length;
    }
}

TEST(OpensslJudgeTest, Base64) {
    for (const size_t length : Lengths()) {
        const Bytes data = SomeBytes(length);
        Bytes text(length / 3 * 4 + 5);
        text.resize(static_cast<size_t>(
            EVP_EncodeBlock(text.data(), data.data(), static_cast<int>(length))));
        const std::string ours = base64_encode(data.data(), static_cast<unsigned int>(length));
        ASSERT_EQ(text, ToBytes(ours)) << length;
        ASSERT_EQ(data, ToBytes(base64_decode(ours))) << length;
    }
}

}  // namespace
