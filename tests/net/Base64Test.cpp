#include "kpl/net/Base64.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/net/Bytes.h"

namespace {

using kpl::test::Bytes;
using kpl::test::SomeBytes;
using kpl::test::ToBytes;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Encode(const Bytes& bytes) {
    return base64_encode(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

std::string Encode(const std::string& text) {
    return Encode(ToBytes(text));
}

TEST(Base64Test, OneTwoAndThreeBytes) {
    EXPECT_EQ("TQ==", Encode("M"));
    EXPECT_EQ("TWE=", Encode("Ma"));
    EXPECT_EQ("TWFu", Encode("Man"));
    EXPECT_EQ("M", base64_decode("TQ=="));
    EXPECT_EQ("Ma", base64_decode("TWE="));
    EXPECT_EQ("Man", base64_decode("TWFu"));
}

TEST(Base64Test, VectorsOfRfc4648) {
    const char* const texts[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar"};
    const char* const encoded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(encoded[i], Encode(std::string(texts[i])));
        EXPECT_EQ(texts[i], base64_decode(encoded[i]));
    }
}

TEST(Base64Test, EveryCharacterOfTheAlphabet) {
    EXPECT_EQ(48U, base64_decode(kAlphabet).size());
    EXPECT_EQ(kAlphabet, Encode(base64_decode(kAlphabet)));
    for (unsigned int value = 0; value < 64; ++value) {
        const Bytes byte = {static_cast<unsigned char>(value << 2)};
        EXPECT_EQ(kAlphabet[value], Encode(byte)[0]);
    }
}

TEST(Base64Test, EveryLengthComesBackWithoutLineBreaks) {
    for (size_t length = 0; length <= 300; ++length) {
        const Bytes bytes = SomeBytes(length);
        const std::string text = Encode(bytes);
        ASSERT_EQ((length + 2) / 3 * 4, text.size());
        const size_t padding = (3 - length % 3) % 3;
        ASSERT_EQ(std::string(padding, '='), text.substr(text.size() - padding));
        ASSERT_EQ(text.size() - padding, std::min(text.find_first_not_of(kAlphabet), text.size()));
        ASSERT_EQ(bytes, ToBytes(base64_decode(text))) << length;
    }
}

TEST(Base64Test, NothingOfNoDataIsRead) {
    EXPECT_EQ("", base64_encode(nullptr, 0));
}

TEST(Base64Test, AMegabyteComesBack) {
    const Bytes bytes = SomeBytes(1000000);
    EXPECT_EQ(bytes, ToBytes(base64_decode(Encode(bytes))));
}

TEST(Base64Test, DecodingStopsAtASpaceAndKeepsWhatTwoCharactersGave) {
    EXPECT_EQ("M", base64_decode("TW E="));
}

TEST(Base64Test, ALastGroupOfOneCharacterGivesNothing) {
    EXPECT_EQ("", base64_decode("T"));
    EXPECT_EQ("", base64_decode("T==="));
    EXPECT_EQ("Man", base64_decode("TWFuT"));
    EXPECT_EQ("Man", base64_decode("TWFuT\n"));
}

TEST(Base64Test, PaddingMayBeMissing) {
    EXPECT_EQ("M", base64_decode("TQ"));
    EXPECT_EQ("Ma", base64_decode("TWE"));
}

TEST(Base64Test, TheFirstPaddingEndsAll) {
    EXPECT_EQ("M", base64_decode("TQ==TWFu"));
    EXPECT_EQ("M", base64_decode("TQ=ETWFu"));
    EXPECT_EQ("", base64_decode("=TWFu"));
    EXPECT_EQ("", base64_decode("===="));
}

// In every place of a group, and of a group behind others.
TEST(Base64Test, EveryOtherCharacterEndsAll) {
    const std::string before = Encode(SomeBytes(30));
    for (int c = 0; c < 256; ++c) {
        const bool ends =
            c == 0 || std::string(kAlphabet).find(static_cast<char>(c)) == std::string::npos;
        for (size_t place = 0; place < 4; ++place) {
            std::string text = before + "TWFuTWFu";
            text[before.size() + place] = static_cast<char>(c);
            const size_t left = place < 2 ? 0 : place - 1;
            EXPECT_EQ(ends ? 30 + left : 36, base64_decode(text).size()) << c << " in " << place;
        }
    }
}

TEST(Base64Test, BitsOfAPartialGroupThatNoByteTakesAreIgnored) {
    EXPECT_EQ("M", base64_decode("TX=="));
    EXPECT_EQ("Ma", base64_decode("TWH="));
}

// Before main, in a program that is linked with the shared library.
const std::string encodedAtLoad = Encode("Ma");

TEST(Base64Test, WorksWhileTheProgramIsLoaded) {
    EXPECT_EQ("TWE=", encodedAtLoad);
}

}  // namespace
