// Remembering "always": the session's rule file, the rules written into the
// project's settings, and the merge that must never cost the user a byte.
#include <gtest/gtest.h>

#include "claude/AlwaysAllow.hpp"
#include "text/Quoting.hpp"
#include "text/Json.hpp"

using namespace AgentHook;
using namespace AgentHook::Claude;

namespace {

std::optional<std::vector<PermissionSuggestion>> suggestions(const std::string& json) {
    std::optional<std::vector<PermissionSuggestion>> list;
    const text::Json object = {{"list", *text::parseJson(json)}};
    EXPECT_TRUE(text::readOptionalList(object, "list", list, decodePermissionSuggestion));
    return list;
}

// A settings file as Claude Code writes it, with the user's own members.
const std::string kUserSettings = R"json({
  "permissions": {
    "allow": ["Read", "Bash(npm run test:*)"],
    "deny": ["Bash(rm:*)"]
  },
  "env": {"RATIO": 1.50, "BIG": 12345678901234567890123, "N": -7, "E": 2E3, "ZERO": 0.0},
  "nested": [[true, null], {}],
  "greeting": "Grüß dich, \u00e9t\u00e9 \ud83d\ude00 a/b"
})json";

}  // namespace

TEST(AlwaysAllow, RuleFileContents) {
    const std::tuple<std::optional<std::string>, std::string, std::string> cases[] = {
        {std::nullopt, "npm test:*", "npm test:*"},
        {"a", "b\nc", "a\nb\nc"},
        {"a", "", "a\n"},
        {"a", "*", "*"},
        {"a\n", "a", "a\n\na"},
    };
    for (const auto& [old, added, merged] : cases) EXPECT_EQ(mergedAutoAcceptText(old, added), merged);
}

TEST(AlwaysAllow, RulesFromSuggestions) {
    const auto list = suggestions(R"([{"type":"addRules","behavior":"deny","rules":[{"toolName":"Bash","ruleContent":"npm run test:*"},)"
                                  R"({"ruleContent":""},{"toolName":"","ruleContent":"ls"}]},{"type":"setMode"},{"rules":[{"path":"/p"}]}])");
    EXPECT_EQ(extractAutoAcceptRules(list), (std::vector<std::string>{"npm run test:*", "ls"}));
    EXPECT_EQ(buildSettingsAllowRules(list, "Edit", false),
              (std::vector<std::string>{"Bash(npm run test:*)", "Edit", "Edit(ls)", "Edit"}));
    EXPECT_EQ(buildSettingsAllowRules(list, "Edit", true), (std::vector<std::string>{"Edit"}));
    EXPECT_TRUE(buildSettingsAllowRules(std::nullopt, "Edit", false).empty());
    EXPECT_TRUE(extractAutoAcceptRules(std::nullopt).empty());
}

TEST(AlwaysAllow, ListsInLogLines) {
    // "[]" and ["*"] are in the end-to-end tests' log lines.
    EXPECT_EQ(AgentHook::text::describeList({"a\"b", "c\\d\n", std::string("\x01", 1)}), R"(["a\"b", "c\\d\n", "\u{1}"])");
}

TEST(SettingsMerge, AddsRulesOnceAndKeepsEverythingElse) {
    const SettingsMerge merge = mergeAllowRules(kUserSettings, {"Edit", "Read", "Edit", "Bash(npm run test:*)"});
    ASSERT_TRUE(merge.bytes) << merge.problem;
    const std::string& bytes = *merge.bytes;
    const std::string expected = R"json({
  "env" : {
    "BIG" : 12345678901234567890123,
    "E" : 2E3,
    "N" : -7,
    "RATIO" : 1.50,
    "ZERO" : 0.0
  },
  "greeting" : "Grüß dich, été 😀 a\/b",
  "nested" : [
    [
      true,
      null
    ],
    {}
  ],
  "permissions" : {
    "allow" : [
      "Read",
      "Bash(npm run test:*)",
      "Edit"
    ],
    "deny" : [
      "Bash(rm:*)"
    ]
  }
})json";
    EXPECT_EQ(bytes, expected);
    // Merging again changes nothing.
    EXPECT_EQ(mergeAllowRules(bytes, {"Edit"}).bytes, bytes);
}

TEST(SettingsMerge, StartsFromNothingOrAMissingMember) {
    EXPECT_EQ(mergeAllowRules("", {"Edit"}).bytes, "{\n  \"permissions\" : {\n    \"allow\" : [\n      \"Edit\"\n    ]\n  }\n}");
    EXPECT_EQ(mergeAllowRules(R"({"permissions":{"ask":[]}})", {"Edit"}).bytes,
              "{\n  \"permissions\" : {\n    \"allow\" : [\n      \"Edit\"\n    ],\n    \"ask\" : []\n  }\n}");
}

TEST(SettingsMerge, AFileOfAnotherShapeIsNeverRewritten) {
    const std::string cases[] = {
        "[]",
        "{\"permissions\": {\"allow\": [\"Read\"]}",
        R"({"permissions": []})",
        R"({"permissions": {"allow": "Read"}})",
        R"({"permissions": {"allow": ["Read", 3]}})",
        R"({"a": "\ud800"})",
        R"({"a": 1e400})",
        std::string(600, '[') + std::string(600, ']'),
        "{\"a\": \"\xff\"}",
    };
    for (const std::string& settings : cases) {
        const SettingsMerge merge = mergeAllowRules(settings, {"Edit"});
        EXPECT_FALSE(merge.bytes) << settings;
        EXPECT_FALSE(merge.problem.empty()) << settings;
    }
}
