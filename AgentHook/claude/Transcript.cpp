#include "claude/Transcript.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#define AGENT_HOOK_AVX2_SCANS 1
#endif

#include "claude/ClaudeHookInput.hpp"
#include "platform/Environment.hpp"
#include "platform/Files.hpp"
#include "text/Json.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {
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

#if AGENT_HOOK_AVX2_SCANS
// The scans below take 32 bytes at a time where the processor can, which
// halves their cost next to reading the file.
bool hasAvx2() {
    static const bool avx2 = __builtin_cpu_supports("avx2");
    return avx2;
}
#endif

// ---------------------------------------------------------------------------
// UTF-8 check of a byte stream, sixteen bytes or more at a time, which keeps
// checking a whole transcript about as cheap as reading it. Kernels take
// `blocks` blocks of sixteen bytes at `at`, with the three bytes before `at`
// readable, and judge each byte by the three before it.

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
        errors |= (Bytes16)((b == 0xC0) | (b == 0xC1) | (b >= 0xF5));
        errors |= (Bytes16)(((b1 == 0xE0) & (b < 0xA0)) | ((b1 == 0xED) & (b > 0x9F)) | ((b1 == 0xF0) & (b < 0x90)) |
                            ((b1 == 0xF4) & (b > 0x8F)));
    }
    return !anyLane(errors);
}

#if AGENT_HOOK_AVX2_SCANS
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
#endif

bool utf8BlocksValid(const unsigned char* at, std::size_t blocks) {
#if AGENT_HOOK_AVX2_SCANS
    if (hasAvx2()) return utf8BlocksValidAvx2(at, blocks);
#endif
    return utf8BlocksValidPortable(at, blocks);
}

// The stream's state: the three bytes before the next block, then the bytes
// of a block not yet full.
struct Utf8Stream {
    unsigned char staged[3 + 16] = {};
    std::size_t filled = 0;
    bool valid = true;
};

void feedUtf8(Utf8Stream& stream, const char* bytes, std::size_t size) {
    const auto* data = reinterpret_cast<const unsigned char*>(bytes);
    std::size_t used = 0;
    while (stream.valid && used < size) {
        // Whole blocks are checked where they lie once the three bytes before
        // them are in the same piece; the rest goes through the staging block.
        if (stream.filled == 0 && used >= 3 && size - used >= 16) {
            const std::size_t blocks = (size - used) / 16;
            stream.valid = utf8BlocksValid(data + used, blocks);
            used += blocks * 16;
            std::memcpy(stream.staged, data + used - 3, 3);
            continue;
        }
        const std::size_t take = std::min<std::size_t>(16 - stream.filled, size - used);
        std::memcpy(stream.staged + 3 + stream.filled, data + used, take);
        stream.filled += take;
        used += take;
        if (stream.filled == 16) {
            stream.valid = utf8BlocksValid(stream.staged + 3, 1);
            std::memmove(stream.staged, stream.staged + 16, 3);
            stream.filled = 0;
        }
    }
}

// True when everything fed was UTF-8. Zeros after the end make a sequence cut
// short at the end show as one followed by ASCII.
bool finishUtf8(Utf8Stream& stream) {
    if (!stream.valid) return false;
    std::memset(stream.staged + 3 + stream.filled, 0, 16 - stream.filled);
    return utf8BlocksValid(stream.staged + 3, 1);
}

// ---------------------------------------------------------------------------
// Cheap tests that keep JSON parsing off the lines that cannot be the entry
// sought.

// True when a JSON string token at `quote` spells `word` exactly, each
// character either literal or as a \uXXXX escape.
bool stringTokenSpells(std::string_view line, std::size_t quote, std::string_view word) {
    std::size_t i = quote + 1;
    for (const char expected : word) {
        if (i < line.size() && line[i] == expected) {
            ++i;
            continue;
        }
        if (i + 5 >= line.size() || line[i] != '\\' || line[i + 1] != 'u') return false;
        int value = 0;
        for (std::size_t k = 2; k < 6; ++k) {
            const int digit = text::hexDigitValue(line[i + k]);
            if (digit < 0) return false;
            value = value * 16 + digit;
        }
        if (value != static_cast<unsigned char>(expected)) return false;
        i += 6;
    }
    return i < line.size() && line[i] == '"';
}

// Every character of the words sought is ASCII, so an escaped spelling of one
// holds a \u00XX escape.
constexpr std::string_view kEscapedAscii = "\\u00";

// True when the line may hold the JSON string `word` (a string token that
// spells it, literally or with escapes).
bool mayHoldString(std::string_view line, std::string_view word) {
    std::string quoted(1, '"');
    quoted.append(word).push_back('"');
    if (line.find(quoted) != std::string_view::npos) return true;
    if (line.find(kEscapedAscii) == std::string_view::npos) return false;
    for (std::size_t quote = line.find('"'); quote != std::string_view::npos; quote = line.find('"', quote + 1)) {
        if (stringTokenSpells(line, quote, word)) return true;
    }
    return false;
}

constexpr std::string_view kCustomTitle = "custom-title";

// True when `text` at `at` starts "custom-title" or an escape of one of its
// characters: every custom-title entry holds one of the two.
bool startsTitleSpelling(std::string_view text, std::size_t at) {
    if (text[at] == 'c') return text.compare(at, kCustomTitle.size(), kCustomTitle) == 0;
    // Escapes are many times more frequent than candidates for the word:
    // they are judged byte by byte.
    if (at + 6 > text.size() || text[at] != '\\' || text[at + 1] != 'u' || text[at + 2] != '0' || text[at + 3] != '0') {
        return false;
    }
    const int high = text::hexDigitValue(text[at + 4]);
    const int low = text::hexDigitValue(text[at + 5]);
    if (high < 0 || low < 0) return false;
    return kCustomTitle.find(static_cast<char>(high * 16 + low)) != std::string_view::npos;
}

// The first offset from `from` where startsTitleSpelling holds, or npos.
// Many offsets are sifted at once for "\u" or for the "c", "-" and "e" of
// "custom-title" in their places, which leaves a few candidates per kilobyte.
std::size_t nextTitleSpellingPortable(std::string_view text, std::size_t from) {
    const char* p = text.data();
    std::size_t i = from;
    for (; i + 16 + 11 <= text.size(); i += 16) {
        const Bytes16 first = load16(p + i);
        const Bytes16 lanes = (Bytes16)(((first == '\\') & (load16(p + i + 1) == 'u')) |
                                        ((first == 'c') & (load16(p + i + 6) == '-') & (load16(p + i + 11) == 'e')));
        if (!anyLane(lanes)) continue;
        for (std::size_t lane = 0; lane < 16; ++lane) {
            if (lanes[lane] != 0 && startsTitleSpelling(text, i + lane)) return i + lane;
        }
    }
    for (; i < text.size(); ++i) {
        if (startsTitleSpelling(text, i)) return i;
    }
    return std::string_view::npos;
}

#if AGENT_HOOK_AVX2_SCANS
__attribute__((target("avx2"))) std::size_t nextTitleSpellingAvx2(std::string_view text, std::size_t from) {
    const char* p = text.data();
    const __m256i backslash = _mm256_set1_epi8('\\'), u = _mm256_set1_epi8('u');
    const __m256i c = _mm256_set1_epi8('c'), dash = _mm256_set1_epi8('-'), e = _mm256_set1_epi8('e');
    std::size_t i = from;
    for (; i + 32 + 11 <= text.size(); i += 32) {
        const __m256i first = load32(p + i);
        const __m256i escape = _mm256_and_si256(_mm256_cmpeq_epi8(first, backslash), _mm256_cmpeq_epi8(load32(p + i + 1), u));
        const __m256i word = _mm256_and_si256(
            _mm256_and_si256(_mm256_cmpeq_epi8(first, c), _mm256_cmpeq_epi8(load32(p + i + 6), dash)),
            _mm256_cmpeq_epi8(load32(p + i + 11), e));
        for (auto lanes = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_or_si256(escape, word))); lanes != 0;
             lanes &= lanes - 1) {
            const std::size_t at = i + static_cast<std::size_t>(std::countr_zero(lanes));
            if (startsTitleSpelling(text, at)) return at;
        }
    }
    return nextTitleSpellingPortable(text, i);
}
#endif

std::size_t nextTitleSpelling(std::string_view text, std::size_t from) {
#if AGENT_HOOK_AVX2_SCANS
    if (hasAvx2()) return nextTitleSpellingAvx2(text, from);
#endif
    return nextTitleSpellingPortable(text, from);
}

// Looks at the lines of `text` (split at line feeds) in order and leaves in
// `title` the last non-empty custom title found, if any. Lines longer than
// `longestLine` are passed over.
void collectCustomTitles(std::string_view text, std::size_t longestLine, std::optional<std::string>& title) {
    std::size_t lineStart = 0;
    while (lineStart < text.size()) {
        const std::size_t hit = nextTitleSpelling(text, lineStart);
        if (hit == std::string_view::npos) return;
        const std::size_t newlineBefore = text.rfind('\n', hit);
        const std::size_t start = newlineBefore == std::string_view::npos ? 0 : newlineBefore + 1;
        std::size_t end = text.find('\n', hit);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view line = text.substr(start, end - start);
        if (line.size() <= longestLine && mayHoldString(line, kCustomTitle)) {
            const std::optional<text::Json> entry = text::parseJson(line);
            if (entry && entry->is_object() && text::stringMember(*entry, "type") == kCustomTitle) {
                std::optional<std::string> found = text::stringMember(*entry, "customTitle");
                if (found && !found->empty()) title = std::move(found);
            }
        }
        lineStart = end + 1;
    }
}

// ---------------------------------------------------------------------------
// The forward pass over a transcript: the encoding check of every byte, and
// the custom titles of its lines.

struct ForwardScan {
    bool validUtf8 = false;
    std::optional<std::string> title;
};

// Lines are handed on in runs of whole lines as they complete; the start of
// a line not yet complete moves to the front of the buffer, which grows to
// hold it up to the longest line allowed. Past that the line is dropped
// until its end.
std::optional<ForwardScan> scanForward(const platform::ReadOnlyFile& file, const TranscriptLimits& limits) {
    const std::size_t chunk = std::max<std::size_t>(limits.chunk, 1);
    const std::size_t largest = std::min(limits.longestLine, SIZE_MAX - chunk) + chunk;
    std::vector<char> buffer(chunk);
    Utf8Stream utf8;
    std::optional<std::string> title;
    std::size_t kept = 0;
    bool skipping = false;
    std::uint64_t offset = 0;
    for (;;) {
        if (buffer.size() < kept + chunk) {
            const std::size_t size = std::min(std::max(kept + chunk, 2 * buffer.size()), largest);
            std::vector<char> larger;
            larger.reserve(size);
            larger.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(kept));
            larger.resize(size);
            buffer.swap(larger);
        }
        const std::optional<std::size_t> read = file.readAt(offset, buffer.data() + kept, chunk);
        if (!read) return std::nullopt;
        offset += *read;
        feedUtf8(utf8, buffer.data() + kept, *read);

        const std::string_view held(buffer.data(), kept + *read);
        std::size_t begin = 0;
        if (skipping) {
            const std::size_t newline = held.find('\n');
            if (newline == std::string_view::npos) {
                if (*read == 0) break;
                continue;
            }
            begin = newline + 1;
            skipping = false;
        }
        if (*read == 0) {  // the end: what is left is a last line without line feed
            collectCustomTitles(held.substr(begin), limits.longestLine, title);
            break;
        }
        // Only the bytes just read can hold the last line feed.
        const std::size_t searchFrom = std::max(begin, kept);
        std::size_t linesEnd = held.substr(searchFrom).rfind('\n');
        linesEnd = linesEnd == std::string_view::npos ? begin : searchFrom + linesEnd + 1;
        collectCustomTitles(held.substr(begin, linesEnd - begin), limits.longestLine, title);
        kept = held.size() - linesEnd;
        if (kept > limits.longestLine) {
            skipping = true;
            kept = 0;
        } else {
            std::memmove(buffer.data(), buffer.data() + linesEnd, kept);
        }
    }
    return ForwardScan{finishUtf8(utf8), std::move(title)};
}

// The forward pass over the file at `path`, done at most once for a file in
// one state.
const ForwardScan* forwardScanOf(const std::string& path, const platform::ReadOnlyFile& file,
                                 const TranscriptLimits& limits) {
    struct Remembered {
        std::string path;
        platform::FileIdentity identity;
        std::size_t longestLine = 0;
        ForwardScan scan;
    };
    static std::optional<Remembered> remembered;
    if (remembered && remembered->path == path && remembered->identity == file.identity() &&
        remembered->longestLine == limits.longestLine) {
        return &remembered->scan;
    }
    remembered.reset();
    std::optional<ForwardScan> scan = scanForward(file, limits);
    if (!scan) return nullptr;
    remembered = Remembered{path, file.identity(), limits.longestLine, std::move(*scan)};
    return &remembered->scan;
}

// ---------------------------------------------------------------------------
// The backward walk for the last assistant message.

// True when no byte of the eight can end a line separator (all are ASCII from
// 0x0E up), so the walk may pass them at once.
bool cannotEndSeparator(std::uint64_t eight) {
    constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
    constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;
    const std::uint64_t below0E = (eight - kOnes * 0x0E) & ~eight & kHighBits;
    return ((eight & kHighBits) | below0E) == 0;
}

std::optional<std::string> assistantTextOf(std::string_view line) {
    if (!mayHoldString(line, "assistant")) return std::nullopt;
    const std::optional<TranscriptEntry> entry = decodeTranscriptEntry(line);
    if (!entry || entry->type != "assistant" || !entry->message || !entry->message->content) return std::nullopt;
    std::string message = contentText(*entry->message->content);
    if (message.empty()) return std::nullopt;
    return message;
}

// Walks the lines from the last to the first through a window of one chunk,
// split at every line separator (LF, VT, FF, CR, NEL, LINE and PARAGRAPH
// SEPARATOR; CR LF holds an empty line). The bytes are taken as UTF-8, which
// the caller checks for the whole file: in valid UTF-8 the bytes of NEL, LS
// and PS mean nothing else. A line reaching past the window is read whole.
std::optional<std::string> lastAssistantText(const platform::ReadOnlyFile& file, const TranscriptLimits& limits) {
    const std::size_t chunk = std::max<std::size_t>(limits.chunk, 4);
    std::vector<char> window(chunk);
    std::uint64_t windowStart = file.size();
    std::uint64_t windowEnd = file.size();
    std::uint64_t lineEnd = file.size();
    std::uint64_t cursor = file.size();  // bytes from here to lineEnd belong to the line
    const auto byteAt = [&](std::uint64_t offset) {
        return static_cast<unsigned char>(window[static_cast<std::size_t>(offset - windowStart)]);
    };
    std::string longLine;
    for (;;) {
        // A separator is up to three bytes long: keep those before the cursor in the window.
        if (cursor > 0 && cursor - windowStart < 3 && windowStart > 0) {
            windowEnd = cursor;
            windowStart = cursor > chunk ? cursor - chunk : 0;
            const auto wanted = static_cast<std::size_t>(windowEnd - windowStart);
            const std::optional<std::size_t> read = file.readAt(windowStart, window.data(), wanted);
            if (!read || *read != wanted) return std::nullopt;  // cut meanwhile
            continue;
        }
        while (cursor - windowStart >= 8 + 3) {
            std::uint64_t eight;
            std::memcpy(&eight, window.data() + (cursor - 8 - windowStart), 8);
            if (!cannotEndSeparator(eight)) break;
            cursor -= 8;
        }
        std::size_t separator = 0;
        if (cursor > 0) {
            const unsigned char last = byteAt(cursor - 1);
            if (last >= 0x0A && last <= 0x0D) {
                separator = 1;
            } else if (last == 0x85 && cursor >= 2 && byteAt(cursor - 2) == 0xC2) {
                separator = 2;
            } else if ((last == 0xA8 || last == 0xA9) && cursor >= 3 && byteAt(cursor - 2) == 0x80 &&
                       byteAt(cursor - 3) == 0xE2) {
                separator = 3;
            }
            if (separator == 0) {
                --cursor;
                continue;
            }
        }
        const std::uint64_t length = lineEnd - cursor;
        if (length > 0 && length <= limits.longestLine) {
            std::string_view line;
            if (lineEnd <= windowEnd) {
                line = std::string_view(window.data() + (cursor - windowStart), static_cast<std::size_t>(length));
            } else {
                longLine.resize(static_cast<std::size_t>(length));
                const std::optional<std::size_t> read = file.readAt(cursor, longLine.data(), longLine.size());
                if (!read || *read != longLine.size()) return std::nullopt;
                line = longLine;
            }
            if (std::optional<std::string> message = assistantTextOf(line)) return message;
        }
        if (cursor == 0) return std::nullopt;
        cursor -= separator;
        lineEnd = cursor;
    }
}

// ---------------------------------------------------------------------------
// The sessions index, read as the parser hands over its parts.

// The bytes of a file in order, a chunk at a time, as an input iterator for
// the JSON parser. A failed read ends the bytes and is remembered.
struct ChunkedBytes {
    const platform::ReadOnlyFile& file;
    std::vector<char> buffer;
    std::size_t position = 0;
    std::size_t filled = 0;
    std::uint64_t offset = 0;
    bool failed = false;

    bool available() {
        if (position < filled) return true;
        const std::optional<std::size_t> read = file.readAt(offset, buffer.data(), buffer.size());
        failed = !read;
        position = 0;
        filled = read.value_or(0);
        offset += filled;
        return filled > 0;
    }
};

class FileBytes {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    FileBytes() = default;  // the end
    explicit FileBytes(ChunkedBytes& source) : source_(source.available() ? &source : nullptr) {}
    reference operator*() const { return source_->buffer[source_->position]; }
    FileBytes& operator++() {
        ++source_->position;
        if (!source_->available()) source_ = nullptr;
        return *this;
    }
    bool operator==(const FileBytes& other) const { return source_ == other.source_; }

private:
    ChunkedBytes* source_ = nullptr;
};

// Keeps only what the lookup needs, with the meaning a parsed tree would
// give: the document must be an object whose "entries" (the last member of
// that name) is an array of objects only; the answer is the first entry
// whose "sessionId" is the session's and whose "summary" is a non-empty
// string (of an entry's members too, the last of a name counts).
struct IndexSummaryReader {
    using Json = text::Json;
    enum class Field { other, sessionId, summary };

    const std::string& sessionId;
    int depth = 0;               // containers open around the next value
    bool entriesNext = false;    // the next value is the top object's "entries"
    bool inEntries = false;      // directly inside the entries array
    bool inEntry = false;        // directly inside one of its objects
    bool entriesUsable = false;  // "entries" seen, an array, objects only so far
    Field field = Field::other;
    std::optional<std::string> entrySessionId = std::nullopt;
    std::optional<std::string> entrySummary = std::nullopt;
    std::optional<std::string> summary = std::nullopt;

    // A value begins at the current depth; `text` holds it when it is a string.
    bool value(bool isObject, bool isArray, std::string* text) {
        if (depth == 0) return isObject;  // anything else has no entries: stop
        if (depth == 1 && entriesNext) {
            entriesNext = false;
            entriesUsable = isArray;
            inEntries = isArray;
            summary.reset();
        } else if (depth == 2 && inEntries) {
            if (!isObject) entriesUsable = false;
            inEntry = isObject;
            entrySessionId.reset();
            entrySummary.reset();
        } else if (depth == 3 && inEntry && field != Field::other) {
            std::optional<std::string>& target = field == Field::sessionId ? entrySessionId : entrySummary;
            target = text != nullptr ? std::optional<std::string>(std::move(*text)) : std::nullopt;
        }
        return true;
    }
    bool open(bool isObject) {
        const bool go = value(isObject, !isObject, nullptr);
        ++depth;
        return go;
    }
    bool close() {
        --depth;
        if (depth == 2 && inEntry) {
            inEntry = false;
            if (!summary && entrySessionId == sessionId && entrySummary && !entrySummary->empty()) {
                summary = std::move(entrySummary);
            }
        } else if (depth == 1 && inEntries) {
            inEntries = false;
        }
        return true;
    }

    bool null() { return value(false, false, nullptr); }
    bool boolean(bool) { return value(false, false, nullptr); }
    bool number_integer(Json::number_integer_t) { return value(false, false, nullptr); }
    bool number_unsigned(Json::number_unsigned_t) { return value(false, false, nullptr); }
    bool number_float(Json::number_float_t, const Json::string_t&) { return value(false, false, nullptr); }
    bool string(Json::string_t& text) { return value(false, false, &text); }
    bool binary(Json::binary_t&) { return value(false, false, nullptr); }
    bool start_object(std::size_t) { return open(true); }
    bool start_array(std::size_t) { return open(false); }
    bool end_object() { return close(); }
    bool end_array() { return close(); }
    bool key(Json::string_t& name) {
        if (depth == 1) entriesNext = name == "entries";
        if (depth == 3 && inEntry) {
            field = name == "sessionId" ? Field::sessionId : name == "summary" ? Field::summary : Field::other;
        }
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) { return false; }

    std::optional<std::string> result() const { return entriesUsable ? summary : std::nullopt; }
};

}  // namespace

std::optional<std::string> extractLastAssistantMessage(const std::string& path) {
    return extractLastAssistantMessage(path, TranscriptLimits{});
}

std::optional<std::string> extractLastAssistantMessage(const std::string& path, const TranscriptLimits& limits) {
    const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(path);
    if (!file) return std::nullopt;
    std::optional<std::string> message = lastAssistantText(*file, limits);
    if (!message) return std::nullopt;
    const ForwardScan* scan = forwardScanOf(path, *file, limits);
    if (scan == nullptr || !scan->validUtf8) return std::nullopt;
    return message;
}

std::optional<std::string> customTitleOfTranscript(const std::string& path, const TranscriptLimits& limits) {
    const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(path);
    if (!file) return std::nullopt;
    const ForwardScan* scan = forwardScanOf(path, *file, limits);
    if (scan == nullptr || !scan->validUtf8) return std::nullopt;
    return scan->title;
}

std::optional<std::string> latestCustomTitle(std::string_view transcript) {
    std::optional<std::string> title;
    collectCustomTitles(transcript, transcript.size(), title);
    return title;
}

std::optional<std::string> indexSummary(std::string_view index, const std::string& sessionId) {
    IndexSummaryReader reader{sessionId};
    if (!text::Json::sax_parse(index.begin(), index.end(), &reader)) return std::nullopt;
    return reader.result();
}

std::optional<std::string> indexSummaryOfFile(const std::string& path, const std::string& sessionId,
                                              const TranscriptLimits& limits) {
    const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(path);
    if (!file || file->size() > limits.longestLine) return std::nullopt;
    ChunkedBytes bytes{*file, std::vector<char>(std::max<std::size_t>(limits.chunk, 1))};
    IndexSummaryReader reader{sessionId};
    const bool parsed = text::Json::sax_parse(FileBytes(bytes), FileBytes(), &reader);
    if (!parsed || bytes.failed) return std::nullopt;
    return reader.result();
}

std::string projectDirectory(const std::string& home, std::string_view cwd) {
    std::string folder(cwd);
    for (char& c : folder) {
        if (c == '/') c = '-';
    }
    std::string base = home;
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    if (base != "/") base.push_back('/');
    return base + ".claude/projects/" + folder;
}

std::optional<std::string> getSessionTitle(const std::string& sessionId, const std::string& cwd,
                                           const std::optional<std::string>& transcriptPath) {
    if (cwd.empty() || sessionId.empty()) return std::nullopt;
    const std::string home = platform::homeDirectory();
    if (home.empty()) return std::nullopt;
    std::string directory = projectDirectory(home, cwd);
    if (transcriptPath && !platform::fileExists(directory)) {
        const std::size_t slash = transcriptPath->rfind('/');
        if (slash != std::string::npos && slash > 0) directory = transcriptPath->substr(0, slash);
    }
    if (std::optional<std::string> title = customTitleOfTranscript(directory + "/" + sessionId + ".jsonl")) {
        return title;
    }
    return indexSummaryOfFile(directory + "/sessions-index.json", sessionId);
}

}  // namespace AgentHook::Claude
