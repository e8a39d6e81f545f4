// What a permission request, a question and a plan review show the app, and
// what the user's answers turn into: the pure pieces, byte for byte.
#include <gtest/gtest.h>

#include "bridge/Replies.hpp"
#include "claude/Permissions.hpp"
#include "claude/Questions.hpp"

using namespace AgentHook;
using namespace AgentHook::Claude;

namespace {

std::optional<ToolInputData> toolInput(const std::string& json) {
    return decodeToolInput(*text::parseJson(json));
}

Suggestions suggestions(const std::string& json) {
    std::optional<std::vector<PermissionSuggestion>> list;
    const text::Json object = {{"list", *text::parseJson(json)}};
    EXPECT_TRUE(text::readOptionalList(object, "list", list, decodePermissionSuggestion));
    return list;
}

}  // namespace

TEST(PermissionDetails, SummaryAndDetailsPerTool) {
    struct Case {
        std::string tool;
        std::optional<std::string> input;
        std::string summary;
        std::string details;
    };
    const Case cases[] = {
        {"Bash", R"({"command":"ls -la"})", "Run command?", "ls -la"},
        {"Edit", R"({"file_path":"/a/b.txt","old_string":"x\ny","new_string":"z"})", "Edit file?", "/a/b.txt\n\n-x\n-y\n+z"},
        {"Edit", R"({"file_path":"/f","old_string":"","new_string":"a\r\nb\n"})", "Edit file?", "/f\n\n-\n+a\r\nb\n+"},
        {"Edit", R"({"old_string":"x","new_string":"y"})", "Permission needed for Edit", ""},
        {"Grep", R"({"pattern":"retry","path":"src"})", "Search file contents?", "retry in src"},
        {"mcp__x__y", R"({"command":"c","pattern":"p"})", "Permission needed for mcp__x__y", "c"},
        {"mcp__x__y", std::nullopt, "Permission needed for mcp__x__y", "mcp__x__y"},
        {"bash", R"({"command":"ls"})", "Permission needed for bash", "ls"},
    };
    for (const Case& c : cases) {
        const auto input = c.input ? toolInput(*c.input) : std::nullopt;
        const PermissionDetails details = buildPermissionDetails(c.tool, input);
        EXPECT_EQ(details.summary, c.summary) << c.tool << " " << c.input.value_or("none");
        EXPECT_EQ(details.details, c.details) << c.tool << " " << c.input.value_or("none");
    }
}

TEST(PermissionDetails, EditBlocksAreCutAt500Characters) {
    // 499 ASCII letters, then a family emoji of seven code points: one character.
    const std::string family = "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";
    const std::string text = std::string(499, 'a') + family + "cut";
    EXPECT_EQ(editBlock(text, '+'), "+" + std::string(499, 'a') + family);
    EXPECT_EQ(editBlock(std::string(600, '\n'), '-').size(), 1001u);  // 501 lines of "-"
}

TEST(PermissionChoices, RuleTargets) {
    using Rules = RuleMaps;
    const std::pair<Rules, std::optional<std::string>> cases[] = {
        {{{{"toolName", "Read"}, {"ruleContent", "//Users/me/proj/src/**"}}}, "src/**"},
        {{{{"ruleContent", "npm run test:*"}}}, "npm run test:*"},
        {{{{"ruleContent", "//"}}}, "/"},
        {{{{"ruleContent", ""}, {"value", "v"}, {"path", "p"}}}, "v"},
        {{{{"toolName", "T"}, {"zeta", ""}}}, "T"},
        {{{{"toolName", ""}}, {{"ruleContent", "second"}}}, "second"},
        {{{{"toolName", ""}}}, std::nullopt},
    };
    for (const auto& [rules, target] : cases) EXPECT_EQ(permissionRuleTarget(rules), target);
    EXPECT_EQ(permissionRuleTarget(std::nullopt), std::nullopt);
}

TEST(PermissionChoices, TheFourChoicesInOrder) {
    const std::string setMode = R"({"type":"setMode","mode":"acceptEdits","destination":"session"})";
    const std::string addRules = R"({"type":"addRules","behavior":"Allow","rules":[{"toolName":"Read","ruleContent":"//Users/me/proj/src/**"}]})";
    const std::string yes = R"({"behavior":"allow","label":"Yes","tool":"Edit"})";
    const std::string tail = R"({"behavior":"bypass-perms","label":"Bypass permissions for this session","tool":"Edit"},{"behavior":"deny","label":"No","tool":"Edit"}])";
    const std::pair<Suggestions, std::string> cases[] = {
        {suggestions("[" + setMode + "," + addRules + "]"),
         R"({"behavior":"always","label":"Allow all Edit this session","setMode":true,"tool":"Edit"})"},
        {suggestions("[" + addRules + "," + setMode + "]"),
         R"({"behavior":"always","label":"Always allow in src\/**","rules":[{"ruleContent":"\/\/Users\/me\/proj\/src\/**","toolName":"Read"}],"tool":"Edit"})"},
        {suggestions(R"([{"behavior":"allow","rules":[{"toolName":""}]}])"),
         R"({"behavior":"always","label":"Always allow","rules":[{"toolName":""}],"tool":"Edit"})"},
        {suggestions(R"([{"behavior":"deny","rules":[{"ruleContent":"x"}]},{"type":"addDirectories"}])"),
         R"({"behavior":"always","label":"Always allow Edit","setMode":true,"tool":"Edit"})"},
        {std::nullopt, R"({"behavior":"always","label":"Always allow Edit","setMode":true,"tool":"Edit"})"},
    };
    for (const auto& [list, always] : cases) {
        EXPECT_EQ(*text::toCompactJson(permissionPayloadSuggestions(list, "Edit")), "[" + yes + "," + always + "," + tail);
    }
}

TEST(PermissionReplies, WordsAndRefusals) {
    const std::pair<std::string, PermissionWord> words[] = {
        {" ALLOW\n", PermissionWord::allow}, {"Always", PermissionWord::always}, {"\tbypass ", PermissionWord::bypass},
        {"Deny", PermissionWord::deny},       {"bypass-perms", PermissionWord::other},
        {"   ", PermissionWord::other},     {"allow it", PermissionWord::other},
    };
    for (const auto& [reply, word] : words) EXPECT_EQ(readPermissionReply(reply).word, word) << reply;
    EXPECT_EQ(readPermissionReply("  Not now, use the STAGING database\n").normalized,
              "not now, use the staging database");
    EXPECT_EQ(readPermissionReply("\xC2\xA0\xE2\x80\xA8").normalized, "");
}

TEST(QuestionAnswers, BothReplyForms) {
    const auto questions = toolInput(R"({"questions":[{"question":"Q1","options":[{"label":"A"}]},)"
                                     R"({"question":"Q2","header":"H","options":[],"multiSelect":true}]})")
                               ->elicitationQuestions();
    const std::string listed = R"("questions":[{"options":[{"label":"A"}],"question":"Q1"},{"header":"H","multiSelect":true,"options":[],"question":"Q2"}])";
    const std::pair<std::string, std::string> cases[] = {
        {R"({"answers":[["A"],["B","C"]]})", R"({"answers":{"Q1":"A","Q2":"B, C"},)" + listed + "}"},
        {R"({"answers":[[],["x"],["ignored"]]})", R"({"answers":{"Q1":"","Q2":"x"},)" + listed + "}"},
        {"Use SQLite\n", R"({"answers":{"Q1":"Use SQLite"},)" + listed + "}"},
        {"\n  two words \r\n", R"({"answers":{"Q1":"  two words "},)" + listed + "}"},
        {R"({"answers":"A"})", R"({"answers":{"Q1":"{\"answers\":\"A\"}"},)" + listed + "}"},
        {R"({"answers":[["A",1]]})", R"({"answers":{"Q1":"{\"answers\":[[\"A\",1]]}"},)" + listed + "}"},
    };
    for (const auto& [reply, expected] : cases) {
        EXPECT_EQ(*text::toCompactJson(answeredToolInput(*questions, reply)), expected) << reply;
    }
}

TEST(PlanReview, Answers) {
    using Behavior = PermissionResponse::Behavior;
    const std::tuple<std::string, Behavior, std::optional<std::string>> cases[] = {
        {R"({"answers":[["Allow"]]})", Behavior::allow, std::nullopt},
        {" {\"answers\":[[\"allow\",\"x\"],[\"y\"]]}\n", Behavior::allow, std::nullopt},
        {R"({"answers":[["Please add a Rollback step "]]})", Behavior::deny, "Please add a Rollback step "},
        {R"({"answers":[["Approve"]]})", Behavior::deny, "Approve"},
        {R"({"answers":[]})", Behavior::deny, std::nullopt},
        {R"({"answers":[["a"],[2]]})", Behavior::deny, std::nullopt},
        {"yes", Behavior::deny, std::nullopt},
    };
    for (const auto& [reply, behavior, message] : cases) {
        const PermissionResponse response = resolveExitPlanModeResponse(reply);
        EXPECT_EQ(response.behavior, behavior) << reply;
        EXPECT_EQ(response.message, message) << reply;
    }
}
