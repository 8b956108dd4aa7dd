#include "net/Base64Vectors.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <algorithm>

namespace kpl::net {

namespace {

// Four groups are 16 characters. Of data 16 bytes are read or written too, 12 of which count: that
// stays inside as long as there are six groups.
constexpr size_t kStep = 4;
constexpr size_t kStepNeeds = 6;

struct alignas(16) Table {
    unsigned char byte[16];
};

// Values of one class lie together in the alphabet as in ASCII: from 26 on the letters are class 0,
// each digit and sign has a class of its own, and the capital letters have the next.
constexpr int kCapitals = 13;
constexpr int ClassOf(int value) {
    return value < 26 ? kCapitals : std::max(value - 51, 0);
}

// For each class: what makes a character of a value.
constexpr Table MakeToCharacter() {
    Table table{};
    for (int value = 0; value < 64; ++value) {
        table.byte[ClassOf(value)] = static_cast<unsigned char>(kBase64Alphabet[value] - value);
    }
    return table;
}
constexpr Table kToCharacter = MakeToCharacter();

// A character of the alphabet is one whose upper half is a bit in the set of its lower half.
constexpr Table MakeUpperHalves() {
    Table table{};
    for (int value = 0; value < 64; ++value) {
        const auto c = static_cast<unsigned char>(kBase64Alphabet[value]);
        table.byte[c & 15] = static_cast<unsigned char>(table.byte[c & 15] | 1 << (c >> 4));
    }
    return table;
}
constexpr Table kUpperHalves = MakeUpperHalves();
constexpr Table kBitOfHalf = {{1, 2, 4, 8, 16, 32, 64, 128}};

// For each upper half: what makes a value of a character. '/' shares its half with '+' and has the
// place before that.
constexpr Table MakeToValue() {
    Table table{};
    for (int value = 0; value < 64; ++value) {
        const auto c = static_cast<unsigned char>(kBase64Alphabet[value]);
        table.byte[(c >> 4) - (c == '/' ? 1 : 0)] = static_cast<unsigned char>(value - c);
    }
    return table;
}
constexpr Table kToValue = MakeToValue();

[[gnu::target("ssse3")]] __m128i Load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

[[gnu::target("ssse3")]] void Store(void* to, __m128i vector) {
    _mm_storeu_si128(static_cast<__m128i*>(to), vector);
}

// From each group's 24 bits, in a lane of 32, its four values, the first one lowest.
[[gnu::target("ssse3")]] __m128i Spread(__m128i bits) {
    const __m128i ends =
        _mm_or_si128(_mm_srli_epi32(bits, 18),
                     _mm_and_si128(_mm_slli_epi32(bits, 24), _mm_set1_epi32(0x3f000000)));
    const __m128i middle =
        _mm_or_si128(_mm_and_si128(_mm_srli_epi32(bits, 4), _mm_set1_epi32(0x3f00)),
                     _mm_and_si128(_mm_slli_epi32(bits, 10), _mm_set1_epi32(0x3f0000)));
    return _mm_or_si128(ends, middle);
}

[[gnu::target("ssse3")]] size_t Encode(const unsigned char* data, size_t groups, char* text) {
    const __m128i lanes = _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1);
    const __m128i toCharacter = Load(&kToCharacter);
    size_t done = 0;
    for (; groups - done >= kStepNeeds; done += kStep) {
        const __m128i values = Spread(_mm_shuffle_epi8(Load(data + 3 * done), lanes));
        const __m128i capitals = _mm_cmplt_epi8(values, _mm_set1_epi8(26));
        const __m128i classes = _mm_or_si128(_mm_subs_epu8(values, _mm_set1_epi8(51)),
                                             _mm_and_si128(capitals, _mm_set1_epi8(kCapitals)));
        Store(text + 4 * done, _mm_add_epi8(values, _mm_shuffle_epi8(toCharacter, classes)));
    }
    return done;
}

[[gnu::target("ssse3")]] size_t Decode(const unsigned char* text, size_t groups, char* data) {
    const __m128i upperHalves = Load(&kUpperHalves);
    const __m128i bitOfHalf = Load(&kBitOfHalf);
    const __m128i toValue = Load(&kToValue);
    const __m128i bytes = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    size_t done = 0;
    for (; groups - done >= kStepNeeds; done += kStep) {
        const __m128i chars = Load(text + 4 * done);
        const __m128i upper = _mm_and_si128(_mm_srli_epi32(chars, 4), _mm_set1_epi8(15));
        // The set of a character of 128 and above is empty: so the instruction has it.
        const __m128i known =
            _mm_and_si128(_mm_shuffle_epi8(upperHalves, chars), _mm_shuffle_epi8(bitOfHalf, upper));
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(known, _mm_setzero_si128())) != 0) {
            break;
        }
        const __m128i place = _mm_add_epi8(upper, _mm_cmpeq_epi8(chars, _mm_set1_epi8('/')));
        const __m128i values = _mm_add_epi8(chars, _mm_shuffle_epi8(toValue, place));
        // Two values to 12 bits, two of those to 24.
        const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi16(0x0140));
        const __m128i bits = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
        Store(data + 3 * done, _mm_shuffle_epi8(bits, bytes));
    }
    return done;
}

}  // namespace

size_t EncodeGroupsByVectors(const unsigned char* data, size_t groups, char* text) {
    return __builtin_cpu_supports("ssse3") ? Encode(data, groups, text) : 0;
}

size_t DecodeGroupsByVectors(const unsigned char* text, size_t groups, char* data) {
    return __builtin_cpu_supports("ssse3") ? Decode(text, groups, data) : 0;
}

}  // namespace kpl::net

#else

namespace kpl::net {

size_t EncodeGroupsByVectors(const unsigned char*, size_t, char*) {
    return 0;
}

size_t DecodeGroupsByVectors(const unsigned char*, size_t, char*) {
    return 0;
}

}  // namespace kpl::net

#endif
