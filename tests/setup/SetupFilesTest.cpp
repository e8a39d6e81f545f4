// install, install again and uninstall on real configuration files, bytes compared.
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <ostream>

#include "SetupRun.hpp"

namespace {

using setuptest::SetupHome;
using setuptest::withHook;
using testsupport::exists;
using testsupport::readText;
using testsupport::writeText;

const std::string kSame = "<the original bytes>";

std::string ours(const std::string& indent, const char* matcher, const char* agent) {
    std::string group = indent + "{\n";
    if (matcher) group += indent + "  \"matcher\": \"" + matcher + "\",\n";
    group += indent + "  \"hooks\": [\n" + indent + "    {\n" + indent + "      \"type\": \"command\",\n" + indent +
             "      \"command\": \"@HOOK@ " + agent + "\",\n" + indent + "      \"timeout\": 1860\n" + indent +
             "    }\n" + indent + "  ]\n" + indent + "}";
    return group;
}

const std::string kUserSettings = R"J({
  "permissions": {
    "allow": [
      "Bash(npm test:*)"
    ],
    "defaultMode": "acceptEdits"
  },
  "hooks": {
    "Stop": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "notify-send done"
          }
        ]
      }
    ],
    "PreToolUse": [
      {
        "matcher": "Bash",
        "hooks": [
          {
            "type": "command",
            "command": "~/bin/check-bash.sh",
            "timeout": 30
          }
        ]
      }
    ]
  },
  "model": "opus"
}
)J";

// The user's settings with ours after the user's entries of an event, then
// the events the user had not.
std::string userSettingsInstalled() {
    std::string text = kUserSettings;
    // Puts `addition` in before the first `before` after `after`.
    const auto insert = [&text](const char* after, const char* before, const std::string& addition) {
        text.insert(text.find(before, text.find(after)), addition);
    };
    insert("notify-send", "\n    ]", ",\n" + ours("      ", nullptr, "claude"));
    insert("check-bash", "\n    ]", ",\n" + ours("      ", "AskUserQuestion", "claude"));
    insert("check-bash", "\n  },\n  \"model\"",
           ",\n    \"UserPromptSubmit\": [\n" + ours("      ", nullptr, "claude") + "\n    ],\n    \"PermissionRequest\": [\n" +
               ours("      ", "*", "claude") + "\n    ],\n    \"Notification\": [\n" + ours("      ", nullptr, "claude") +
               "\n    ]");
    return text;
}

const std::string kUserSettingsInstalled = userSettingsInstalled();

const std::string kOldCodexEntries = R"J({
  "hooks": {
    "Stop": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "/usr/local/bin/agent-hook codex",
            "timeout": 600
          },
          {
            "type": "command",
            "command": "say done"
          }
        ]
      }
    ],
    "PermissionRequest": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "/opt/old/agent-hook codex"
          }
        ]
      }
    ]
  }
}
)J";

const std::string kUserStop = R"J(      {
        "hooks": [
          {
            "type": "command",
            "command": "say done"
          }
        ]
      })J";

const std::string kOldCodexReplaced = "{\n  \"hooks\": {\n    \"Stop\": [\n" + kUserStop + ",\n" +
                                      ours("      ", nullptr, "codex") + "\n    ],\n    \"PermissionRequest\": [\n" +
                                      ours("      ", nullptr, "codex") + "\n    ],\n    \"UserPromptSubmit\": [\n" +
                                      ours("      ", nullptr, "codex") + "\n    ]\n  }\n}\n";

const std::string kOldCodexRemoved = "{\n  \"hooks\": {\n    \"Stop\": [\n" + kUserStop + "\n    ]\n  }\n}\n";

std::string registrationOnly(const std::vector<std::pair<const char*, const char*>>& events, const char* agent) {
    std::string text = "{\n  \"hooks\": {";
    for (std::size_t i = 0; i < events.size(); ++i) {
        text += std::string(i ? "," : "") + "\n    \"" + events[i].first + "\": [\n" +
                ours("      ", events[i].second, agent) + "\n    ]";
    }
    return text + "\n  }\n}\n";
}

const std::vector<std::pair<const char*, const char*>> kClaudeEvents = {
    {"Stop", nullptr}, {"UserPromptSubmit", nullptr}, {"PermissionRequest", "*"},
    {"PreToolUse", "AskUserQuestion"}, {"Notification", nullptr}};

// The rows' labels, not their bytes, in test output.
struct FileCase;
void PrintTo(const FileCase& c, std::ostream* out);

struct FileCase {
    const char* label;
    const char* agent;
    std::optional<std::string> original;   // nothing: no file
    std::optional<std::string> installed;  // the exact bytes, when given
    std::optional<std::string> uninstalled;  // nothing: no file; kSame: the original
};

void PrintTo(const FileCase& c, std::ostream* out) { *out << c.label; }

class SetupFiles : public ::testing::TestWithParam<FileCase> {};

std::string fileOf(const SetupHome& home, const std::string& agent) {
    if (agent == "claude") return home.home + "/.claude/settings.json";
    if (agent == "codex") return home.dir.file("codex-home/hooks.json");
    return home.dir.file("grok-home/hooks/agent-hook.json");
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// Install, install again, uninstall, uninstall again; then the same cycle
// once more, when the backup left by the first is out of date.
TEST_P(SetupFiles, InstallTwiceThenUninstall) {
    const FileCase& c = GetParam();
    SetupHome home;
    home.extraEnvironment = {"CODEX_HOME=" + home.dir.file("codex-home"), "GROK_HOME=" + home.dir.file("grok-home")};
    const std::string path = fileOf(home, c.agent);
    if (c.original) {
        testsupport::makeDirectories(path.substr(0, path.rfind('/')));
        writeText(path, *c.original);
    }
    const std::optional<std::string> expectedAfter =
        c.uninstalled && *c.uninstalled == kSame ? c.original : c.uninstalled;
    for (int cycle = 0; cycle < 2; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        const std::optional<std::string> before = exists(path) ? std::optional(readText(path)) : std::nullopt;
        const testsupport::Finished first = home.run({"install", c.agent});
        ASSERT_EQ(first.status, 0) << first.err;
        const std::string installed = readText(path);
        if (c.installed && before == c.original) {
            EXPECT_EQ(installed, withHook(*c.installed, home.hook));
        }
        const std::size_t events = std::string(c.agent) == "claude" ? 5 : std::string(c.agent) == "codex" ? 3 : 4;
        EXPECT_EQ(occurrences(installed, home.hook + " " + c.agent), events) << installed;
        EXPECT_EQ(occurrences(installed, "agent-hook " + std::string(c.agent)), events) << "an old entry is left";
        if (before) {
            EXPECT_EQ(readText(path + ".agent-hook.bak"), *before);
        } else if (cycle == 0) {
            EXPECT_FALSE(exists(path + ".agent-hook.bak"));
        }

        const testsupport::Finished second = home.run({"install", c.agent});
        ASSERT_EQ(second.status, 0) << second.err;
        EXPECT_EQ(readText(path), installed);
        EXPECT_NE(second.out.find("already registered"), std::string::npos) << second.out;

        const testsupport::Finished removed = home.run({"uninstall", c.agent});
        ASSERT_EQ(removed.status, 0) << removed.err;
        if (!expectedAfter) {
            EXPECT_FALSE(exists(path));
        } else {
            EXPECT_EQ(readText(path), *expectedAfter);
        }
        EXPECT_EQ(readText(path + ".agent-hook.bak"), installed);
        const testsupport::Finished again = home.run({"uninstall", c.agent});
        EXPECT_EQ(again.status, 0) << again.err;
        EXPECT_NE(again.out.find("not registered"), std::string::npos) << again.out;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, SetupFiles,
    ::testing::Values(
        FileCase{"ClaudeAbsent", "claude", std::nullopt, registrationOnly(kClaudeEvents, "claude"), std::nullopt},
        FileCase{"CodexAbsent", "codex", std::nullopt,
                 registrationOnly({{"Stop", nullptr}, {"UserPromptSubmit", nullptr}, {"PermissionRequest", nullptr}},
                                  "codex"),
                 std::nullopt},
        FileCase{"GrokAbsent", "grok", std::nullopt,
                 registrationOnly({{"Stop", nullptr}, {"UserPromptSubmit", nullptr}, {"PreToolUse", nullptr},
                                   {"SessionEnd", nullptr}},
                                  "grok"),
                 std::nullopt},
        FileCase{"ClaudeUserHooksAndPermissions", "claude", kUserSettings, kUserSettingsInstalled, kSame},
        FileCase{"CodexOldEntries", "codex", kOldCodexEntries, kOldCodexReplaced, kOldCodexRemoved}),
    [](const ::testing::TestParamInfo<FileCase>& info) { return std::string(info.param.label); });

TEST(SetupMalformed, LeftUntouched) {
    struct Case {
        std::string bytes;
        std::string error;              // part of standard error after the file's path
        bool onlyInstallFails = false;  // no room for the registration, nothing to remove
    };
    const Case cases[] = {
        {"{\n  \"hooks\": {\n    \"Stop\": [,]\n  }\n}\n", ":3:14: not valid JSON"},
        {"{\n  \"model\": \"opus\",\n", ":3:1: not valid JSON"},
        {"[]\n", ": the document is not a JSON object"},
        {"{\"hooks\": {\"Stop\": [], \"Stop\": []}}", ": its \"hooks\" member names \"Stop\" twice"},
        {"{\"hooks\": {\"Stop\": {}}}", ": its \"hooks\" member's \"Stop\"", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        SetupHome home;
        const std::string path = home.home + "/.claude/settings.json";
        testsupport::makeDirectories(home.home + "/.claude");
        writeText(path, c.bytes);
        for (const char* command : {"install", "uninstall"}) {
            if (c.onlyInstallFails && std::string(command) == "uninstall") break;
            const testsupport::Finished run = home.run({command, "claude"});
            EXPECT_EQ(run.status, 1) << command;
            EXPECT_NE(run.err.find(path + c.error), std::string::npos) << run.err;
            EXPECT_EQ(readText(path), c.bytes);
            EXPECT_FALSE(exists(path + ".agent-hook.bak"));
        }
        EXPECT_EQ(home.run({"status", "claude"}).status, 1);
    }
}

TEST(SetupLinks, FollowedAndKept) {
    SetupHome home;
    const std::string target = home.dir.file("dotfiles/claude-settings.json");
    const std::string link = home.home + "/.claude/settings.json";
    testsupport::makeDirectories(home.dir.file("dotfiles"));
    testsupport::makeDirectories(home.home + "/.claude");
    writeText(target, kUserSettings);
    ASSERT_EQ(::symlink("../../dotfiles/claude-settings.json", link.c_str()), 0);

    ASSERT_EQ(home.run({"install", "claude"}).status, 0);
    struct stat info;
    ASSERT_EQ(::lstat(link.c_str(), &info), 0);
    EXPECT_TRUE(S_ISLNK(info.st_mode));
    EXPECT_EQ(readText(target), withHook(kUserSettingsInstalled, home.hook));

    ASSERT_EQ(home.run({"uninstall", "claude"}).status, 0);
    ASSERT_EQ(::lstat(link.c_str(), &info), 0);
    EXPECT_TRUE(S_ISLNK(info.st_mode));
    EXPECT_EQ(readText(target), kUserSettings);
}

TEST(SetupConcurrency, SimultaneousInstallsLoseNothing) {
    SetupHome home;
    const std::string path = home.home + "/.claude/settings.json";
    testsupport::makeDirectories(home.home + "/.claude");
    writeText(path, kUserSettings);
    // Programs of other names are told apart by their paths, so each run adds
    // its own five entries and none may overwrite another's.
    constexpr int kRuns = 8;
    std::vector<testsupport::RunningProcess> running;
    for (int i = 0; i < kRuns; ++i) {
        const std::string hook = home.dir.file("hook" + std::to_string(i) + "/other-hook");
        running.push_back(testsupport::start(AGENT_HOOK_SETUP_PROGRAM, {"install", "claude", "--hook", hook},
                                             {"HOME=" + home.home, "PATH=/usr/bin:/bin"}));
    }
    for (testsupport::RunningProcess& process : running) EXPECT_EQ(testsupport::finish(process).status, 0);
    const std::string merged = readText(path);
    for (int i = 0; i < kRuns; ++i) {
        EXPECT_EQ(occurrences(merged, "hook" + std::to_string(i) + "/other-hook claude"), 5u) << merged;
    }
    EXPECT_NE(merged.find("\"Bash(npm test:*)\""), std::string::npos);
    EXPECT_NE(merged.find("notify-send done"), std::string::npos);
}

}  // namespace
