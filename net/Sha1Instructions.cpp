// Four steps take one instruction. They go through 20 groups of four: a group takes the next four
// words of the message, makes four words for later of the last sixteen, and hands on the four first
// words of the digest; the fifth comes from the first one of the group before.
#include "net/Sha1Blocks.h"

#if defined(__x86_64__) || defined(__i386__)

#include <cpuid.h>
#include <immintrin.h>

namespace kpl::net {

namespace {

constexpr size_t kBlockSize = 64;

bool HasInstructions() {
    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
    unsigned int d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_SSSE3) == 0 || (c & bit_SSE4_1) == 0) {
        return false;
    }
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_SHA) != 0;
}

struct State {
    __m128i abcd;  // a highest
    __m128i e;     // highest, the rest is 0
};

// The words are the last four groups of four, each with its first word highest.
template <int kGroup>
[[gnu::always_inline, gnu::target("sha,ssse3,sse4.1")]] inline void Groups(State* state,
                                                                           __m128i* words) {
    if constexpr (kGroup < 20) {
        __m128i& word = words[kGroup % 4];
        const __m128i e =
            kGroup == 0 ? _mm_add_epi32(state->e, word) : _mm_sha1nexte_epu32(state->e, word);
        state->e = state->abcd;
        state->abcd = _mm_sha1rnds4_epu32(state->abcd, e, kGroup / 5);
        const __m128i third = words[(kGroup + 2) % 4];
        const __m128i begun =
            _mm_xor_si128(_mm_sha1msg1_epu32(word, words[(kGroup + 1) % 4]), third);
        word = _mm_sha1msg2_epu32(begun, words[(kGroup + 3) % 4]);
        Groups<kGroup + 1>(state, words);
    }
}

[[gnu::target("sha,ssse3,sse4.1")]] void Blocks(uint32_t* digest, const unsigned char* data,
                                                size_t count) {
    const __m128i reverse = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    auto* const four = reinterpret_cast<__m128i*>(digest);
    State state{_mm_shuffle_epi32(_mm_loadu_si128(four), 0x1b),
                _mm_set_epi32(static_cast<int>(digest[4]), 0, 0, 0)};
    for (; count > 0; --count, data += kBlockSize) {
        const State before = state;
        __m128i words[4];
        for (int i = 0; i < 4; ++i) {
            const auto* const from = reinterpret_cast<const __m128i*>(data) + i;
            words[i] = _mm_shuffle_epi8(_mm_loadu_si128(from), reverse);
        }
        Groups<0>(&state, words);
        state.abcd = _mm_add_epi32(state.abcd, before.abcd);
        state.e = _mm_sha1nexte_epu32(state.e, before.e);
    }
    _mm_storeu_si128(four, _mm_shuffle_epi32(state.abcd, 0x1b));
    digest[4] = static_cast<uint32_t>(_mm_extract_epi32(state.e, 3));
}

}  // namespace

Sha1Blocks Sha1BlocksByInstructions() {
    return HasInstructions() ? Blocks : nullptr;
}

}  // namespace kpl::net

#elif defined(__aarch64__) && defined(__linux__) && defined(__ARM_NEON) && \
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ &&                           \
    (defined(__ARM_FEATURE_SHA2) || !defined(__clang__) || __clang_major__ >= 16)

// An older clang has the intrinsics only where the whole build may use the instructions.

#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>

namespace kpl::net {

namespace {

constexpr size_t kBlockSize = 64;
constexpr uint32_t kConstants[4] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};

bool HasInstructions() {
    return (getauxval(AT_HWCAP) & HWCAP_SHA1) != 0;
}

struct State {
    uint32x4_t abcd;  // a lowest
    uint32_t e;
};

// The words are the last four groups of four, each with its first word lowest.
template <int kGroup>
[[gnu::always_inline, gnu::target("+crypto")]] inline void Groups(State* state, uint32x4_t* words) {
    if constexpr (kGroup < 20) {
        uint32x4_t& word = words[kGroup % 4];
        const uint32x4_t sum = vaddq_u32(word, vdupq_n_u32(kConstants[kGroup / 5]));
        const uint32_t next = vsha1h_u32(vgetq_lane_u32(state->abcd, 0));
        if constexpr (kGroup / 5 == 0) {
            state->abcd = vsha1cq_u32(state->abcd, state->e, sum);
        } else if constexpr (kGroup / 5 == 2) {
            state->abcd = vsha1mq_u32(state->abcd, state->e, sum);
        } else {
            state->abcd = vsha1pq_u32(state->abcd, state->e, sum);
        }
        state->e = next;
        const uint32x4_t begun =
            vsha1su0q_u32(word, words[(kGroup + 1) % 4], words[(kGroup + 2) % 4]);
        word = vsha1su1q_u32(begun, words[(kGroup + 3) % 4]);
        Groups<kGroup + 1>(state, words);
    }
}

[[gnu::target("+crypto")]] void Blocks(uint32_t* digest, const unsigned char* data, size_t count) {
    State state{vld1q_u32(digest), digest[4]};
    for (; count > 0; --count, data += kBlockSize) {
        const State before = state;
        uint32x4_t words[4];
        for (int i = 0; i < 4; ++i) {
            words[i] = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(data + 16 * i)));
        }
        Groups<0>(&state, words);
        state.abcd = vaddq_u32(state.abcd, before.abcd);
        state.e += before.e;
    }
    vst1q_u32(digest, state.abcd);
    digest[4] = state.e;
}

}  // namespace

Sha1Blocks Sha1BlocksByInstructions() {
    return HasInstructions() ? Blocks : nullptr;
}

}  // namespace kpl::net

#else

namespace kpl::net {

Sha1Blocks Sha1BlocksByInstructions() {
    return nullptr;
}

}  // namespace kpl::net

#endif
