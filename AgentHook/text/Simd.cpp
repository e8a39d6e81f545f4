#include "text/Simd.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define AGENT_HOOK_AVX2_SCANS 1
// glibc's header declares with C's _Bool, which clang's C++ does not take.
#if defined(__GLIBC__) && !defined(__clang__)
#define AGENT_HOOK_GLIBC_CPU_FEATURES 1
#include <sys/platform/x86.h>
#else
#include <cpuid.h>
#endif
#endif

namespace AgentHook::text {
namespace {

// Sixteen bytes at a time in the compilers' portable vector type (SSE2 on
// x86-64, NEON on arm64): scanning a gigabyte byte by byte would cost
// several times what reading it costs.
using Bytes16 = unsigned char __attribute__((vector_size(16)));

Bytes16 load16(const void* from) {
    Bytes16 bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

bool anyLane(Bytes16 lanes) {
    std::uint64_t halves[2];
    std::memcpy(halves, &lanes, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

// ---------------------------------------------------------------------------
// The portable kernels.

// With plain comparisons: a byte must be a continuation exactly when one of
// the three before it is a lead that reaches it; leads C0, C1 and F5..FF never
// occur; and the second byte after E0, ED, F0 and F4 has a narrower range.
bool utf8BlocksValidPortable(const unsigned char* at, std::size_t blocks) {
    Bytes16 errors = {};
    for (std::size_t block = 0; block < blocks; ++block, at += 16) {
        const Bytes16 b = load16(at), b1 = load16(at - 1), b2 = load16(at - 2), b3 = load16(at - 3);
        const Bytes16 continuation = (Bytes16)((b >= 0x80) & (b <= 0xBF));
        const Bytes16 expected = (Bytes16)((b1 >= 0xC0) | (b2 >= 0xE0) | (b3 >= 0xF0));
        errors |= continuation ^ expected;
        // A lead that never occurs counts against the byte after it, as in the
        // AVX2 kernel: the two take turns at any block, and the stream's last
        // blocks are followed by zeros.
        errors |= (Bytes16)((b1 == 0xC0) | (b1 == 0xC1) | (b1 >= 0xF5));
        errors |= (Bytes16)(((b1 == 0xE0) & (b < 0xA0)) | ((b1 == 0xED) & (b > 0x9F)) | ((b1 == 0xF0) & (b < 0x90)) |
                            ((b1 == 0xF4) & (b > 0x8F)));
    }
    return !anyLane(errors);
}

std::size_t farthestProbe(const BytePattern& pattern) {
    std::size_t farthest = 0;
    for (const BytePattern::Probe& probe : pattern.probes) farthest = std::max(farthest, probe.distance);
    return farthest;
}

bool holdsAt(std::string_view text, std::size_t at, const BytePattern& pattern) {
    for (const BytePattern::Probe& probe : pattern.probes) {
        if (probe.distance >= text.size() - at || text[at + probe.distance] != probe.byte) return false;
    }
    return true;
}

Bytes16 holds16(const char* at, const BytePattern& pattern) {
    Bytes16 all = ~Bytes16{};
    for (const BytePattern::Probe& probe : pattern.probes) {
        all &= (Bytes16)(load16(at + probe.distance) == static_cast<unsigned char>(probe.byte));
    }
    return all;
}

// The lanes where a pattern holds in the first window of sixteen positions
// from `i` on that has any, `i` moved to it; none once the next window would
// reach past the end. The scan's set-up lives only in here, so the
// confirmation calls between windows do not make the compiler keep it in
// memory.
Bytes16 nextHits16(std::string_view text, std::size_t& i, std::size_t reach, const BytePattern& first,
                   const BytePattern& second) {
    for (; i + 16 + reach <= text.size(); i += 16) {
        const Bytes16 lanes = holds16(text.data() + i, first) | holds16(text.data() + i, second);
        if (anyLane(lanes)) return lanes;
    }
    return Bytes16{};
}

std::size_t findEitherPatternPortable(std::string_view text, std::size_t from, const BytePattern& first,
                                      const BytePattern& second, ConfirmPosition confirm) {
    const std::size_t reach = std::max(farthestProbe(first), farthestProbe(second));
    std::size_t i = from;
    for (;; i += 16) {
        const Bytes16 lanes = nextHits16(text, i, reach, first, second);
        if (!anyLane(lanes)) break;
        for (std::size_t lane = 0; lane < 16; ++lane) {
            if (lanes[lane] != 0 && confirm(text, i + lane)) return i + lane;
        }
    }
    for (; i < text.size(); ++i) {
        if ((holdsAt(text, i, first) || holdsAt(text, i, second)) && confirm(text, i)) return i;
    }
    return std::string_view::npos;
}

// ---------------------------------------------------------------------------
// The AVX2 kernels: 32 bytes at a time, which halves the cost of a scan next
// to reading the file.

#if AGENT_HOOK_AVX2_SCANS
// Asked only when a scan runs. Not __builtin_cpu_supports: it links in a
// constructor that runs CPUID many times at every start of the program, and
// each CPUID traps to the hypervisor in a virtual machine.
bool hasAvx2() {
#if AGENT_HOOK_GLIBC_CPU_FEATURES
    // glibc read the processor's features before main; asking costs no CPUID.
    return CPU_FEATURE_ACTIVE(AVX2);
#else
    static const bool avx2 = [] {
        unsigned a = 0, b = 0, c = 0, d = 0;
        // The processor has it, and the system saves the YMM registers (XCR0 bits 1 and 2).
        if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_OSXSAVE) == 0) return false;
        unsigned low = 0, high = 0;
        __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
        if ((low & 0x6) != 0x6) return false;
        return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_AVX2) != 0;
    }();
    return avx2;
#endif
}

// By table lookups on the high and low halves of a byte and of the one before
// it (Keiser and Lemire, "Validating UTF-8 in less than one instruction per
// byte", 2021). Each flag marks one way to break UTF-8; a byte is wrong when
// all three lookups agree on a flag.
namespace lookup {
constexpr char kTooShort = 1 << 0;      // a lead or ASCII byte followed by a lead byte or ASCII
constexpr char kTooLong = 1 << 1;       // ASCII followed by a continuation byte
constexpr char kOverlong3 = 1 << 2;     // E0 80..9F
constexpr char kTooLarge = 1 << 3;      // F4 90.. and F5.. leads
constexpr char kSurrogate = 1 << 4;     // ED A0..BF
constexpr char kOverlong2 = 1 << 5;     // C0 and C1 leads
constexpr char kTooLarge1000 = 1 << 6;  // F5.. leads followed by 80..8F
constexpr char kOverlong4 = 1 << 6;     // F0 80..8F
constexpr char kTwoContinuations = static_cast<char>(1 << 7);
constexpr char kCarry = kTooShort | kTooLong | kTwoContinuations;
constexpr char kLarge = kCarry | kTooLarge | kTooLarge1000;

// By the high half of the byte before.
alignas(16) constexpr char kByte1High[16] = {
    kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong,
    kTwoContinuations, kTwoContinuations, kTwoContinuations, kTwoContinuations, kTooShort | kOverlong2, kTooShort,
    kTooShort | kOverlong3 | kSurrogate, kTooShort | kTooLarge | kTooLarge1000 | kOverlong4};
// By the low half of the byte before.
alignas(16) constexpr char kByte1Low[16] = {
    kCarry | kOverlong3 | kOverlong2 | kOverlong4, kCarry | kOverlong2, kCarry, kCarry, kCarry | kTooLarge, kLarge,
    kLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge | kSurrogate, kLarge, kLarge};
// By the high half of the byte itself.
alignas(16) constexpr char kByte2High[16] = {
    kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
    kTooLong | kOverlong2 | kTwoContinuations | kOverlong3 | kTooLarge1000 | kOverlong4,
    kTooLong | kOverlong2 | kTwoContinuations | kOverlong3 | kTooLarge,
    kTooLong | kOverlong2 | kTwoContinuations | kSurrogate | kTooLarge,
    kTooLong | kOverlong2 | kTwoContinuations | kSurrogate | kTooLarge, kTooShort, kTooShort, kTooShort, kTooShort};
}  // namespace lookup

__attribute__((target("avx2"))) __m256i load32(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

__attribute__((target("avx2"))) __m256i table32(const char (&table)[16]) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}

__attribute__((target("avx2"))) bool utf8BlocksValidAvx2(const unsigned char* at, std::size_t blocks) {
    const __m256i byte1High = table32(lookup::kByte1High);
    const __m256i byte1Low = table32(lookup::kByte1Low);
    const __m256i byte2High = table32(lookup::kByte2High);
    const __m256i lowHalf = _mm256_set1_epi8(0x0F);
    // Bytes two and three after a lead of three or four bytes must be continuations.
    const __m256i thirdByte = _mm256_set1_epi8(static_cast<char>(0xE0 - 0x80));
    const __m256i fourthByte = _mm256_set1_epi8(static_cast<char>(0xF0 - 0x80));
    const __m256i highBit = _mm256_set1_epi8(static_cast<char>(0x80));
    __m256i errors = _mm256_setzero_si256();
    for (; blocks >= 2; blocks -= 2, at += 32) {
        const __m256i input = load32(at), prev1 = load32(at - 1), prev2 = load32(at - 2), prev3 = load32(at - 3);
        const __m256i special = _mm256_and_si256(
            _mm256_and_si256(_mm256_shuffle_epi8(byte1High, _mm256_and_si256(_mm256_srli_epi16(prev1, 4), lowHalf)),
                             _mm256_shuffle_epi8(byte1Low, _mm256_and_si256(prev1, lowHalf))),
            _mm256_shuffle_epi8(byte2High, _mm256_and_si256(_mm256_srli_epi16(input, 4), lowHalf)));
        const __m256i mustContinue = _mm256_and_si256(
            _mm256_or_si256(_mm256_subs_epu8(prev2, thirdByte), _mm256_subs_epu8(prev3, fourthByte)), highBit);
        errors = _mm256_or_si256(errors, _mm256_xor_si256(mustContinue, special));
    }
    return _mm256_testz_si256(errors, errors) != 0 && utf8BlocksValidPortable(at, blocks);
}

// As nextHits16, 32 positions at a time, the lanes as the bits of a mask.
__attribute__((target("avx2"))) unsigned nextHits32(std::string_view text, std::size_t& i, std::size_t reach,
                                                    const BytePattern& first, const BytePattern& second) {
    __m256i bytes[6];
    std::size_t distances[6];
    for (std::size_t k = 0; k < 3; ++k) {
        bytes[k] = _mm256_set1_epi8(first.probes[k].byte);
        distances[k] = first.probes[k].distance;
        bytes[3 + k] = _mm256_set1_epi8(second.probes[k].byte);
        distances[3 + k] = second.probes[k].distance;
    }
    for (; i + 32 + reach <= text.size(); i += 32) {
        const char* at = text.data() + i;
        __m256i lanes[2];
        for (std::size_t pattern = 0; pattern < 2; ++pattern) {
            lanes[pattern] = _mm256_cmpeq_epi8(load32(at + distances[3 * pattern]), bytes[3 * pattern]);
            for (std::size_t k = 3 * pattern + 1; k < 3 * pattern + 3; ++k) {
                const __m256i probe = _mm256_cmpeq_epi8(load32(at + distances[k]), bytes[k]);
                lanes[pattern] = _mm256_and_si256(lanes[pattern], probe);
            }
        }
        if (const auto mask = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_or_si256(lanes[0], lanes[1])))) {
            return mask;
        }
    }
    return 0;
}

__attribute__((target("avx2"))) std::size_t findEitherPatternAvx2(std::string_view text, std::size_t from,
                                                                  const BytePattern& first,
                                                                  const BytePattern& second,
                                                                  ConfirmPosition confirm) {
    const std::size_t reach = std::max(farthestProbe(first), farthestProbe(second));
    std::size_t i = from;
    for (;; i += 32) {
        unsigned mask = nextHits32(text, i, reach, first, second);
        if (mask == 0) break;
        for (; mask != 0; mask &= mask - 1) {
            const std::size_t at = i + static_cast<std::size_t>(std::countr_zero(mask));
            if (confirm(text, at)) return at;
        }
    }
    return findEitherPatternPortable(text, i, first, second, confirm);
}
#endif

}  // namespace

bool utf8BlocksValid(const unsigned char* at, std::size_t blocks) {
#if AGENT_HOOK_AVX2_SCANS
    if (hasAvx2()) return utf8BlocksValidAvx2(at, blocks);
#endif
    return utf8BlocksValidPortable(at, blocks);
}

std::size_t findEitherPattern(std::string_view text, std::size_t from, const BytePattern& first,
                              const BytePattern& second, ConfirmPosition confirm) {
#if AGENT_HOOK_AVX2_SCANS
    if (hasAvx2()) return findEitherPatternAvx2(text, from, first, second, confirm);
#endif
    return findEitherPatternPortable(text, from, first, second, confirm);
}

}  // namespace AgentHook::text
