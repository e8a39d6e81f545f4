#include "runtime/Glob.hpp"

#include <algorithm>
#include <boost/url/parse.hpp>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utf8proc.h>

#include "text/Utf8.hpp"

namespace AgentHook {

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

unsigned char byteAt(std::string_view text, std::size_t i) { return static_cast<unsigned char>(text[i]); }

bool isCodePointStart(std::string_view text, std::size_t i) {
    return i >= text.size() || (byteAt(text, i) & 0xC0) != 0x80;
}

std::size_t nextCodePoint(std::string_view text, std::size_t i) {
    text::decodeCodePoint(text, i);
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

// End of the user-perceived character that starts at text[i], segmenting
// from there.
std::size_t clusterEnd(std::string_view text, std::size_t i) {
    // ASCII followed by ASCII is always a break, except CR LF.
    if (byteAt(text, i) < 0x80 && text[i] != '\r' && (i + 1 == text.size() || byteAt(text, i + 1) < 0x80)) {
        return i + 1;
    }
    long previous = text::decodeCodePoint(text, i);
    utf8proc_int32_t state = 0;
    while (i < text.size()) {
        const std::size_t start = i;
        const long current = text::decodeCodePoint(text, i);
        if (previous < 0 || current < 0 ||
            utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(previous),
                                             static_cast<utf8proc_int32_t>(current), &state)) {
            return start;
        }
        previous = current;
    }
    return i;
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
    anyCharacter,   // "?": one user-perceived character, not a line terminator
    star,           // "*": [^/]*
    doubleStar,     // "**": .*, so no line terminator
};

struct Token {
    Kind kind;
    std::string_view literal;
};

bool isStar(Kind kind) { return kind == Kind::star || kind == Kind::doubleStar; }

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
        } else if (!tokens.empty() && tokens.back().kind == Kind::literal) {
            // Literal runs are contiguous in the pattern: one token, one comparison.
            tokens.back().literal = {tokens.back().literal.data(), tokens.back().literal.size() + cluster.size()};
        } else {
            tokens.push_back({Kind::literal, cluster});
        }
    }
    return tokens;
}

// The first position at or after `from` that a star cannot pass ("/" for
// "*", a line terminator for "**"), or the end. The last answer is kept:
// within a step the questions come in order and mostly fall in it.
struct StarLimit {
    std::string_view text;
    Kind kind;
    std::size_t knownFrom = kNone;
    std::size_t knownLimit = kNone;

    std::size_t from(std::size_t position) {
        if (knownFrom <= position && position <= knownLimit) return knownLimit;
        knownFrom = position;
        knownLimit = kind == Kind::star ? scanForSlash(position) : scanForTerminator(position);
        return knownLimit;
    }

    std::size_t scanForSlash(std::size_t i) const {
        const void* hit = std::memchr(text.data() + i, '/', text.size() - i);
        return hit ? static_cast<std::size_t>(static_cast<const char*>(hit) - text.data()) : text.size();
    }

    std::size_t scanForTerminator(std::size_t i) const {
        while (i < text.size()) {
            // Skip 8 bytes at a time while all are ASCII above CR.
            if (text.size() - i >= 8) {
                std::uint64_t block;
                std::memcpy(&block, text.data() + i, 8);
                if ((((block - 0x0E0E0E0E0E0E0E0EULL) | block) & 0x8080808080808080ULL) == 0) {
                    i += 8;
                    continue;
                }
            }
            if (terminatorAt(text, i)) return i;
            ++i;
        }
        return text.size();
    }
};

// A run of positions the match can reach: every code point start in
// [begin, end]. A step maps a sorted list of disjoint spans to the next.
struct Span {
    std::size_t begin;
    std::size_t end;
};

struct Spans {
    std::string_view text;
    std::vector<Span> list;
    bool sorted = true;

    void add(Span span) {
        if (!list.empty()) {
            Span& last = list.back();
            if (span.begin < last.begin) {
                sorted = false;
            } else if (span.begin <= last.end ||
                       (last.end < text.size() && span.begin == nextCodePoint(text, last.end))) {
                last.end = std::max(last.end, span.end);
                return;
            }
        }
        list.push_back(span);
    }

    // Grapheme clusters segmented from different starts need not end in order.
    void normalize() {
        if (sorted) return;
        std::vector<Span> unsorted;
        unsorted.swap(list);
        std::sort(unsorted.begin(), unsorted.end(), [](Span a, Span b) { return a.begin < b.begin; });
        sorted = true;
        for (const Span span : unsorted) add(span);
    }

    bool contains(std::size_t position) const {
        return std::any_of(list.begin(), list.end(),
                           [&](Span span) { return span.begin <= position && position <= span.end; });
    }
};

// One step: the positions reached after `token` from those in `current`.
// When a star follows, it is taken in the same step (`follower`), so that of
// all the matches of a literal only those that widen the reach are kept.
void step(const Token& token, StarLimit* follower, StarLimit* limits, const Spans& current, Spans& next) {
    const std::string_view text = current.text;
    const auto reach = [&](std::size_t position) {
        next.add({position, follower ? follower->from(position) : position});
    };
    std::size_t resume = 0;
    for (const Span& span : current.list) {
        std::size_t p = std::max(span.begin, resume);
        switch (token.kind) {
        case Kind::star:
        case Kind::doubleStar:
            next.add({span.begin, limits[token.kind == Kind::doubleStar].from(span.end)});
            break;
        case Kind::literal: {
            const std::string_view literal = token.literal;
            while (p <= span.end) {
                const std::size_t windowEnd = std::min(text.size(), span.end + literal.size());
                if (windowEnd < p + literal.size()) break;
                const std::size_t hit = text.substr(p, windowEnd - p).find(literal);
                if (hit == std::string_view::npos) break;
                const std::size_t start = p + hit;
                const std::size_t end = start + literal.size();
                p = start + 1;
                if (!isCodePointStart(text, start) || !isCodePointStart(text, end)) continue;
                reach(end);
                // Later matches that end before the star's limit add nothing.
                if (follower) p = std::max(p, next.list.back().end + 1 - literal.size());
            }
            break;
        }
        case Kind::anyCharacter:
            while (p <= span.end && p < text.size()) {
                if (const std::size_t terminator = terminatorAt(text, p)) {
                    p += terminator;
                    continue;
                }
                reach(clusterEnd(text, p));
                p = nextCodePoint(text, p);
            }
            break;
        }
        resume = p;
    }
    next.normalize();
}

std::optional<std::string> urlHost(std::string_view text) {
    // An absolute URL only: a relative reference ("//host/path") has no
    // scheme and counts as no URL, which is the cautious reading for a rule
    // that lets a request through. The host is percent-decoded, as URL.host
    // reports it on Apple's platforms ("ex%61mple.com" is "example.com"), and
    // an IPv6 literal comes without its brackets. An empty host is no host.
    const auto url = boost::urls::parse_uri(text);
    if (!url || !url->has_authority()) return std::nullopt;
    std::string host = url->host_address();
    if (host.empty()) return std::nullopt;
    return host;
}

bool endsOnCharacterBoundary(std::string_view text, std::size_t length) {
    std::size_t i = 0;
    while (i < length) i = clusterEnd(text, i);
    return i == length;
}

bool ruleMatches(std::string_view rule, std::string_view target) {
    constexpr std::string_view domainPrefix = "domain:";
    if (rule.starts_with(domainPrefix)) {
        const std::optional<std::string> host = urlHost(target);
        return host && *host == rule.substr(domainPrefix.size());
    }
    if (rule.starts_with("//")) return globMatch(rule.substr(1), target);
    // Character for character: "cafe" is no prefix of "cafe" + COMBINING ACUTE.
    return target.starts_with(rule) && endsOnCharacterBoundary(target, rule.size());
}

}  // namespace

bool globMatch(std::string_view pattern, std::string_view path) {
    const std::vector<Token> tokens = tokenize(pattern);
    StarLimit limits[] = {{path, Kind::star}, {path, Kind::doubleStar}};
    Spans current{path, {{0, 0}}};
    Spans next{path, {}};
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        StarLimit* follower = nullptr;
        if (!isStar(tokens[i].kind) && i + 1 < tokens.size() && isStar(tokens[i + 1].kind)) {
            follower = &limits[tokens[i + 1].kind == Kind::doubleStar];
        }
        next.list.clear();
        step(tokens[i], follower, limits, current, next);
        if (follower) ++i;
        if (next.list.empty()) return false;
        std::swap(current, next);
    }
    const std::size_t beforeTerminator = endBeforeFinalTerminator(path);
    return current.contains(path.size()) || (beforeTerminator != kNone && current.contains(beforeTerminator));
}

bool matchesAutoAcceptRules(const std::vector<std::string>& rules, std::string_view target,
                            std::string_view /*toolName*/) {
    if (std::find(rules.begin(), rules.end(), "*") != rules.end()) return true;
    if (target.empty()) return false;
    return std::any_of(rules.begin(), rules.end(), [&](const std::string& rule) { return ruleMatches(rule, target); });
}

}  // namespace AgentHook
