#include "claude/Transcript.hpp"

#include <cstring>
#include <set>

#include "claude/ClaudeHookInput.hpp"
#include "platform/Environment.hpp"
#include "platform/Files.hpp"
#include "text/Json.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {
namespace {

// Length of the line separator that ends at `end` (exclusive), 0 when none:
// LF, VT, FF, CR, NEL (C2 85), LINE and PARAGRAPH SEPARATOR (E2 80 A8/A9).
std::size_t separatorEndingAt(std::string_view text, std::size_t end) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char last = byte(end - 1);
    if (last >= 0x0A && last <= 0x0D) return 1;
    if (last == 0x85 && end >= 2 && byte(end - 2) == 0xC2) return 2;
    if ((last == 0xA8 || last == 0xA9) && end >= 3 && byte(end - 2) == 0x80 && byte(end - 3) == 0xE2) return 3;
    return 0;
}

}  // namespace

std::optional<std::string> extractLastAssistantMessage(const std::string& path) {
    if (!platform::fileExists(path)) return std::nullopt;
    const std::optional<platform::FileView> contents = platform::FileView::open(path);
    if (!contents || !text::isValidUtf8(contents->bytes())) return std::nullopt;
    const std::string_view transcript = contents->bytes();

    // Walk the lines from the last to the first; the answer is usually near the end.
    std::size_t lineEnd = transcript.size();
    std::size_t cursor = lineEnd;
    for (;;) {
        std::size_t separator = 0;
        while (cursor > 0 && (separator = separatorEndingAt(transcript, cursor)) == 0) --cursor;
        const std::size_t lineStart = cursor;
        const std::string_view line = transcript.substr(lineStart, lineEnd - lineStart);
        if (!line.empty()) {
            const std::optional<TranscriptEntry> entry = decodeTranscriptEntry(line);
            if (entry && entry->type == "assistant" && entry->message && entry->message->content) {
                std::string message = contentText(*entry->message->content);
                if (!message.empty()) return message;
            }
        }
        if (cursor == 0) break;
        cursor -= separator;
        lineEnd = cursor;
    }
    return std::nullopt;
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

namespace {

// Every character of "custom-title" is ASCII, so an escaped spelling of it
// holds a \u00XX escape.
constexpr std::string_view kEscapedAscii = "\\u00";

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

// Cheap test that keeps JSON parsing off the lines that cannot be a
// custom-title entry: the word must appear, literally or with escapes.
bool mayHoldCustomTitle(std::string_view line) {
    if (line.find("custom-title") != std::string_view::npos) return true;
    if (line.find(kEscapedAscii) == std::string_view::npos) return false;
    for (std::size_t quote = line.find('"'); quote != std::string_view::npos; quote = line.find('"', quote + 1)) {
        if (stringTokenSpells(line, quote, "custom-title")) return true;
    }
    return false;
}

// Start offsets of the lines containing `needle`, searched over the whole text
// at once: far faster than testing line by line.
void collectLinesContaining(std::string_view text, std::string_view needle, std::set<std::size_t>& lineStarts) {
    std::size_t offset = 0;
    while (offset < text.size()) {
        const void* hit = ::memmem(text.data() + offset, text.size() - offset, needle.data(), needle.size());
        if (hit == nullptr) break;
        const std::size_t position = static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
        const std::size_t newline = text.rfind('\n', position);
        const std::size_t start = newline == std::string_view::npos ? 0 : newline + 1;
        lineStarts.insert(start);
        const std::size_t nextNewline = text.find('\n', position);
        if (nextNewline == std::string_view::npos) break;
        offset = nextNewline + 1;
    }
}

}  // namespace

std::optional<std::string> latestCustomTitle(std::string_view transcript) {
    std::set<std::size_t> candidates;
    collectLinesContaining(transcript, "custom-title", candidates);
    collectLinesContaining(transcript, kEscapedAscii, candidates);
    for (auto start = candidates.rbegin(); start != candidates.rend(); ++start) {
        const std::size_t end = transcript.find('\n', *start);
        const std::string_view line =
            transcript.substr(*start, end == std::string_view::npos ? std::string_view::npos : end - *start);
        if (!mayHoldCustomTitle(line)) continue;
        const std::optional<text::Json> entry = text::parseJson(line);
        if (!entry || !entry->is_object() || text::stringMember(*entry, "type") != "custom-title") continue;
        std::optional<std::string> title = text::stringMember(*entry, "customTitle");
        if (title && !title->empty()) return title;
    }
    return std::nullopt;
}

std::optional<std::string> indexSummary(std::string_view index, const std::string& sessionId) {
    const std::optional<text::Json> document = text::parseJson(index);
    if (!document || !document->is_object()) return std::nullopt;
    const auto entries = document->find("entries");
    if (entries == document->end() || !entries->is_array()) return std::nullopt;
    for (const text::Json& entry : *entries) {
        if (!entry.is_object()) return std::nullopt;
    }
    for (const text::Json& entry : *entries) {
        if (text::stringMember(entry, "sessionId") != sessionId) continue;
        std::optional<std::string> summary = text::stringMember(entry, "summary");
        if (summary && !summary->empty()) return summary;
    }
    return std::nullopt;
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

    if (const std::optional<platform::FileView> transcript = platform::FileView::open(directory + "/" + sessionId + ".jsonl")) {
        // A file that is not UTF-8 has no title; checking that only once a
        // title is found spares the check in the common case of none.
        std::optional<std::string> title = latestCustomTitle(transcript->bytes());
        if (title && text::isValidUtf8(transcript->bytes())) return title;
    }
    const std::string indexPath = directory + "/sessions-index.json";
    if (!platform::fileExists(indexPath)) return std::nullopt;
    const std::optional<std::string> index = platform::readFile(indexPath);
    if (!index) return std::nullopt;
    return indexSummary(*index, sessionId);
}

}  // namespace AgentHook::Claude
