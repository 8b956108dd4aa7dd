#include "kpl/net/Base64.h"

#include <stdint.h>
#include <string.h>

#include <array>

#include "net/Base64Vectors.h"
#include "net/ByteOrder.h"

// What vector instructions leave of the groups goes through tables that the compiler makes of the
// alphabet. The tables hold bytes in the order in which they are written, so that they serve either
// byte order of the machine.

namespace {

using kpl::net::kBase64Alphabet;

const std::string alphabet(kBase64Alphabet);

struct CharPair {
    char c[2];
};

// For 12 bits of data: their two characters.
constexpr std::array<CharPair, 4096> MakePairs() {
    std::array<CharPair, 4096> pairs{};
    for (size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {{kBase64Alphabet[i >> 6], kBase64Alphabet[i & 63]}};
    }
    return pairs;
}
constexpr std::array<CharPair, 4096> kPairs = MakePairs();

void PutPair(char* out, uint64_t bits) {
    memcpy(out, kPairs[bits & 0xfff].c, 2);
}

// Two groups at a time, from eight bytes of which six count, while there are eight; then the rest.
void EncodeGroups(const unsigned char* data, size_t groups, char* out) {
    const size_t done = kpl::net::EncodeGroupsByVectors(data, groups, out);
    groups -= done;
    data += done * 3;
    out += done * 4;
    for (; groups >= 3; groups -= 2, data += 6, out += 8) {
        const uint64_t bits = uint64_t{kpl::net::LoadBig(data)} << 32 | kpl::net::LoadBig(data + 4);
        PutPair(out, bits >> 52);
        PutPair(out + 2, bits >> 40);
        PutPair(out + 4, bits >> 28);
        PutPair(out + 6, bits >> 16);
    }
    for (; groups > 0; --groups, data += 3, out += 4) {
        const uint32_t bits =
            static_cast<uint32_t>(data[0]) << 16 | static_cast<uint32_t>(data[1]) << 8 | data[2];
        PutPair(out, bits >> 12);
        PutPair(out + 2, bits);
    }
}

// One or two bytes, into four characters.
void EncodeEnd(const unsigned char* data, size_t count, char* out) {
    const unsigned int second = count == 2 ? data[1] : 0;
    out[0] = alphabet[data[0] >> 2];
    out[1] = alphabet[(data[0] & 3U) << 4 | second >> 4];
    out[2] = count == 2 ? alphabet[(second & 15) << 2] : '=';
    out[3] = '=';
}

// For each place in a group of four, what its character adds to the three bytes; the fourth byte is
// not 0 where the character is none of the alphabet.
struct Word {
    unsigned char byte[4];
};
using Words = std::array<Word, 256>;

constexpr std::array<Words, 4> MakeWords() {
    std::array<Words, 4> words{};
    for (Words& place : words) {
        for (Word& word : place) {
            word = {{0, 0, 0, 0xff}};
        }
    }
    for (unsigned int v = 0; v < 64; ++v) {
        const auto c = static_cast<unsigned char>(kBase64Alphabet[v]);
        for (unsigned int place = 0; place < 4; ++place) {
            const unsigned int bits = v << (18 - 6 * place);
            words[place][c] = {{static_cast<unsigned char>(bits >> 16),
                                static_cast<unsigned char>(bits >> 8),
                                static_cast<unsigned char>(bits), 0}};
        }
    }
    return words;
}
constexpr std::array<Words, 4> kWords = MakeWords();

constexpr unsigned char kOnlyLast[] = {0, 0, 0, 0xff};

uint32_t Load(const unsigned char* bytes) {
    uint32_t word = 0;
    memcpy(&word, bytes, sizeof(word));
    return word;
}

// Decodes groups up to one with a character that ends all; returns how many. Writes one byte past
// the last group.
size_t DecodeGroups(const unsigned char* text, size_t groups, char* out) {
    const uint32_t bad = Load(kOnlyLast);
    const size_t done = kpl::net::DecodeGroupsByVectors(text, groups, out);
    text += done * 4;
    out += done * 3;
    for (size_t i = done; i < groups; ++i, text += 4, out += 3) {
        const uint32_t word = Load(kWords[0][text[0]].byte) | Load(kWords[1][text[1]].byte) |
                              Load(kWords[2][text[2]].byte) | Load(kWords[3][text[3]].byte);
        if ((word & bad) != 0) {
            return i;
        }
        memcpy(out, &word, sizeof(word));
    }
    return groups;
}

// The group that is not whole: decodes its characters before the end. Returns how many bytes that
// gives, 2 at most.
size_t DecodeEnd(const std::string& text, size_t from, char* out) {
    uint32_t word = 0;
    size_t count = 0;
    for (; count < 3 && from + count < text.size(); ++count) {
        const uint32_t next =
            Load(kWords[count][static_cast<unsigned char>(text[from + count])].byte);
        if ((next & Load(kOnlyLast)) != 0) {
            break;
        }
        word |= next;
    }
    memcpy(out, &word, 2);
    return count < 2 ? 0 : count - 1;
}

}  // namespace

std::string base64_encode(const unsigned char* data, unsigned int length) {
    const size_t groups = length / 3;
    const size_t rest = length % 3;
    std::string text(groups * 4 + (rest != 0 ? 4 : 0), '\0');
    EncodeGroups(data, groups, text.data());
    if (rest != 0) {
        EncodeEnd(data + groups * 3, rest, text.data() + groups * 4);
    }
    return text;
}

std::string base64_decode(const std::string& text) {
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    std::string data(text.size() / 4 * 3 + 3, '\0');
    const size_t groups = DecodeGroups(in, text.size() / 4, data.data());
    const size_t rest = DecodeEnd(text, groups * 4, data.data() + groups * 3);
    data.erase(groups * 3 + rest);
    return data;
}
