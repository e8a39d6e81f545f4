#include <gtest/gtest.h>

#include <ctime>

#include "platform/Clock.hpp"
#include "text/Json.hpp"
#include "text/Utf8Stream.hpp"

using namespace AgentHook::text;

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
