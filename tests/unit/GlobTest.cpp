// Auto-accept rules and their globs. The fuzz target compares the glob
// matcher with a reference matcher of the anchored regular expression on
// every run; the table pins the cases where the two readings of a glob part
// ways (Unicode, line terminators, characters special to regular expressions).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/AutoAcceptRules.hpp"
#include "text/Glob.hpp"

using namespace AgentHook;
using AgentHook::text::globMatch;

TEST(Glob, MatchesLikeTheAnchoredRegularExpression) {
    struct Case {
        std::string pattern;
        std::string path;
        bool matches;
    };
    const Case cases[] = {
        {"/Users/ann/proj/**", "/Users/ann/proj/src/b/c.txt", true},
        {"/tmp/*.log", "/tmp/x/a.log", false},
        // "**/" also matches where the slash and what it stood for are absent.
        {"a/**/b", "a/b", true},
        {"/x/[ab]{2}^$|+\\", "/x/[ab]{2}^$|+\\", true},
        // "?" is one code point as the regular expression's "." takes it, "/"
        // included, never a line break: not a whole user-perceived character.
        {"/?", "/e\xCC\x81", false},                                 // e + combining acute
        {"/?", "/\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", false},         // flag of France: two code points
        {"/?", "/\n", false},
        {"/e?", "/e\xCC\x81", true},                                 // the mark alone after a literal e
        // Literals and stars work on code points: "*" may take a combining mark.
        {"/e*", "/e\xCC\x81x", true},
        {"/*??", "/\xE6\x97\xA5", false},                           // 日: no star stops inside a character
        // "**" (.*) stops at every line terminator; "*" ([^/]*) does not.
        {"/x/**", "/x/a\nb", false},
        {"/x/**", "/x/a\xE2\x80\xA8" "b", false},                   // LINE SEPARATOR
        {"/x/*", "/x/a\nb", true},
        // "$" also matches before one final line terminator, CR LF counting as one.
        {"/a", "/a\n", true},
        {"/a", "/a\r\n", true},
        // Pattern characters are read as whole user-perceived characters.
        {"/*\xCC\x81", "/x\xCC\x81", false},                        // a star with a mark is no star
    };
    for (const Case& c : cases) {
        EXPECT_EQ(globMatch(c.pattern, c.path), c.matches) << "pattern " << c.pattern << " path " << c.path;
    }
}

TEST(Glob, LongTargetsWithManyStarsStayLinear) {
    std::string segments = "/a/";
    while (segments.size() < 1024 * 1024) segments += "bb/";
    EXPECT_FALSE(globMatch("/a/*/*/*/*/*/*/*/*/x", segments + "y"));
    EXPECT_TRUE(globMatch("/a/*/*/*/*/*/*/*/**/x", segments + "x"));

    const std::string letters = std::string("/").append(1024 * 1024, 'a');
    EXPECT_FALSE(globMatch("/**a**a**a**a**a**a**a**a**a**a**b", letters));
    EXPECT_FALSE(globMatch("/*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b", letters));
    EXPECT_TRUE(globMatch("/**a*a?a*a**a", letters));
    EXPECT_TRUE(globMatch(std::string("/").append(300, '?').append("**"), letters));

    std::string words = "/";
    while (words.size() < 1024 * 1024) words += "日本語のテキスト/";
    EXPECT_FALSE(globMatch("/**?*?*?*x", words));
    EXPECT_TRUE(globMatch("/**?*?*/", words));
}

TEST(AutoAcceptRules, MatchEachRuleByItsForm) {
    struct Case {
        std::vector<std::string> rules;
        std::string target;
        bool matches;
    };
    const Case cases[] = {
        // "*" anywhere covers everything; otherwise an empty target is never covered.
        {{"npm", "*"}, "", true},
        {{"**"}, "npm", false},
        // Literal prefixes, character for character.
        {{"npm run"}, "npm run build", true},
        {{"/Users/ann/cafe"}, "/Users/ann/cafe\xCC\x81/x", false},
        {{"Bash(npm test)"}, "npm test", false},
        // "//" globs, the first slash dropped.
        {{"//home/u/*.md"}, "/home/u/sub/a.md", false},
        {{"//home/u/**.md"}, "/home/u/sub/a.md", true},
        // Domain rules: the exact host of an absolute URL.
        {{"domain:example.com"}, "https://example.com/docs?q=1", true},
        {{"domain:example.com"}, "https://evil.net/?next=https://example.com/", false},
        {{"domain:example.com"}, "https://evil.net@example.com/", true},
        {{"domain:example.com"}, "https://example.com@evil.net/", false},
        {{"domain:example.com"}, "//example.com/x", true},         // a reference without a scheme has a host
        {{"domain:example.com"}, "Eps:\x95", false},  // once an assertion inside the URL parser
        {{"domain:::1"}, "http://[::1]:8080/", true},
        // Every rule is tried in turn until one covers the target.
        {{"domain:example.com", "//tmp/*", "git "}, "git status", true},
    };
    for (const Case& c : cases) {
        std::string rules;
        for (const std::string& rule : c.rules) rules += "[" + rule + "]";
        EXPECT_EQ(matchesAutoAcceptRules(c.rules, c.target, "Tool"), c.matches) << rules << " target " << c.target;
    }
}

// Found by fuzzing: a glob over 4095 bytes is refused even when its stars
// leave it few enough elements for the matcher.
TEST(Glob, AGlobLongerThanAnyPathNeverMatches) {
    std::string stars;
    while (stars.size() < 4092) stars += "**";
    EXPECT_TRUE(text::globMatch("/a" + stars + "*", "/a"));   // 4095 bytes
    EXPECT_FALSE(text::globMatch("/a" + stars + "**", "/a"));  // 4096 bytes
    EXPECT_FALSE(matchesAutoAcceptRules({"//a" + stars + "**"}, "/a", "Edit"));
}
