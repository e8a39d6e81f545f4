// Remembering "always" in the project's settings: the merge must never cost
// the user a byte.
#include <gtest/gtest.h>

#include "claude/AlwaysAllow.hpp"
#include "text/Json.hpp"

using namespace AgentHook;
using namespace AgentHook::Claude;

namespace {

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

TEST(SettingsMerge, AFileOfAnotherShapeIsNeverRewritten) {
    const std::string cases[] = {
        "[]",
        "{\"permissions\": {\"allow\": [\"Read\"]}",
        R"({"permissions": {"allow": "Read"}})",
        R"({"permissions": {"allow": ["Read", 3]}})",
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
