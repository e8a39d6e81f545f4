#include "claude/TranscriptLines.hpp"

#include "text/Simd.hpp"
#include "text/Json.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {
namespace {

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

// Where "\u0" stands, or the "c", "-" and "e" of "custom-title" in their
// places: a few candidates per kilobyte, each judged by startsTitleSpelling.
constexpr text::BytePattern kEscape{{{{'\\', 0}, {'u', 1}, {'0', 2}}}};
constexpr text::BytePattern kTitleWord{{{{'c', 0}, {'-', 6}, {'e', 11}}}};

// The first offset from `from` where startsTitleSpelling holds, or npos.
std::size_t nextTitleSpelling(std::string_view text, std::size_t from) {
    return text::findEitherPattern(text, from, kEscape, kTitleWord, startsTitleSpelling);
}

}  // namespace

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

std::optional<std::string> latestCustomTitle(std::string_view transcript) {
    std::optional<std::string> title;
    collectCustomTitles(transcript, transcript.size(), title);
    return title;
}

}  // namespace AgentHook::Claude
