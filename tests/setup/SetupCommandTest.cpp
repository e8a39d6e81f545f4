// The command line, --dry-run's diff and status.
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

TEST(SetupCommandLine, HelpAndVersion) {
    SetupHome home;
    for (const char* flag : {"--help", "-h"}) {
        const testsupport::Finished help = home.run({"install", flag}, false);
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.out.rfind("usage: agent-hook-setup", 0), 0u) << help.out;
        EXPECT_NE(help.out.find("--dry-run"), std::string::npos);
    }
    const testsupport::Finished version = home.run({"--version"}, false);
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("agent-hook-setup ", 0), 0u) << version.out;
    EXPECT_FALSE(exists(home.home + "/.claude"));
}

TEST(SetupCommandLine, ProjectConfigurationInsteadOfTheUsers) {
    SetupHome home;
    const std::string project = home.dir.file("project");
    testsupport::makeDirectories(project);
    ASSERT_EQ(home.run({"install", "all", "--project", project}).status, 0);
    for (const char* file : {"/.claude/settings.json", "/.codex/hooks.json", "/.grok/hooks/agent-hook.json"}) {
        EXPECT_NE(readText(project + file).find(home.hook), std::string::npos) << file;
    }
    EXPECT_FALSE(exists(home.home + "/.claude"));
    EXPECT_FALSE(exists(home.home + "/.codex"));
    EXPECT_EQ(home.run({"install", "claude", "--project", home.dir.file("missing")}).status, 1);
}

TEST(SetupCommandLine, CodexInstallSaysHowToTrustTheHooks) {
    SetupHome home;
    const testsupport::Finished run = home.run({"install", "codex"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("Trust all and continue"), std::string::npos) << run.out;
    EXPECT_EQ(home.run({"install", "codex"}).out.find("Trust all"), std::string::npos);
}

// The dry run's diff, byte for byte as `diff -u` prints it, and nothing written.
TEST(SetupDryRun, ShowsTheChangeAsDiffUWouldAndWritesNothing) {
    SetupHome home;
    const std::string path = home.home + "/.claude/settings.json";
    testsupport::makeDirectories(home.home + "/.claude");
    const std::string original =
        "{\n  \"model\": \"opus\",\n  \"hooks\": {\n    \"Stop\": [\n      {\n        \"hooks\": [\n          {\n"
        "            \"type\": \"command\",\n            \"command\": \"/old/agent-hook claude\"\n          }\n"
        "        ]\n      }\n    ]\n  },\n  \"a\": 1,\n  \"b\": 2,\n  \"c\": 3,\n  \"d\": 4,\n  \"e\": 5,\n"
        "  \"f\": 6,\n  \"g\": 7,\n  \"h\": 8\n}";
    writeText(path, original);
    ASSERT_EQ(home.run({"install", "claude"}).status, 0);
    const std::string installed = readText(path);
    writeText(path, original);
    ::unlink((path + ".agent-hook.bak").c_str());

    const testsupport::Finished dry = home.run({"install", "claude", "--dry-run"});
    ASSERT_EQ(dry.status, 0) << dry.err;
    EXPECT_EQ(readText(path), original);
    EXPECT_FALSE(exists(path + ".agent-hook.bak"));

    writeText(home.dir.file("after"), installed);
    testsupport::RunningProcess diff = testsupport::start(
        "/usr/bin/diff", {"-u", "--label", path, "--label", path, path, home.dir.file("after")}, {"PATH=/usr/bin:/bin"});
    EXPECT_EQ(dry.out, testsupport::finish(diff).out);

    const testsupport::Finished fresh = home.run({"install", "grok", "--dry-run"});
    EXPECT_EQ(fresh.out.rfind("--- /dev/null\n+++ " + home.home + "/.grok/hooks/agent-hook.json\n@@ -0,0 +1,", 0), 0u)
        << fresh.out;
    EXPECT_FALSE(exists(home.home + "/.grok"));
}

nlohmann::json statusJson(const testsupport::Finished& run) {
    nlohmann::json report = nlohmann::json::parse(run.out, nullptr, false);
    EXPECT_FALSE(report.is_discarded()) << run.out;
    return report;
}

TEST(SetupStatus, HealthyWhenEverythingRegisteredWorks) {
    SetupHome home;
    const testsupport::Finished nothing = home.run({"status"});
    EXPECT_EQ(nothing.status, 1) << nothing.out;
    EXPECT_NE(nothing.out.find("not registered"), std::string::npos);

    ASSERT_EQ(home.run({"install", "claude"}).status, 0);
    const testsupport::Finished text = home.run({"status"});
    EXPECT_EQ(text.status, 0) << text.out;
    EXPECT_NE(text.out.find("Claude Code  registered, healthy"), std::string::npos) << text.out;
    const nlohmann::json report = statusJson(home.run({"status", "--json"}));
    ASSERT_TRUE(report.is_object());
    EXPECT_EQ(report["healthy"], true);
    EXPECT_EQ(report["agents"][0]["agent"], "claude");
    EXPECT_EQ(report["agents"][0]["registered"], true);
    EXPECT_EQ(report["agents"][0]["entries"].size(), 5u);
    EXPECT_EQ(report["agents"][1]["registered"], false);
    EXPECT_EQ(report["app"]["running"], false);
}

// Grok runs hooks from its own folder, config.toml and Claude Code's settings.
TEST(SetupStatus, GrokEntriesWhereverGrokReadsThem) {
    SetupHome home;
    ASSERT_EQ(home.run({"install", "grok"}).status, 0);
    ASSERT_EQ(home.run({"install", "claude"}).status, 0);
    EXPECT_EQ(home.run({"status", "grok"}).status, 0);
    writeText(home.home + "/.grok/config.toml", setuptest::withHook(R"([model]
name = "grok-4"

[[hooks.Stop]]
[[hooks.Stop.hooks]]
type = "command"
command = "@HOOK@ grok"  # by hand, long ago
timeout = 600

[[hooks.PreToolUse]]
matcher = "*"
hooks = [ { type = "command", command = '@HOOK@ grok', timeout = 1860 } ]
)",
                                                                    home.hook));
    const testsupport::Finished again = home.run({"install", "grok"});
    EXPECT_NE(again.out.find("warning: Grok also runs agent-hook for Stop from " + home.home + "/.grok/config.toml:7"),
              std::string::npos)
        << again.out;
    const testsupport::Finished run = home.run({"status", "grok", "--json"});
    EXPECT_EQ(run.status, 1);
    const nlohmann::json report = statusJson(run);
    const nlohmann::json& entries = report["agents"][0]["entries"];
    ASSERT_EQ(entries.size(), 6u) << run.out;
    EXPECT_EQ(entries[4]["file"], home.home + "/.grok/config.toml");
    EXPECT_EQ(entries[4]["line"], 7);
    EXPECT_EQ(entries[4]["timeout"], 600.0);
    EXPECT_EQ(entries[4]["problems"].size(), 2u) << entries[4];
    EXPECT_EQ(entries[5]["event"], "PreToolUse");
    EXPECT_EQ(entries[5]["matcher"], "*");
    EXPECT_EQ(entries[5]["problems"][0], "a second entry for PreToolUse: the agent runs agent-hook twice");
    // A "*" matcher still works, but Grok reads matchers as tool names.
    EXPECT_EQ(entries[5]["problems"].size(), 1u) << entries[5];
    EXPECT_EQ(report["agents"][0]["notes"][1],
              "PreToolUse: matcher \"*\" is not recommended; without a matcher the entry runs for every tool (in " +
                  home.home + "/.grok/config.toml:12)");
    EXPECT_NE(report["agents"][0]["notes"][0].get<std::string>().find("Grok also runs the agent-hook entries of " +
                                                                       home.home + "/.claude/settings.json"),
              std::string::npos);
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
