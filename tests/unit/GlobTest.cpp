// Auto-accept rules and their globs. Globs must agree with the anchored
// regular expression they stand for: the matcher is compared with std::regex
// on random inputs over an alphabet where the two regex dialects agree, and
// the table holds what that alphabet cannot reach (letter case, characters
// special to regular expressions, Unicode, other line terminators).
#include <gtest/gtest.h>

#include <random>
#include <regex>
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
        {"/Users/ann/proj/**", "/Users/ann/proj", false},
        {"/tmp/*.log", "/tmp/x/a.log", false},
        // "**/" also matches where the slash and what it stood for are absent.
        {"a/**/b", "a/b", true},
        {"/A", "/a", false},  // letter case counts
        // Regular-expression characters are literal.
        {"/tmp/a(1).txt", "/tmp/a(1).txt", true},
        {"/tmp/a(1).txt", "/tmp/a1.txt", false},
        {"/x/.txt", "/x/atxt", false},
        {"/x/[ab]{2}^$|+\\", "/x/[ab]{2}^$|+\\", true},
        // "?" is one code point as the regular expression's "." takes it, "/"
        // included, never a line break: not a whole user-perceived character.
        {"/?", "/\xC3\xA9", true},                                   // é
        {"/?", "/e\xCC\x81", false},                                 // e + combining acute
        {"/??", "/e\xCC\x81", true},
        {"/?", "/\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", false},         // flag of France: two code points
        {"/??", "/\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", true},
        {"?", "/", true},
        {"/?", "/\n", false},
        {"/e?", "/e\xCC\x81", true},                                 // the mark alone after a literal e
        // Literals and stars work on code points: "*" may take a combining mark.
        {"/e*", "/e\xCC\x81x", true},
        {"/e", "/e\xCC\x81", false},
        {"/*??", "/\xE6\x97\xA5", false},                           // 日: no star stops inside a character
        // "**" (.*) stops at every line terminator; "*" ([^/]*) does not.
        {"/x/**", "/x/a\nb", false},
        {"/x/**", "/x/a\vb", false},
        {"/x/**", "/x/a\fb", false},
        {"/x/**", "/x/a\xC2\x85" "b", false},                       // NEL
        {"/x/**", "/x/a\xE2\x80\xA8" "b", false},                   // LINE SEPARATOR
        {"/x/**", "/x/a\xE2\x80\xA9" "b", false},                   // PARAGRAPH SEPARATOR
        {"/x/**", "/x/\t\xE2\x80\xA7\xC2\xA9\xE2\x80\x94", true},         // tab ‧ © —: neighbours, no terminators
        {"/x/*", "/x/a\nb", true},
        {"/x/*", "/x/a\xE2\x80\xA8" "b", true},
        // "$" also matches before one final line terminator, CR LF counting as one.
        {"/a", "/a\n", true},
        {"/a", "/a\r\n", true},
        {"/a", "/a\xE2\x80\xA9", true},
        {"/a", "/a\xC2\x85", true},
        // Pattern characters are read as whole user-perceived characters.
        {"/e\xCC\x81", "/e\xCC\x81", true},
        {"/*\xCC\x81", "/x\xCC\x81", false},                        // a star with a mark is no star
    };
    for (const Case& c : cases) {
        EXPECT_EQ(globMatch(c.pattern, c.path), c.matches) << "pattern " << c.pattern << " path " << c.path;
    }
}

// Over {a, b, /, LF, CR} ECMAScript and ICU agree on ".", "[^/]" and
// literals; ECMAScript's "$" matches only at the very end, so the text
// without its final line terminator (CR LF as one) is tried too.
TEST(Glob, AgreesWithARegularExpressionOnRandomInputs) {
    const auto toRegex = [](const std::string& glob) {
        std::string regex;
        for (std::size_t i = 0; i < glob.size(); ++i) {
            if (glob[i] == '*' && i + 1 < glob.size() && glob[i + 1] == '*') {
                regex += ".*";
                ++i;
                if (i + 1 < glob.size() && glob[i + 1] == '/') ++i;
            } else if (glob[i] == '*') {
                regex += "[^/]*";
            } else if (glob[i] == '?') {
                regex += ".";
            } else {
                regex += glob[i];
            }
        }
        return std::regex(regex);
    };
    std::mt19937 random(20240611);
    const auto randomText = [&](const char* alphabet, std::size_t alphabetSize, std::size_t maxLength) {
        std::string text(random() % (maxLength + 1), ' ');
        for (char& c : text) c = alphabet[random() % alphabetSize];
        return text;
    };
    for (int round = 0; round < 10000; ++round) {
        const std::string pattern = randomText("ab/*?\n\r", 7, 8);
        const std::string path = randomText("aab//\n\r", 7, 10);
        const std::regex regex = toRegex(pattern);
        const std::size_t terminator = path.ends_with("\r\n") ? 2 : path.ends_with("\n") || path.ends_with("\r") ? 1 : 0;
        const bool expected = std::regex_match(path, regex) ||
                              (terminator && std::regex_match(path.begin(), path.end() - terminator, regex));
        ASSERT_EQ(globMatch(pattern, path), expected) << "pattern " << pattern << " path " << path;
        // The same behind a literal head long enough to move the pattern
        // across the words of the state.
        const std::string head(40 + round % 100, 'x');
        ASSERT_EQ(globMatch(head + pattern, head + path), expected) << "pattern " << pattern << " path " << path;
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
        {{"npm"}, "", false},
        {{""}, "", false},
        {{"**"}, "npm", false},
        // Literal prefixes, character for character.
        {{"npm run"}, "npm run build", true},
        {{"npm run"}, "npm run", true},
        {{"npm run"}, "npx run", false},
        {{"npm run"}, "npm ru", false},
        {{"/src"}, "/src/x", true},
        {{"/src"}, "/srcfoo", true},
        {{"/Users/ann/cafe"}, "/Users/ann/cafe\xCC\x81/x", false},
        {{"Bash(npm test)"}, "npm test", false},
        {{"NPM"}, "npm", false},
        // "//" globs, the first slash dropped.
        {{"//home/u/*.md"}, "/home/u/a.md", true},
        {{"//home/u/*.md"}, "/home/u/sub/a.md", false},
        {{"//home/u/**.md"}, "/home/u/sub/a.md", true},
        {{"//home/u/*.md"}, "//home/u/a.md", false},
        // Domain rules: the exact host of an absolute URL.
        {{"domain:example.com"}, "https://example.com/docs?q=1", true},
        {{"domain:example.com"}, "https://example.com:8443/x", true},
        {{"domain:example.com"}, "https://user:pw@example.com/", true},
        {{"domain:example.com"}, "ftp://example.com", true},
        {{"domain:example.com"}, "http://ex%61mple.com/", true},
        {{"domain:example.com"}, "https://Example.com/x", false},
        {{"domain:example.com"}, "https://api.example.com/x", false},
        {{"domain:example.com"}, "https://example.com.evil.net/", false},
        {{"domain:example.com"}, "https://evil.net/?next=https://example.com/", false},
        {{"domain:example.com"}, "https://evil.net@example.com/", true},
        {{"domain:example.com"}, "https://example.com@evil.net/", false},
        {{"domain:example.com"}, "example.com", false},
        {{"domain:example.com"}, "//example.com/x", true},         // a reference without a scheme has a host
        {{"domain:example.com"}, "/example.com/x", false},
        {{"domain:example.com"}, "https://exa mple.com/", false},
        {{"domain:example.com"}, "mailto:ann@example.com", false},
        {{"domain:example.com"}, "Eps:\x95", false},  // once an assertion inside the URL parser
        {{"domain:::1"}, "http://[::1]:8080/", true},
        {{"domain:"}, "file:///etc/passwd", false},
        {{"domain:example.com"}, "domain:example.com", false},
        // Every rule is tried in turn until one covers the target.
        {{"domain:example.com", "//tmp/*", "git "}, "git status", true},
        {{"git ", "domain:example.com"}, "https://example.com/", true},
        {{"//tmp/*", "npm"}, "/tmp/a/b", false},
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
