// Codex and Grok events: decoding with its defaults and the environment's
// precedence, what a permission request shows, and Grok's own decision.
#include <gtest/gtest.h>

#include <map>

#include "codex/CodexEvents.hpp"
#include "grok/GrokEvents.hpp"

using namespace AgentHook;

namespace {

// Events as the agents send them.
const std::string kCodexPermission =
    R"({"session_id":"019a7c2e-5b1d-7e40-9c3f-2d8e6a1b4f70","transcript_path":"\/home\/ann\/.codex\/sessions\/2026\/11\/23\/rollout.jsonl",)"
    R"("cwd":"\/home\/ann\/web","hook_event_name":"PermissionRequest","model":"gpt-5-codex","permission_mode":"on-request",)"
    R"("turn_id":"t-7","tool_name":"Bash","tool_input":{"command":"npm publish --tag \"n\u00e4chste\"","description":"Publish the package"}})";
const std::string kGrokStop =
    R"({"hookEventName":"Stop","sessionId":"b3f1c2d4","cwd":"\/home\/ann\/web","workspaceRoot":"\/home\/ann",)"
    R"("permissionMode":"default","promptId":"p-42","reason":"end_turn","stopHookActive":false,)"
    R"("lastAssistantMessage":"Done \u2713","transcriptPath":"\/home\/ann\/.grok\/sessions\/g\/b3f1c2d4\/updates.jsonl"})";

Grok::Environment environmentOf(std::map<std::string, std::string> variables) {
    return [variables](const char* name) -> std::optional<std::string> {
        const auto found = variables.find(name);
        if (found == variables.end() || found->second.empty()) return std::nullopt;
        return found->second;
    };
}

}  // namespace

TEST(CodexInput, FieldsTakeTheirDefaultsOneByOne) {
    const auto input = Codex::decodeHookInput(
        R"({"session_id":7,"cwd":null,"hook_event_name":"Stop","stop_hook_active":"true","tool_input":{"command":3},"tool_name":"Bash"})", 99);
    ASSERT_TRUE(input);
    EXPECT_EQ(input->sessionId, "codex_99");
    EXPECT_EQ(input->cwd, "");
    EXPECT_EQ(input->hookEventName, "Stop");
    EXPECT_EQ(input->stopHookActive, std::nullopt);
    EXPECT_EQ(input->toolInput.has_value(), false);
    EXPECT_EQ(input->toolName, "Bash");
    for (const char* notAnObject : {"", "[]", "\"x\"", "{} x"}) EXPECT_FALSE(Codex::decodeHookInput(notAnObject, 1)) << notAnObject;
}

TEST(GrokInput, TheEnvironmentAndItsOrder) {
    struct Case {
        std::string json;
        std::map<std::string, std::string> environment;
        std::optional<std::string> event;
        std::string session;
        std::string cwd;
    };
    const Case cases[] = {
        {R"({"hookEventName":"PreToolUse","sessionId":"s","cwd":"/c"})", {{"GROK_HOOK_EVENT", "Stop"}}, "Stop", "s", "/c"},
        {R"({"hookEventName":"PreToolUse"})", {{"GROK_HOOK_EVENT", ""}}, "PreToolUse", "grok_5", ""},
        {"", {{"GROK_HOOK_EVENT", "stop"}, {"GROK_SESSION_ID", "env"}, {"GROK_WORKSPACE_ROOT", "/w"}}, "stop", "env", "/w"},
        {R"({"sessionId":"json","cwd":null,"workspaceRoot":"/root"})", {{"GROK_SESSION_ID", "env"}, {"GROK_WORKSPACE_ROOT", "/w"}},
         std::nullopt, "json", "/root"},
        {R"({"sessionId":3,"cwd":4,"workspaceRoot":5})", {{"GROK_SESSION_ID", "env"}, {"GROK_WORKSPACE_ROOT", "/w"}}, std::nullopt,
         "env", "/w"},
        {R"({"cwd":"","workspaceRoot":"/root"})", {}, std::nullopt, "grok_5", ""},
    };
    for (const Case& c : cases) {
        const auto input = Grok::decodeHookInput(c.json, environmentOf(c.environment), 5);
        ASSERT_TRUE(input) << c.json;
        EXPECT_EQ(input->hookEventName, c.event) << c.json;
        EXPECT_EQ(input->sessionId, c.session) << c.json;
        EXPECT_EQ(input->cwd, c.cwd) << c.json;
    }
    EXPECT_FALSE(Grok::decodeHookInput(" ", environmentOf({}), 5));
}

TEST(CommandPermissions, WhatEachToolShows) {
    struct Case {
        bool grok;
        std::string tool;
        std::optional<std::string> input;
        std::string summary;
        std::string details;
    };
    const Case cases[] = {
        {false, "Bash", R"({"command":"ls","description":"List files"})", "List files", "ls"},
        {false, "Bash", R"({"command":"ls","description":""})", "Run command?", "ls"},
        {false, "Bash", std::nullopt, "Run command?", ""},
        {false, "apply_patch", R"({"path":"/a"})", "Apply patch?", "/a"},
        {false, "apply_patch", R"({})", "Apply patch?", "apply_patch"},
        {false, "web", R"({"url":"https://x.org","description":"Fetch"})", "Fetch", "https://x.org"},
        {false, "web", R"({"path":"/p","description":"Look"})", "Look", "/p"},
        {false, "web", R"({"query":"q","description":"Look"})", "Look", "web"},
        {false, "web", R"({"url":"https://x.org"})", "Permission needed for web", "https://x.org"},
        {false, "unknown", std::nullopt, "Permission needed for unknown", "unknown"},
        {false, "Shell", R"({"command":"ls"})", "Permission needed for Shell", "ls"},
        {true, "Shell", R"({"command":"ls"})", "Run command?", "ls"},
        {true, "run_terminal_command", R"({})", "Run command?", ""},
        {true, "search_replace", R"({"path":"/s"})", "Edit file?", "/s"},
        {true, "MultiEdit", std::nullopt, "Edit file?", "MultiEdit"},
        {true, "read_file", std::nullopt, "Read file?", "read_file"},
        {true, "apply_patch", R"({"path":""})", "Edit file?", ""},
        {true, "fetch", R"({"url":"u"})", "Permission needed for fetch", "u"},
    };
    for (const Case& c : cases) {
        const auto input = c.input ? decodeCommandToolInput(*text::parseJson(*c.input)) : std::nullopt;
        const PermissionDetails details =
            c.grok ? Grok::buildPermissionDetails(c.tool, input) : Codex::buildPermissionDetails(c.tool, input);
        EXPECT_EQ(details.summary, c.summary) << c.tool << " " << c.input.value_or("none");
        EXPECT_EQ(details.details, c.details) << c.tool << " " << c.input.value_or("none");
    }
    EXPECT_EQ(commandPermissionBody("Bash", {"Run command?", "ls /"}),
              R"({"details":"ls \/","suggestions":[{"behavior":"allow","label":"Yes","tool":"Bash"},)"
              R"({"behavior":"bypass-perms","label":"Bypass permissions for this session","tool":"Bash"},)"
              R"({"behavior":"deny","label":"No","tool":"Bash"}],"summary":"Run command?","toolName":"Bash"})");
}

TEST(GrokDecisions, PreToolUseOutputBytes) {
    using Behavior = PermissionResponse::Behavior;
    EXPECT_EQ(Grok::preToolUseDecisionJson({Behavior::allow, std::nullopt}), R"({"decision":"allow"})");
    EXPECT_EQ(Grok::preToolUseDecisionJson({Behavior::allow, "ignored"}), R"({"decision":"allow","reason":"ignored"})");
    EXPECT_EQ(Grok::preToolUseDecisionJson({Behavior::deny, ""}), R"({"decision":"deny"})");
    EXPECT_EQ(Grok::preToolUseDecisionJson({Behavior::deny, " Not /etc\n"}), R"({"decision":"deny","reason":" Not \/etc\n"})");
}

TEST(AgentInputs, EveryPrefixOfARealEventFailsCleanlyAndTheWholeDecodes) {
    const auto codex = Codex::decodeHookInput(kCodexPermission, 1);
    ASSERT_TRUE(codex);
    EXPECT_EQ(codex->sessionId, "019a7c2e-5b1d-7e40-9c3f-2d8e6a1b4f70");
    EXPECT_EQ(codex->toolInput->command, "npm publish --tag \"n\u00e4chste\"");
    EXPECT_EQ(codex->turnId, "t-7");
    const auto grok = Grok::decodeHookInput(kGrokStop, environmentOf({}), 1);
    ASSERT_TRUE(grok);
    EXPECT_EQ(grok->cwd, "/home/ann/web");
    EXPECT_EQ(grok->lastAssistantMessage, "Done \u2713");
    EXPECT_EQ(grok->promptId, "p-42");
    EXPECT_EQ(grok->stopHookActive, false);
    for (std::size_t length = 1; length < kCodexPermission.size(); ++length) {
        EXPECT_FALSE(Codex::decodeHookInput(kCodexPermission.substr(0, length), 1)) << length;
    }
    for (std::size_t length = 1; length < kGrokStop.size(); ++length) {
        EXPECT_FALSE(Grok::decodeHookInput(kGrokStop.substr(0, length), environmentOf({}), 1)) << length;
    }
}
