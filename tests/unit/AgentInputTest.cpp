// What a Codex or Grok permission request shows the app.
#include <gtest/gtest.h>

#include "codex/CodexEvents.hpp"
#include "grok/GrokEvents.hpp"

using namespace AgentHook;

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
