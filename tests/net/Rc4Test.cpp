#include "kpl/net/Rc4.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "tests/net/Bytes.h"

namespace {

using kpl::test::Bytes;
using kpl::test::Hex;
using kpl::test::SomeBytes;
using kpl::test::ToBytes;

rc4_state Keyed(Bytes key) {
    rc4_state state;
    memset(&state, 0xee, sizeof(state));
    rc4_init(&state, key.data(), static_cast<int>(key.size()));
    return state;
}

Bytes Crypt(rc4_state* state, const Bytes& in) {
    Bytes out(in.size());
    rc4_crypt(state, in.data(), out.data(), static_cast<int>(in.size()));
    return out;
}

Bytes Crypt(const std::string& key, const std::string& text) {
    rc4_state state = Keyed(ToBytes(key));
    return Crypt(&state, ToBytes(text));
}

Bytes Counting(size_t length) {
    Bytes key(length);
    for (size_t i = 0; i < length; ++i) {
        key[i] = static_cast<unsigned char>(i + 1);
    }
    return key;
}

std::string StreamAt(const Bytes& key, size_t offset) {
    rc4_state state = Keyed(key);
    const Bytes stream = Crypt(&state, Bytes(offset + 16));
    return Hex(stream.data() + offset, 16);
}

TEST(Rc4Test, WellKnownCipherTexts) {
    EXPECT_EQ("bbf316e8d940af0ad3", Hex(Crypt("Key", "Plaintext")));
    EXPECT_EQ("1021bf0420", Hex(Crypt("Wiki", "pedia")));
    EXPECT_EQ("45a01f645fc35b383552544b9bf5", Hex(Crypt("Secret", "Attack at dawn")));
}

TEST(Rc4Test, KeyStreamsOfRfc6229) {
    EXPECT_EQ("b2396305f03dc027ccc3524a0a1118a8", StreamAt(Counting(5), 0));
    EXPECT_EQ("ff25b58995996707e51fbdf08b34d875", StreamAt(Counting(5), 4096));
    EXPECT_EQ("9ac7cc9a609d1ef7b2932899cde41b97", StreamAt(Counting(16), 0));
    EXPECT_EQ("eaa6bd25880bf93d3f5d1e4ca2611d91", StreamAt(Counting(32), 0));
}

TEST(Rc4Test, TheRecord) {
    EXPECT_EQ(258U, sizeof(rc4_state));
    const rc4_state state = Keyed(Counting(5));
    EXPECT_EQ(0, state.x);
    EXPECT_EQ(0, state.y);
    unsigned char sorted[256];
    std::copy_n(state.state, 256, sorted);
    std::sort(sorted, sorted + 256);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(i, sorted[i]);
    }
}

TEST(Rc4Test, ALongKeyCountsUpToItsByte256) {
    const Bytes key = SomeBytes(300);
    const rc4_state whole = Keyed(key);
    const rc4_state begin = Keyed(Bytes(key.begin(), key.begin() + 256));
    const rc4_state less = Keyed(Bytes(key.begin(), key.begin() + 255));
    EXPECT_EQ(0, memcmp(&whole, &begin, sizeof(whole)));
    EXPECT_NE(0, memcmp(&whole, &less, sizeof(whole)));
}

TEST(Rc4Test, NoKeyLeavesThePermutationInItsFirstOrder) {
    for (const int length : {0, -1}) {
        rc4_state state;
        memset(&state, 0xee, sizeof(state));
        rc4_init(&state, nullptr, length);
        for (int i = 0; i < 256; ++i) {
            EXPECT_EQ(i, state.state[i]);
        }
        EXPECT_EQ(0, state.x + state.y);
    }
}

TEST(Rc4Test, TheStateCarriesOverBetweenPieces) {
    const Bytes in = SomeBytes(1000);
    rc4_state state = Keyed(Counting(7));
    const Bytes whole = Crypt(&state, in);
    const rc4_state after = state;
    for (size_t piece = 1; piece <= 19; ++piece) {
        state = Keyed(Counting(7));
        Bytes joined;
        for (size_t at = 0; at < in.size(); at += piece) {
            const auto begin = in.begin() + static_cast<long>(at);
            const size_t length = std::min(piece, in.size() - at);
            const Bytes out = Crypt(&state, Bytes(begin, begin + static_cast<long>(length)));
            joined.insert(joined.end(), out.begin(), out.end());
        }
        EXPECT_EQ(whole, joined) << piece;
        EXPECT_EQ(0, memcmp(&after, &state, sizeof(state))) << piece;
    }
}

TEST(Rc4Test, DecryptGivesThePlainTextBack) {
    const Bytes plain = SomeBytes(77);
    rc4_state state = Keyed(Counting(9));
    const Bytes cipher = Crypt(&state, plain);
    EXPECT_NE(plain, cipher);
    state = Keyed(Counting(9));
    Bytes back(cipher.size());
    rc4_decrypt(&state, cipher.data(), back.data(), static_cast<int>(cipher.size()));
    EXPECT_EQ(plain, back);
}

TEST(Rc4Test, InAndOutMayBeTheSamePlace) {
    Bytes data = SomeBytes(101);
    rc4_state state = Keyed(Counting(9));
    const Bytes expected = Crypt(&state, data);
    state = Keyed(Counting(9));
    rc4_crypt(&state, data.data(), data.data(), static_cast<int>(data.size()));
    EXPECT_EQ(expected, data);
}

TEST(Rc4Test, ALengthBelowOneDoesNothing) {
    rc4_state state = Keyed(Counting(9));
    const rc4_state before = state;
    rc4_crypt(&state, nullptr, nullptr, 0);
    rc4_crypt(&state, nullptr, nullptr, -4);
    EXPECT_EQ(0, memcmp(&before, &state, sizeof(state)));
}

}  // namespace
