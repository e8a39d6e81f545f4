#include <gtest/gtest.h>

#include <ctime>

#include "platform/Clock.hpp"
#include "text/Json.hpp"
#include "text/Utf8.hpp"
#include "text/Utf8Stream.hpp"

using namespace AgentHook::text;

TEST(Utf8, ValidityFollowsTheEncodingRules) {
    struct Case {
        std::string bytes;
        bool valid;
    };
    const Case cases[] = {
        {"", true},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", true},     // é € 😀
        {"\xFF", false},
        {"\xC0\xAF", false},                                 // overlong "/"
        {"\xED\xA0\x80", false},                             // surrogate
        {"\xF4\x90\x80\x80", false},                         // above U+10FFFF
        {"abc\xE2\x82", false},                              // cut short
        {"abcdefgh\x80", false},                             // stray continuation after a fast block
    };
    for (const Case& c : cases) EXPECT_EQ(isValidUtf8(c.bytes), c.valid) << c.bytes;
}

// An impossible lead byte followed by a continuation is caught wherever it
// falls, whatever the length, including where the wide kernel hands the last
// blocks to the narrow one.
TEST(Utf8, AStreamCatchesAnImpossibleLeadAtEveryPosition) {
    for (std::size_t length = 2; length <= 112; ++length) {
        for (std::size_t at = 0; at + 1 < length; ++at) {
            for (const char lead : {'\xC0', '\xF5', '\xFF'}) {
                std::string bytes(length, 'a');
                bytes[at] = lead;
                bytes[at + 1] = '\x80';  // a continuation, as an overlong form would have
                Utf8Stream whole;
                feedUtf8(whole, bytes);
                Utf8Stream pieces;
                for (std::size_t from = 0; from < length; from += 7) {
                    feedUtf8(pieces, std::string_view(bytes).substr(from, 7));
                }
                ASSERT_FALSE(finishUtf8(whole)) << length << " " << at;
                ASSERT_FALSE(finishUtf8(pieces)) << length << " " << at;
            }
        }
        Utf8Stream valid;
        feedUtf8(valid, std::string(length, 'a'));
        EXPECT_TRUE(finishUtf8(valid));
    }
}

TEST(Utf8, CountsAndCutsUserPerceivedCharacters) {
    struct Case {
        std::string text;
        std::size_t count;
        std::size_t prefixOf2Bytes;
    };
    const Case cases[] = {
        {"", 0, 0},
        {"e\xCC\x81x", 2, 4},                                      // e + combining acute, x
        {"\r\nz", 2, 3},                                           // CR LF is one character
        {"\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7!", 2, 9},               // flag of France, !
        {"\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB.", 2, 12},  // woman technologist (ZWJ), .
    };
    for (const Case& c : cases) {
        EXPECT_EQ(characterCount(c.text), c.count) << c.text;
        EXPECT_EQ(characterPrefix(c.text, 2).size(), c.prefixOf2Bytes) << c.text;
    }
    const std::string long_(1200, 'a');
    EXPECT_EQ(characterPrefix(long_, 500), std::string(500, 'a'));
}

TEST(Utf8, LowerCasesWithTheFullMapping) {
    EXPECT_EQ(lowercased("Co\xC3\x90" "eX"), "co\xC3\xB0" "ex");            // Ð → ð
    EXPECT_EQ(lowercased("GRO\xE2\x84\xAA"), "grok");                        // KELVIN SIGN → k
    EXPECT_EQ(lowercased("\xC4\xB0"), "i\xCC\x87");                          // İ → i + combining dot
    EXPECT_EQ(lowercased("\xFF" "A"), "\xFF" "a");                           // invalid bytes pass through
}

TEST(Utf8, TrimsUnicodeWhitespaceAndNewlines) {
    EXPECT_EQ(trimmed("  Allow\n"), "Allow");
    EXPECT_EQ(trimmed("\xC2\xA0" "deny" "\xE2\x80\xA8"), "deny");  // NBSP, LINE SEPARATOR
    EXPECT_EQ(trimmed("\xC2\x85x\xE3\x80\x80"), "x");              // NEL, IDEOGRAPHIC SPACE
    EXPECT_EQ(trimmed("\xE2\x80\x8Bx"), "\xE2\x80\x8Bx");          // ZERO WIDTH SPACE is not white space
}

TEST(JsonWriter, EscapesExactlyAsTheAgentsAndTheAppExpect) {
    struct Case {
        std::string text;
        std::string json;
    };
    const Case cases[] = {
        {"a/b", R"("a\/b")"},
        {"say \"hi\"\\", R"("say \"hi\"\\")"},
        {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
        {std::string("\x01\x1f", 2), R"("\u0001\u001f")"},
        {"\xC3\xA9\xF0\x9F\x98\x80", "\"\xC3\xA9\xF0\x9F\x98\x80\""},
        {"\x7f", "\"\x7f\""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(toCompactJson(Json(c.text)), c.json);
        EXPECT_EQ(parseJson(c.json)->get<std::string>(), c.text);
    }
    EXPECT_FALSE(toCompactJson(Json::object({{"k", std::string("\xFF")}})).has_value());
}

TEST(JsonReader, RejectsWhatIsNotJson) {
    for (const char* bad : {"", "{", "{\"a\":}", "[1,]", "nope", "{\"a\":\"\\ud800\"}", "\"\xFF\""}) {
        EXPECT_FALSE(parseJson(bad).has_value()) << bad;
    }
    EXPECT_TRUE(parseJson(" {\"a\":[1,2]} \n").has_value());
    // Bytes after the object, hidden behind a NUL, make it no object at all.
    for (const std::string& trailing : {std::string("{}\0garbage", 10), std::string("{}\0", 3), std::string("{\"a\0\":1}", 9)}) {
        EXPECT_FALSE(parseJson(trailing).has_value());
        EXPECT_FALSE(parseJsonKeepingNumbers(trailing).has_value());
    }
}

// The log's time stamp is computed without the C library's calendar: it must
// agree with gmtime at every kind of boundary (leap days, centuries, 2000).
TEST(Clock, TimeStampsAgreeWithTheCLibrary) {
    std::vector<std::int64_t> moments = {0, 59, 86399, 86400, 951782400, 951868799, 4107542400, 253402300799};
    for (std::int64_t t = -86400LL * 365 * 30; t < 86400LL * 365 * 300; t += 86400LL * 7 + 3601) moments.push_back(t);
    for (const std::int64_t moment : moments) {
        const std::time_t time = static_cast<std::time_t>(moment);
        std::tm parts{};
        ASSERT_NE(::gmtime_r(&time, &parts), nullptr);
        char expected[32];
        std::strftime(expected, sizeof expected, "%Y-%m-%dT%H:%M:%SZ", &parts);
        ASSERT_EQ(AgentHook::platform::isoTimestampUtc(moment), expected) << moment;
    }
}
