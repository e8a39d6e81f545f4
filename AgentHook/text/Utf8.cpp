#include "text/Utf8.hpp"

#include <cstdint>
#include <cstring>
#include <utf8proc.h>

namespace AgentHook::text {

bool isValidUtf8(std::string_view bytes) {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* end = p + bytes.size();
    while (p < end) {
        // ASCII runs are the common case in transcripts: take 32, then 8 bytes at a time.
        if (end - p >= 32) {
            std::uint64_t blocks[4];
            std::memcpy(blocks, p, 32);
            if (((blocks[0] | blocks[1] | blocks[2] | blocks[3]) & 0x8080808080808080ULL) == 0) {
                p += 32;
                continue;
            }
        }
        if (end - p >= 8) {
            std::uint64_t block;
            std::memcpy(&block, p, 8);
            if ((block & 0x8080808080808080ULL) == 0) {
                p += 8;
                continue;
            }
        }
        const unsigned char lead = *p;
        if (lead < 0x80) {
            ++p;
            continue;
        }
        std::size_t length;
        unsigned char low = 0x80, high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;  // no surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        } else {
            return false;
        }
        if (static_cast<std::size_t>(end - p) < length) return false;
        if (p[1] < low || p[1] > high) return false;
        for (std::size_t i = 2; i < length; ++i) {
            if ((p[i] & 0xC0) != 0x80) return false;
        }
        p += length;
    }
    return true;
}

long decodeCodePoint(std::string_view text, std::size_t& index) {
    utf8proc_int32_t codePoint = -1;
    const utf8proc_ssize_t length = utf8proc_iterate(
        reinterpret_cast<const utf8proc_uint8_t*>(text.data() + index),
        static_cast<utf8proc_ssize_t>(text.size() - index), &codePoint);
    if (length <= 0) {
        ++index;
        return -1;
    }
    index += static_cast<std::size_t>(length);
    return codePoint;
}

namespace {

// Walks grapheme clusters; returns the byte offset after `limit` clusters
// (or the end) and the number of clusters passed.
std::size_t walkClusters(std::string_view text, std::size_t limit, std::size_t& clusters) {
    clusters = 0;
    std::size_t index = 0;
    utf8proc_int32_t state = 0;
    long previous = -1;
    while (index < text.size()) {
        const std::size_t start = index;
        // ASCII after ASCII always starts a new character, but for CR LF;
        // most text is ASCII, and this spares the Unicode tables.
        const auto byte = static_cast<unsigned char>(text[index]);
        if (byte < 0x80 && previous >= 0 && previous < 0x80 && !(previous == '\r' && byte == '\n')) {
            if (clusters == limit) return start;
            ++clusters;
            previous = byte;
            state = 0;
            ++index;
            continue;
        }
        const long current = decodeCodePoint(text, index);
        if (previous < 0 || current < 0 ||
            utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(previous),
                                             static_cast<utf8proc_int32_t>(current), &state)) {
            if (clusters == limit) return start;
            ++clusters;
        }
        previous = current;
    }
    return index;
}

}  // namespace

std::size_t characterCount(std::string_view text) {
    std::size_t clusters = 0;
    walkClusters(text, static_cast<std::size_t>(-1), clusters);
    return clusters;
}

std::string_view characterPrefix(std::string_view text, std::size_t count) {
    std::size_t clusters = 0;
    return text.substr(0, walkClusters(text, count, clusters));
}

bool isCharacterBoundary(std::string_view text, std::size_t offset) {
    if (offset == 0 || offset == text.size()) return true;
    if (offset > text.size()) return false;
    // The breaks before `offset` are the same in the prefix as in the whole
    // text: the prefix's characters end there exactly when the text's do.
    return characterPrefix(text, characterCount(text.substr(0, offset))).size() == offset;
}

std::string lowercased(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    std::size_t index = 0;
    while (index < text.size()) {
        const std::size_t start = index;
        const long codePoint = decodeCodePoint(text, index);
        if (codePoint < 0) {
            result.append(text.substr(start, index - start));
        } else if (codePoint < 0x80) {
            char c = static_cast<char>(codePoint);
            result.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
        } else if (codePoint == 0x130) {
            // The one unconditional full mapping that differs from the simple one.
            result.append("i\xCC\x87");
        } else {
            utf8proc_uint8_t buffer[4];
            const utf8proc_ssize_t length =
                utf8proc_encode_char(utf8proc_tolower(static_cast<utf8proc_int32_t>(codePoint)), buffer);
            result.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
        }
    }
    return result;
}

bool isWhitespaceOrNewline(long codePoint) {
    if (codePoint < 0) return false;
    if ((codePoint >= 0x09 && codePoint <= 0x0D) || codePoint == 0x20 || codePoint == 0x85) return true;
    if (codePoint < 0x80) return false;
    const utf8proc_category_t category = utf8proc_category(static_cast<utf8proc_int32_t>(codePoint));
    return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
           category == UTF8PROC_CATEGORY_ZP;
}

namespace {

bool isNewline(long codePoint) {
    return (codePoint >= 0x0A && codePoint <= 0x0D) || codePoint == 0x85 || codePoint == 0x2028 || codePoint == 0x2029;
}

}  // namespace

std::string_view trimmed(std::string_view text) { return trimmedWhere(text, isWhitespaceOrNewline); }

std::string_view trimmedNewlines(std::string_view text) { return trimmedWhere(text, isNewline); }

std::string_view trimmedWhere(std::string_view text, bool (*trim)(long codePoint)) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t next = begin;
        if (!trim(decodeCodePoint(text, next))) break;
        begin = next;
    }
    std::size_t end = text.size();
    while (end > begin) {
        // Step back to the start of the last code point.
        std::size_t start = end - 1;
        while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
        std::size_t next = start;
        if (!trim(decodeCodePoint(text, next)) || next != end) break;
        end = start;
    }
    return text.substr(begin, end - begin);
}

std::string withReplacementCharacters(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t index = 0; index < text.size();) {
        const std::size_t start = index;
        if (decodeCodePoint(text, index) < 0) {
            result += "\xEF\xBF\xBD";
        } else {
            result.append(text.substr(start, index - start));
        }
    }
    return result;
}

}  // namespace AgentHook::text
