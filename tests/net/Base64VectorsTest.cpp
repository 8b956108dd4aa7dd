// What the vector instructions do of Base64, beside a plain way to do it bit by bit. The processor
// may have none: then nothing is done, which is right too. Base64Test has the rest.
#include "net/Base64Vectors.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/net/Bytes.h"

namespace {

using kpl::net::DecodeGroupsByVectors;
using kpl::net::EncodeGroupsByVectors;
using kpl::net::kBase64Alphabet;
using kpl::test::Bytes;
using kpl::test::SomeBytes;
using kpl::test::ToBytes;

constexpr size_t kMostGroups = 50;
constexpr char kUntouched = '~';

std::string PlainText(const Bytes& data) {
    std::string text;
    unsigned int bits = 0;
    for (size_t i = 0; i < data.size(); ++i) {
        bits = bits << 8 | data[i];
        if (i % 3 == 2) {
            for (const int shift : {18, 12, 6, 0}) {
                text += kBase64Alphabet[bits >> shift & 63];
            }
        }
    }
    return text;
}

std::string Chars(const Bytes& data) {
    return {data.begin(), data.end()};
}

// Behind what the place of all groups ends nothing may be written; the address sanitizer sees what
// is read there.
TEST(Base64VectorsTest, WhatIsEncodedIsRight) {
    for (size_t groups = 0; groups <= kMostGroups; ++groups) {
        const Bytes data = SomeBytes(groups * 3);
        std::string text(groups * 4 + 32, kUntouched);
        const size_t done = EncodeGroupsByVectors(data.data(), groups, text.data());
        ASSERT_LE(done, groups);
        EXPECT_EQ(PlainText(data).substr(0, done * 4), text.substr(0, done * 4)) << groups;
        EXPECT_EQ(std::string(32, kUntouched), text.substr(groups * 4)) << groups;
    }
}

TEST(Base64VectorsTest, EveryThreeBytesAreEncoded) {
    for (unsigned int value = 0; value < 256; ++value) {
        for (size_t place = 0; place < 12; ++place) {
            Bytes data(18, 0x5a);
            data[place] = static_cast<unsigned char>(value);
            std::string text(24, kUntouched);
            const size_t done = EncodeGroupsByVectors(data.data(), 6, text.data());
            ASSERT_EQ(PlainText(data).substr(0, done * 4), text.substr(0, done * 4))
                << value << " at " << place;
        }
    }
}

TEST(Base64VectorsTest, WhatIsDecodedIsRight) {
    for (size_t groups = 0; groups <= kMostGroups; ++groups) {
        const Bytes expected = SomeBytes(groups * 3);
        const Bytes text = ToBytes(PlainText(expected));
        std::string data(groups * 3 + 32, kUntouched);
        const size_t done = DecodeGroupsByVectors(text.data(), groups, data.data());
        ASSERT_LE(done, groups);
        EXPECT_EQ(Chars(expected).substr(0, done * 3), data.substr(0, done * 3)) << groups;
        EXPECT_EQ(std::string(32, kUntouched), data.substr(groups * 3)) << groups;
    }
}

// Every character, in every place of the first two steps.
TEST(Base64VectorsTest, NothingIsDecodedFromACharacterOutsideTheAlphabetOn) {
    const std::string alphabet = kBase64Alphabet;
    const std::string text = PlainText(SomeBytes(36));
    for (int c = 0; c < 256; ++c) {
        const size_t value = alphabet.find(static_cast<char>(c));
        const bool ends = c == 0 || value == std::string::npos;
        for (size_t place = 0; place < 32; ++place) {
            Bytes changed = ToBytes(text);
            changed[place] = static_cast<unsigned char>(c);
            std::string data(36, kUntouched);
            const size_t done = DecodeGroupsByVectors(changed.data(), 12, data.data());
            ASSERT_LE(done, ends ? place / 4 : 12) << c << " at " << place;
            const std::string back = PlainText(ToBytes(data.substr(0, done * 3)));
            ASSERT_EQ(Chars(changed).substr(0, done * 4), back) << c << " at " << place;
        }
    }
}

// With vectors only the last few are left.
TEST(Base64VectorsTest, ItIsMostOrNothing) {
    const Bytes data = SomeBytes(kMostGroups * 3);
    std::string text(kMostGroups * 4, kUntouched);
    const size_t encoded = EncodeGroupsByVectors(data.data(), kMostGroups, text.data());
    const Bytes all = ToBytes(PlainText(data));
    std::string back(kMostGroups * 3, kUntouched);
    const size_t decoded = DecodeGroupsByVectors(all.data(), kMostGroups, back.data());
    EXPECT_TRUE(encoded == 0 || encoded > kMostGroups - 8) << encoded;
    EXPECT_TRUE(decoded == 0 || decoded > kMostGroups - 8) << decoded;
}

}  // namespace
