// The ways to hash blocks, beside each other. Sha1Test has the digests that are known.
#include "net/Sha1Blocks.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <vector>

namespace {

using kpl::net::Sha1Blocks;
using kpl::net::Sha1BlocksByInstructions;
using kpl::net::Sha1BlocksPortable;

using Digest = std::vector<uint32_t>;

const Digest kFirst = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};

Digest Hash(Sha1Blocks blocks, Digest digest, const unsigned char* data, size_t count) {
    blocks(digest.data(), data, count);
    return digest;
}

void ExpectAbc(Sha1Blocks blocks) {
    unsigned char block[64] = {'a', 'b', 'c', 0x80};
    block[63] = 24;
    EXPECT_EQ(Digest({0xa9993e36, 0x4706816a, 0xba3e2571, 0x7850c26c, 0x9cd0d89d}),
              Hash(blocks, kFirst, block, 1));
}

TEST(Sha1BlocksTest, ThePortableWayHashesTheBlockOfAbc) {
    ExpectAbc(Sha1BlocksPortable);
}

TEST(Sha1BlocksTest, TheProcessorsInstructionsHashTheBlockOfAbc) {
    if (Sha1BlocksByInstructions() == nullptr) {
        GTEST_SKIP() << "the processor has no instructions for SHA-1 that this build knows";
    }
    ExpectAbc(Sha1BlocksByInstructions());
}

TEST(Sha1BlocksTest, BothWaysGiveTheSameFromAnyDigestOfAnyBlocksAtAnyAddress) {
    const Sha1Blocks instructions = Sha1BlocksByInstructions();
    if (instructions == nullptr) {
        GTEST_SKIP() << "the processor has no instructions for SHA-1 that this build knows";
    }
    std::mt19937 random(1);  // NOLINT: the same numbers in every run
    for (int round = 0; round < 2000; ++round) {
        const size_t count = random() % 6;
        const size_t offset = random() % 17;
        // Exactly as long as what may be read, for the address sanitizer.
        std::vector<unsigned char> data(offset + 64 * count);
        for (unsigned char& byte : data) {
            byte = static_cast<unsigned char>(random());
        }
        Digest digest(5);
        for (uint32_t& word : digest) {
            word = static_cast<uint32_t>(random());
        }
        ASSERT_EQ(Hash(Sha1BlocksPortable, digest, data.data() + offset, count),
                  Hash(instructions, digest, data.data() + offset, count))
            << "round " << round;
    }
}

TEST(Sha1BlocksTest, NoBlocksLeaveTheDigestAsItIs) {
    EXPECT_EQ(kFirst, Hash(Sha1BlocksPortable, kFirst, nullptr, 0));
    if (Sha1BlocksByInstructions() != nullptr) {
        EXPECT_EQ(kFirst, Hash(Sha1BlocksByInstructions(), kFirst, nullptr, 0));
    }
}

}  // namespace
