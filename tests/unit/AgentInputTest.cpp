// Codex and Grok events: decoding with its defaults and the environment's
// precedence, and what a permission request shows.
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

TEST(CodexInput, ARealEventAndDefaultsOneByOne) {
    const auto real = Codex::decodeHookInput(kCodexPermission, 1);
    ASSERT_TRUE(real);
    EXPECT_EQ(real->sessionId, "019a7c2e-5b1d-7e40-9c3f-2d8e6a1b4f70");
    EXPECT_EQ(real->toolInput->command, "npm publish --tag \"n\u00e4chste\"");
    EXPECT_EQ(real->turnId, "t-7");
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
    const auto real = Grok::decodeHookInput(kGrokStop, environmentOf({}), 1);
    ASSERT_TRUE(real);
    EXPECT_EQ(real->cwd, "/home/ann/web");
    EXPECT_EQ(real->lastAssistantMessage, "Done \u2713");
    EXPECT_EQ(real->promptId, "p-42");
    EXPECT_EQ(real->stopHookActive, false);
}

// The precedence of a description, a tool's own row and the fallback; the
// rows themselves are the adapters' tables.
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
        {false, "apply_patch", R"({})", "Apply patch?", "apply_patch"},
        {false, "web", R"({"url":"https://x.org"})", "Permission needed for web", "https://x.org"},
        {false, "Shell", R"({"command":"ls"})", "Permission needed for Shell", "ls"},
        {true, "Shell", R"({"command":"ls"})", "Run command?", "ls"},
        {true, "apply_patch", R"({"path":""})", "Edit file?", ""},
    };
    for (const Case& c : cases) {
        const auto input = c.input ? decodeCommandToolInput(*text::parseJson(*c.input)) : std::nullopt;
        const PermissionDetails details =
            c.grok ? Grok::buildPermissionDetails(c.tool, input) : Codex::buildPermissionDetails(c.tool, input);
        EXPECT_EQ(details.summary, c.summary) << c.tool << " " << c.input.value_or("none");
        EXPECT_EQ(details.details, c.details) << c.tool << " " << c.input.value_or("none");
    }
}
