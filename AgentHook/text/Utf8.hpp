// UTF-8 text helpers. Character counts and cuts are of user-perceived
// characters (extended grapheme clusters), so no character is split.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace AgentHook::text {

bool isValidUtf8(std::string_view bytes);

// Number of grapheme clusters in valid UTF-8 text.
std::size_t characterCount(std::string_view text);

// The first `count` grapheme clusters of valid UTF-8 text (all of it when shorter).
std::string_view characterPrefix(std::string_view text, std::size_t count);

// True when `offset` falls between two user-perceived characters of `text`
// (or at either end): "cafe" is no whole-character prefix of "cafe" + a
// combining accent.
bool isCharacterBoundary(std::string_view text, std::size_t offset);

// Full Unicode lower-case mapping; bytes that are not valid UTF-8 pass through.
std::string lowercased(std::string_view text);

// Unicode white space and newlines (the White_Space property); false for -1.
bool isWhitespaceOrNewline(long codePoint);

// Without leading and trailing Unicode white space and newlines.
std::string_view trimmed(std::string_view text);

// Without leading and trailing line breaks (LF, VT, FF, CR, NEL, U+2028,
// U+2029); blanks and tabs are kept.
std::string_view trimmedNewlines(std::string_view text);

// Without the leading and trailing code points for which `trim` is true.
std::string_view trimmedWhere(std::string_view text, bool (*trim)(long codePoint));

// Decodes one code point at `text[index]`, advancing `index`; -1 (and one
// byte) for an invalid sequence.
long decodeCodePoint(std::string_view text, std::size_t& index);

// The text with every byte that is not part of valid UTF-8 replaced by U+FFFD.
std::string withReplacementCharacters(std::string_view text);

// The value of a hexadecimal digit, or -1.
constexpr int hexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace AgentHook::text
