// What a permission request shows the app, and what the user's answer turns
// into: the pure pieces, byte for byte.
#include <gtest/gtest.h>

#include "bridge/Replies.hpp"
#include "claude/Permissions.hpp"

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
        {"Edit", R"({"file_path":"/f","old_string":"","new_string":"a\r\nb\n"})", "Edit file?", "/f\n\n-\n+a\r\nb\n+"},
        {"Edit", R"({"old_string":"x","new_string":"y"})", "Permission needed for Edit", ""},
        {"Grep", R"({"pattern":"retry","path":"src"})", "Search file contents?", "retry in src"},
        {"mcp__x__y", R"({"command":"c","pattern":"p"})", "Permission needed for mcp__x__y", "c"},
        {"mcp__x__y", std::nullopt, "Permission needed for mcp__x__y", "mcp__x__y"},
    };
    for (const Case& c : cases) {
        const auto input = c.input ? toolInput(*c.input) : std::nullopt;
        const PermissionDetails details = buildPermissionDetails(c.tool, input);
        EXPECT_EQ(details.summary, c.summary) << c.tool << " " << c.input.value_or("none");
        EXPECT_EQ(details.details, c.details) << c.tool << " " << c.input.value_or("none");
    }
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

