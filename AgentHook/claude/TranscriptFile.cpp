#include "claude/TranscriptFile.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "claude/ClaudeHookInput.hpp"
#include "claude/TranscriptLines.hpp"
#include "text/Utf8Stream.hpp"

namespace AgentHook::Claude {
namespace {

// ---------------------------------------------------------------------------
// The forward pass.

// Lines are handed on in runs of whole lines as they complete; the start of
// a line not yet complete moves to the front of the buffer, which grows to
// hold it up to the longest line allowed. Past that the line is dropped
// until its end.
std::optional<TranscriptPass> readForward(const platform::ReadOnlyFile& file, const TranscriptLimits& limits) {
    const std::size_t chunk = std::max<std::size_t>(limits.chunk, 1);
    const std::size_t largest = std::min(limits.longestLine, SIZE_MAX - chunk) + chunk;
    std::vector<char> buffer(chunk);
    text::Utf8Stream utf8;
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
        text::feedUtf8(utf8, std::string_view(buffer.data() + kept, *read));

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
    return TranscriptPass{file.identity(), limits.longestLine, text::finishUtf8(utf8), std::move(title)};
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

}  // namespace

std::optional<std::string> extractLastAssistantMessage(const std::string& path, const TranscriptLimits& limits,
                                                       std::optional<TranscriptPass>* pass) {
    const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(path);
    if (!file) return std::nullopt;
    std::optional<std::string> message = lastAssistantText(*file, limits);
    if (!message) return std::nullopt;
    std::optional<TranscriptPass> made = readForward(*file, limits);
    const bool valid = made && made->validUtf8;
    if (pass != nullptr) *pass = std::move(made);
    if (!valid) return std::nullopt;
    return message;
}

std::optional<std::string> customTitleOfTranscript(const std::string& path, const TranscriptLimits& limits,
                                                   const std::optional<TranscriptPass>& earlier) {
    const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(path);
    if (!file) return std::nullopt;
    if (earlier && earlier->file == file->identity() && earlier->longestLine == limits.longestLine) {
        if (!earlier->validUtf8) return std::nullopt;
        return earlier->title;
    }
    std::optional<TranscriptPass> pass = readForward(*file, limits);
    if (!pass || !pass->validUtf8) return std::nullopt;
    return std::move(pass->title);
}

}  // namespace AgentHook::Claude
