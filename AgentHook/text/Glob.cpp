#include "text/Glob.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <utf8proc.h>
#include <vector>

#include "text/Utf8.hpp"

namespace AgentHook::text {

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

unsigned char byteAt(std::string_view text, std::size_t i) { return static_cast<unsigned char>(text[i]); }

bool isCodePointStart(std::string_view text, std::size_t i) {
    return i >= text.size() || (byteAt(text, i) & 0xC0) != 0x80;
}

std::size_t codePointEnd(std::string_view text, std::size_t i) {
    do ++i;
    while (!isCodePointStart(text, i));
    return i;
}

// Length of the line terminator at text[i], 0 when there is none: the
// characters a regular expression's "." refuses (LF, VT, FF, CR, NEL, LINE
// SEPARATOR, PARAGRAPH SEPARATOR).
std::size_t terminatorAt(std::string_view text, std::size_t i) {
    const unsigned char c = byteAt(text, i);
    if (c >= 0x0A && c <= 0x0D) return 1;
    if (c == 0xC2) return i + 1 < text.size() && byteAt(text, i + 1) == 0x85 ? 2 : 0;
    if (c == 0xE2 && i + 2 < text.size() && byteAt(text, i + 1) == 0x80 &&
        (byteAt(text, i + 2) == 0xA8 || byteAt(text, i + 2) == 0xA9)) {
        return 3;
    }
    return 0;
}

std::size_t clusterEndSlow(std::string_view text, std::size_t i) {
    long previous = decodeCodePoint(text, i);
    utf8proc_int32_t state = 0;
    while (i < text.size()) {
        const std::size_t start = i;
        const long current = decodeCodePoint(text, i);
        if (previous < 0 || current < 0 ||
            utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(previous),
                                             static_cast<utf8proc_int32_t>(current), &state)) {
            return start;
        }
        previous = current;
    }
    return i;
}

// End of the user-perceived character that starts at text[i], segmenting
// from there.
inline std::size_t clusterEnd(std::string_view text, std::size_t i) {
    // ASCII followed by ASCII is always a break, except CR LF.
    if (byteAt(text, i) < 0x80 && text[i] != '\r' && (i + 1 == text.size() || byteAt(text, i + 1) < 0x80)) {
        return i + 1;
    }
    return clusterEndSlow(text, i);
}

// "$" matches at the end and also before one final line terminator (CR LF
// counting as one, so never between its two halves).
std::size_t endBeforeFinalTerminator(std::string_view text) {
    const std::size_t n = text.size();
    if (text.ends_with("\r\n")) return n - 2;
    for (std::size_t length = 1; length <= 3 && length <= n; ++length) {
        if (terminatorAt(text, n - length) == length) return n - length;
    }
    return kNone;
}

enum class Kind {
    literal,        // its bytes
    anyCharacter,   // "?": one code point (what a regular expression's "." takes), not a line terminator
    star,           // "*": [^/]*
    doubleStar,     // "**": .*, so no line terminator
};

struct Token {
    Kind kind;
    std::string_view literal;
};

std::vector<Token> tokenize(std::string_view pattern) {
    std::vector<Token> tokens;
    const auto clusterAt = [&](std::size_t i) {
        return i < pattern.size() ? pattern.substr(i, clusterEnd(pattern, i) - i) : std::string_view();
    };
    std::size_t i = 0;
    while (i < pattern.size()) {
        const std::string_view cluster = clusterAt(i);
        i += cluster.size();
        if (cluster == "*" && clusterAt(i) == "*") {
            tokens.push_back({Kind::doubleStar, {}});
            ++i;
            if (clusterAt(i) == "/") ++i;
        } else if (cluster == "*") {
            tokens.push_back({Kind::star, {}});
        } else if (cluster == "?") {
            tokens.push_back({Kind::anyCharacter, {}});
        } else {
            tokens.push_back({Kind::literal, cluster});
        }
    }
    return tokens;
}

// Whether text[i] belongs to a line terminator ("**" may take none of its bytes).
bool inTerminator(std::string_view text, std::size_t i) {
    const unsigned char c = byteAt(text, i);
    if (c < 0x80) return c >= 0x0A && c <= 0x0D;
    return terminatorAt(text, i) || (i >= 1 && terminatorAt(text, i - 1) >= 2) || (i >= 2 && terminatorAt(text, i - 2) == 3);
}

// The glob runs as a bit-parallel automaton over the bytes of the target,
// one bit per pattern element (a literal byte, "*", "**" or "?"): bit j is
// set when the elements before j have matched the text so far, and bit M,
// after the last element, accepts. Every byte costs a few word operations,
// whatever the pattern, and stretches where no bit can change (only stars
// active, no literal byte they wait for) are skipped with a byte scan.
using Word = std::uint64_t;

template <std::size_t W>
struct Bits {
    std::array<Word, W> words{};

    void set(std::size_t i) { words[i / 64] |= Word{1} << (i % 64); }
    bool test(std::size_t i) const { return (words[i / 64] >> (i % 64)) & 1; }
    bool any() const {
        Word all = 0;
        for (const Word w : words) all |= w;
        return all != 0;
    }
    bool operator==(const Bits& other) const {
        Word difference = 0;
        for (std::size_t w = 0; w < W; ++w) difference |= words[w] ^ other.words[w];
        return difference == 0;
    }
    Bits operator&(const Bits& other) const {
        Bits result;
        for (std::size_t w = 0; w < W; ++w) result.words[w] = words[w] & other.words[w];
        return result;
    }
    Bits& operator|=(const Bits& other) {
        for (std::size_t w = 0; w < W; ++w) words[w] |= other.words[w];
        return *this;
    }
    // With every run of stars these reach taken as matching nothing: a set
    // bit in a run of `stars` also sets the rest of the run and the element
    // after it, which is what the carry of an addition does.
    Bits closedOver(const Bits& stars) const {
        Bits result;
        Word carry = 0;
        for (std::size_t w = 0; w < W; ++w) {
            const Word partial = stars.words[w] + (words[w] & stars.words[w]);
            const Word sum = partial + carry;
            carry = (partial < stars.words[w]) | (sum < partial);
            result.words[w] = words[w] | (sum ^ stars.words[w]);
        }
        return result;
    }
    // The bits of the elements right after these.
    Bits next() const {
        Bits result;
        Word carry = 0;
        for (std::size_t w = 0; w < W; ++w) {
            result.words[w] = (words[w] << 1) | carry;
            carry = words[w] >> 63;
        }
        return result;
    }
};

template <std::size_t W>
class Automaton {
public:
    Automaton(const std::vector<Token>& tokens, std::string_view text) : text_(text) {
        for (const Token& token : tokens) {
            if (token.kind == Kind::literal) {
                for (const char c : token.literal) {
                    literals_.set(accept_);
                    byByte_[static_cast<unsigned char>(c)].set(accept_);
                    elementBytes_.push_back(static_cast<unsigned char>(c));
                    ++accept_;
                }
                continue;
            }
            (token.kind == Kind::star ? slashStars_ : token.kind == Kind::doubleStar ? lineStars_ : anyCharacters_)
                .set(accept_);
            elementBytes_.push_back(0);
            ++accept_;
        }
        stars_ = slashStars_;
        stars_ |= lineStars_;
        hasAny_ = anyCharacters_.any();
        for (std::size_t c = 0; c < 256; ++c) {
            if (c != '/') keep_[c] |= slashStars_;
            if (c < 0x0A || c > 0x0D) keep_[c] |= lineStars_;
        }
        // Bytes that end "**" or not depending on their neighbours: the lead
        // and continuation bytes of NEL, LINE and PARAGRAPH SEPARATOR.
        for (const unsigned char c : {0xC2, 0xE2, 0x80, 0x85, 0xA8, 0xA9}) contextual_[c] = true;
    }

    bool matches() {
        const std::size_t n = text_.size();
        const std::size_t beforeTerminator = endBeforeFinalTerminator(text_);
        Bits<W> state;
        state.set(0);
        closeOverStars(state);
        bool held = false;  // the state did not change over the last byte
        for (std::size_t p = 0;;) {
            if ((p == n || p == beforeTerminator) && state.test(accept_)) return true;
            if (p == n) return false;
            const std::size_t stop = beforeTerminator != kNone && beforeTerminator > p ? beforeTerminator : n;
            if (pendingUntil_ <= p) {
                if (!state.any()) return false;
                // A state that holds may be steady: then only the bytes in its
                // table can change it. Tables are built at most every 64
                // bytes, so that states that come and go cost little.
                if (held && !(state == steady_) && p >= nextTable_) {
                    nextTable_ = p + 64;
                    if (isSteady(state)) buildTable(state);
                }
                if (state == steady_ && !interesting_[byteAt(text_, p)]) {
                    p = nextByteThatMatters(p, stop);
                    held = true;
                    continue;
                }
            }
            // Run until the state holds where a table may help, or a
            // position where the match may end.
            do {
                const Bits<W> next = step(state, p++);
                held = next == state;
                state = next;
            } while (p < stop && !(held && (state == steady_ || p >= nextTable_)) &&
                     (state.any() || pendingUntil_ > p));
        }
    }

private:
    // The stars and literal bytes over text[p], without "?" and arrivals.
    Bits<W> advance(const Bits<W>& state, unsigned char c, bool terminator) const {
        Bits<W> next = (state & byByte_[c]).next();
        next |= state & (terminator ? slashStars_ : keep_[c]);
        return next;
    }

    Bits<W> step(const Bits<W>& state, std::size_t p) {
        const unsigned char c = byteAt(text_, p);
        Bits<W> next = advance(state, c, contextual_[c] && inTerminator(text_, p));
        if (hasAny_) {
            const Bits<W> any = state & anyCharacters_;
            if (any.any() && isCodePointStart(text_, p) && !terminatorAt(text_, p)) {
                const std::size_t end = codePointEnd(text_, p);
                if (end == p + 1) {
                    next |= any.next();
                } else {
                    schedule(p, end, any.next());
                }
            }
        }
        if (pendingUntil_ > p) {
            Bits<W>& slot = ring_[(p + 1) % kRing];
            next |= slot;
            slot = {};
            if (!far_.empty() && far_.begin()->first == p + 1) {
                next |= far_.begin()->second;
                far_.erase(far_.begin());
            }
        }
        closeOverStars(next);
        return next;
    }

    // "?" over a character of several bytes: its result waits until the walk
    // reaches the character's end.
    void schedule(std::size_t p, std::size_t at, const Bits<W>& bits) {
        (at - p < kRing ? ring_[at % kRing] : far_[at]) |= bits;
        pendingUntil_ = std::max(pendingUntil_, at);
    }

    // A star may match nothing: reaching it reaches the element after it too.
    void closeOverStars(Bits<W>& state) const { state = state.closedOver(stars_); }

    // Only stars and what they reach by matching nothing: such a state
    // changes only where a star stops or an awaited literal byte comes.
    bool isSteady(const Bits<W>& state) const {
        if ((state & anyCharacters_).any()) return false;
        Bits<W> closed = state & stars_;
        closeOverStars(closed);
        return closed == state;
    }

    void buildTable(const Bits<W>& state) {
        steady_ = state;
        interesting_.fill(false);
        interestingCount_ = 0;
        const auto check = [&](unsigned char c) {
            if (interesting_[c]) return;
            Bits<W> next = advance(state, c, false);
            closeOverStars(next);
            if (next == state && !(contextual_[c] && (state & lineStars_).any())) return;
            interesting_[c] = true;
            ++interestingCount_;
            onlyInteresting_ = static_cast<char>(c);
        };
        // Any other byte keeps every star and starts no awaited literal.
        for (const unsigned char c : {0x0A, 0x0B, 0x0C, 0x0D, 0xC2, 0xE2, 0x80, 0x85, 0xA8, 0xA9}) check(c);
        check('/');
        const Bits<W> awaited = state & literals_;
        for (std::size_t w = 0; w < W; ++w) {
            for (Word bits = awaited.words[w]; bits; bits &= bits - 1) {
                check(elementBytes_[w * 64 + static_cast<std::size_t>(std::countr_zero(bits))]);
            }
        }
    }

    std::size_t nextByteThatMatters(std::size_t p, std::size_t stop) const {
        if (interestingCount_ == 0) return stop;
        if (interestingCount_ == 1) {
            const void* hit = std::memchr(text_.data() + p, onlyInteresting_, stop - p);
            return hit ? static_cast<std::size_t>(static_cast<const char*>(hit) - text_.data()) : stop;
        }
        while (p < stop && !interesting_[byteAt(text_, p)]) ++p;
        return p;
    }

    static constexpr std::size_t kRing = 64;

    std::string_view text_;
    std::size_t accept_ = 0;
    bool hasAny_ = false;
    std::array<Bits<W>, 256> byByte_{};  // the literal elements of each byte value
    std::array<Bits<W>, 256> keep_{};    // the stars each byte value lets keep their state
    std::array<bool, 256> contextual_{};
    Bits<W> literals_, slashStars_, lineStars_, stars_, anyCharacters_;
    std::vector<unsigned char> elementBytes_;
    std::array<Bits<W>, kRing> ring_{};
    std::map<std::size_t, Bits<W>> far_;  // characters longer than the ring
    std::size_t pendingUntil_ = 0;
    Bits<W> steady_;  // the state the table is for
    std::size_t nextTable_ = 0;
    std::array<bool, 256> interesting_{};
    std::size_t interestingCount_ = 0;
    char onlyInteresting_ = 0;
};

template <std::size_t W>
bool runAutomaton(const std::vector<Token>& tokens, std::string_view text) {
    // Kept on the heap: the tables grow with the pattern.
    return std::make_unique<Automaton<W>>(tokens, text)->matches();
}

}  // namespace

bool globMatch(std::string_view pattern, std::string_view path) {
    // Longer than any path a rule can name: refused, so the user is asked.
    // (Stars make a pattern longer than what it matches, so counting its
    // elements alone would let some through.)
    if (pattern.size() > 4095) return false;
    const std::vector<Token> tokens = tokenize(pattern);
    std::size_t elements = 0;
    for (const Token& token : tokens) elements += token.kind == Kind::literal ? token.literal.size() : 1;
    // One bit per element and one to accept, in as few words as fit.
    const std::size_t bits = elements + 1;
    if (bits <= 64) return runAutomaton<1>(tokens, path);
    if (bits <= 128) return runAutomaton<2>(tokens, path);
    if (bits <= 256) return runAutomaton<4>(tokens, path);
    if (bits <= 1024) return runAutomaton<16>(tokens, path);
    return runAutomaton<64>(tokens, path);
}

}  // namespace AgentHook::text
