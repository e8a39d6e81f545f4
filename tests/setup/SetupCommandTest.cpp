// The command line and status.
#include <nlohmann/json.hpp>

#include "SetupRun.hpp"

namespace {

using setuptest::SetupHome;
using testsupport::exists;
using testsupport::readText;
using testsupport::writeText;

TEST(SetupCommandLine, UsageLineAndStatus64) {
    const std::vector<std::vector<std::string>> argumentLists = {
        {}, {"frobnicate"}, {"install"}, {"install", "emacs"}, {"install", "claude", "codex"},
        {"status", "--dry-run"}, {"install", "claude", "--hook="}, {"uninstall", "all", "--force"}};
    for (const std::vector<std::string>& arguments : argumentLists) {
        SetupHome home;
        const testsupport::Finished run = home.run(arguments, false);
        EXPECT_EQ(run.status, 64) << run.err;
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find("\nusage: agent-hook-setup install|uninstall"), std::string::npos) << run.err;
        EXPECT_FALSE(exists(home.home + "/.claude"));
    }
}

nlohmann::json statusJson(const testsupport::Finished& run) {
    nlohmann::json report = nlohmann::json::parse(run.out, nullptr, false);
    EXPECT_FALSE(report.is_discarded()) << run.out;
    return report;
}

// The settings Claude Code reads, with `stopHook` as the Stop entry.
std::string claudeWith(const std::string& stopHook, const char* permissionMatcher = "*") {
    const std::string ours = R"({"type": "command", "command": "@HOOK@ claude", "timeout": 1860})";
    return R"({"hooks": {"Stop": [{"hooks": [)" + stopHook + R"(]}], "UserPromptSubmit": [{"hooks": [)" + ours +
           R"(]}], "Notification": [{"hooks": [)" + ours + R"(]}], "PermissionRequest": [{"matcher": ")" +
           permissionMatcher + R"(", "hooks": [)" + ours + R"(]}], "PreToolUse": [{"matcher": "AskUserQuestion", "hooks": [)" +
           ours + "]}]}}";
}

TEST(SetupStatus, EachProblemReportedWithStatus1) {
    const std::pair<std::string, std::string> cases[] = {
        {claudeWith(R"({"type": "command", "command": "@HOOK@ claude", "timeout": 600})"),
         "timeout 600 s is shorter than 1860 s"},
        {claudeWith(R"({"type": "command", "command": "@HOOK@ claude"})"), "no timeout"},
        {claudeWith(R"({"type": "command", "command": "/nowhere/agent-hook claude", "timeout": 1860})"),
         "/nowhere/agent-hook does not exist"},
        {claudeWith(R"({"type": "command", "command": "agent-hook claude", "timeout": 1860})"), "is not an absolute path"},
        {claudeWith(R"({"type": "command", "command": "@HOOK@ claude", "timeout": 1860})", "Bash"),
         "matcher \"Bash\" where \"*\" is recommended"},
        {R"({"hooks": {"Stop": [{"hooks": [{"type": "command", "command": "@HOOK@ claude", "timeout": 1860}]}]}})",
         "missing    UserPromptSubmit, PermissionRequest, PreToolUse, Notification"},
    };
    for (const auto& [settings, problem] : cases) {
        SetupHome home;
        testsupport::makeDirectories(home.home + "/.claude");
        writeText(home.home + "/.claude/settings.json", setuptest::withHook(settings, home.hook));
        const testsupport::Finished text = home.run({"status", "claude"});
        EXPECT_EQ(text.status, 1);
        EXPECT_NE(text.out.find(problem), std::string::npos) << text.out;
        EXPECT_EQ(statusJson(home.run({"status", "claude", "--json"}))["healthy"], false) << problem;
    }
}

}  // namespace
