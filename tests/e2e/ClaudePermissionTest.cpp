// Claude Code permission requests end to end: every spoken answer, the
// session bypass, stored rules, and the project's settings file.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

#include "bridge/AgentInboxPayload.hpp"
#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

// The suggestions a real Bash request carries: a directory and a mode switch.
const std::string kSetModeSuggestions =
    R"([{"type":"addDirectories","directories":["/tmp"],"destination":"session"},)"
    R"({"type":"setMode","mode":"acceptEdits","destination":"session"}])";
const std::string kRuleSuggestions =
    R"([{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm test:*"}],"behavior":"allow","destination":"localSettings"}])";

class ClaudePermission : public HookTest {
protected:
    std::string request(const std::string& tool, const std::string& toolInput, const std::string& suggestions) const {
        return event("PermissionRequest", R"(,"permission_mode":"default","tool_name":")" + tool + R"(","tool_input":)" +
                                              toolInput + R"(,"permission_suggestions":)" + suggestions);
    }
    std::string bash(const std::string& command, const std::string& suggestions = kSetModeSuggestions) const {
        return request("Bash", R"({"command":")" + command + R"(","description":"Run it"})", suggestions);
    }
    std::string autoAcceptFile(const std::string& tool) const { return kScratch + "/" + session_ + "-autoaccept-" + tool; }
    std::string settingsFile() const { return cwd_ + "/.claude/settings.local.json"; }
};

}  // namespace

TEST_F(ClaudePermission, EachSpokenAnswer) {
    struct Case {
        std::string reply;
        std::string out;
        std::string lastLine;
    };
    const std::string poll = "Poll got response";
    const Case cases[] = {
        {" ALLOW\n", kAllow, poll},
        {"Deny", denial(""), poll},
        {"Not now, use the STAGING database/2 ", denial("not now, use the staging database\\/2"), poll},
        {"", "", "Permission dismissed, yielding to TUI for session=" + session_},
    };
    for (const Case& c : cases) {
        const Finished finished = answered(bash("npm test"), c.reply);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, c.out) << c.reply;
        EXPECT_EQ(messagesIn(finished.err).back().rfind(c.lastLine, 0), 0u) << messagesIn(finished.err).back();
    }
    EXPECT_FALSE(exists(autoAcceptFile("Bash")));
    EXPECT_FALSE(exists(settingsFile()));
}

TEST_F(ClaudePermission, TheRequestTheAppSees) {
    const std::string transcript = dir_.file("t.jsonl");
    writeText(transcript, R"({"type":"assistant","message":{"content":[{"type":"text","text":"I will edit a/b.txt"}]}})" "\n");
    const std::string input = event(
        "PermissionRequest",
        R"(,"transcript_path":")" + transcript +
            R"(","tool_name":"Edit","tool_input":{"file_path":"/p/a.txt","old_string":"x\ny","new_string":"z","replace_all":false},)"
            R"("permission_suggestions":[{"type":"addRules","behavior":"allow","rules":[{"toolName":"Edit","ruleContent":"//p/src/**"}]}])");
    const Finished finished = answered(input, "allow");
    EXPECT_EQ(finished.out, kAllow);
    EXPECT_EQ(app_.message,
              R"({"context":"I will edit a\/b.txt","details":"\/p\/a.txt\n\n-x\n-y\n+z","suggestions":[)"
              R"({"behavior":"allow","label":"Yes","tool":"Edit"},)"
              R"({"behavior":"always","label":"Always allow in src\/**","rules":[{"ruleContent":"\/\/p\/src\/**","toolName":"Edit"}],"tool":"Edit"},)"
              R"({"behavior":"bypass-perms","label":"Bypass permissions for this session","tool":"Edit"},)"
              R"({"behavior":"deny","label":"No","tool":"Edit"}],"summary":"Edit file?","toolName":"Edit"})");
    const auto payload = AgentHook::decodeInboxPayload(app_.payload);
    ASSERT_TRUE(payload);
    EXPECT_EQ(payload->status, "permission");
    EXPECT_EQ(payload->summary, "Edit file?");
    EXPECT_EQ(payload->requestId, session_ + "-" + std::to_string(finished.pid));
    // A request without a file key leaves nothing behind.
    EXPECT_FALSE(exists(*payload->messageFile));
    EXPECT_FALSE(exists(*payload->responseFile));
}

TEST_F(ClaudePermission, BypassAllowsTheRestOfTheSessionWithoutTheApp) {
    Finished finished = answered(bash("npm test"), "Bypass\n");
    EXPECT_EQ(finished.out, kAllow);
    EXPECT_EQ(messagesIn(finished.err).back(), "Bypass-perms mode enabled (word-match) for session=" + session_);
    EXPECT_EQ(readText(kScratch + "/" + session_ + "-bypass-perms"), "");

    finished = runHook({"claude"}, request("WebFetch", "null", "null"), environment_);
    EXPECT_EQ(finished.out, kAllow);
    EXPECT_EQ(afterEventLine(finished),
              std::vector<std::string>{"Bypass-perms mode active for session=" + session_ + ", auto-allowing WebFetch"});
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
}

TEST_F(ClaudePermission, StoredRulesAllowWithoutTheApp) {
    writeText(autoAcceptFile("Bash"), "git status\n\n//tmp/*.log\nnpm \n");
    struct Case {
        std::string input;
        std::string target;
    };
    const Case matched[] = {
        {bash("npm test"), "npm test"},
        {request("Bash", R"({"command":"git status","file_path":"/tmp/a.log"})", "[]"), "/tmp/a.log"},
    };
    for (const Case& c : matched) {
        const Finished finished = runHook({"claude"}, c.input, environment_);
        EXPECT_EQ(finished.out, kAllow);
        EXPECT_EQ(afterEventLine(finished), std::vector<std::string>{"Auto-accept matched for Bash target=" + c.target +
                                                                     " session=" + session_});
    }
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
    // Not covered, or another tool: the app is asked.
    EXPECT_EQ(answered(bash("npmx"), "deny").out, denial(""));
    EXPECT_EQ(answered(request("Read", R"({"file_path":"/tmp/a.log"})", "[]"), "deny").out, denial(""));
}

TEST_F(ClaudePermission, AlwaysWithAModeSwitchAllowsTheWholeTool) {
    makeDirectories(cwd_ + "/.claude");
    const std::string userSettings = R"json({"permissions":{"allow":["Read"],"deny":["Bash(rm:*)"]},"model":"x","ratio":0.50,"note":"été ✓"})json";
    writeText(settingsFile(), userSettings);
    ::chmod(settingsFile().c_str(), 0640);

    const Finished finished = answered(bash("npm test"), "always");
    EXPECT_EQ(finished.out, kAllow);
    EXPECT_EQ(readText(autoAcceptFile("Bash")), "*");
    EXPECT_EQ(readText(settingsFile()),
              "{\n  \"model\" : \"x\",\n  \"note\" : \"été ✓\",\n  \"permissions\" : {\n    \"allow\" : [\n"
              "      \"Read\",\n      \"Bash\"\n    ],\n    \"deny\" : [\n      \"Bash(rm:*)\"\n    ]\n  },\n"
              "  \"ratio\" : 0.50\n}");
    struct stat info;
    ASSERT_EQ(::stat(settingsFile().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    const auto messages = messagesIn(finished.err);
    EXPECT_EQ(messages.at(messages.size() - 2), "Always-allow: wrote rules to " + autoAcceptFile("Bash") + ": [\"*\"]");
    EXPECT_EQ(messages.back(), "Always-allow: persisted [\"Bash\"] to " + settingsFile());

    // Every later call of the tool in the session is allowed at once.
    const Finished later = runHook({"claude"}, bash("anything at all"), environment_);
    EXPECT_EQ(later.out, kAllow);
}

TEST_F(ClaudePermission, AlwaysWithRulesStoresThoseRules) {
    writeText(autoAcceptFile("Bash"), "git ");
    const Finished finished = answered(bash("npm test", kRuleSuggestions), "ALWAYS");
    EXPECT_EQ(finished.out, kAllow);
    EXPECT_EQ(readText(autoAcceptFile("Bash")), "git \nnpm test:*");
    EXPECT_EQ(readText(settingsFile()), "{\n  \"permissions\" : {\n    \"allow\" : [\n      \"Bash(npm test:*)\"\n    ]\n  }\n}");
    EXPECT_EQ(messagesIn(finished.err).back(), "Always-allow: persisted [\"Bash(npm test:*)\"] to " + settingsFile());
}

// A cloned repository can plant links and odd files: "always" writes only
// inside the project's real folder, only a regular file, and says where;
// the call is allowed all the same.
TEST_F(ClaudePermission, AlwaysNeverWritesOutsideTheProjectOrIntoAnOddFile) {
    const std::string outside = dir_.file("dotfiles.json");
    const std::string claude = cwd_ + "/.claude";
    const std::string kept = "{\n  \"permissions\" : {\n    \"allow\" : [\n      \"Bash(npm test:*)\"\n    ]\n  }\n}";
    struct Case {
        const char* what;
        std::function<void()> plant;
        std::string written;  // the file that gets the rule, "" for none
        std::string logged;
    };
    const Case cases[] = {
        {"a link inside the project",
         [&] {
             makeDirectories(cwd_ + "/config");
             writeText(cwd_ + "/config/claude.json", "{}");
             makeDirectories(claude);
             ASSERT_EQ(::symlink("../config/claude.json", settingsFile().c_str()), 0);
         },
         cwd_ + "/config/claude.json", "persisted [\"Bash(npm test:*)\"] to " + cwd_ + "/config/claude.json"},
        {"a link to a file elsewhere",
         [&] {
             makeDirectories(claude);
             ASSERT_EQ(::symlink(outside.c_str(), settingsFile().c_str()), 0);
         },
         "", settingsFile() + " is a link to " + outside + ", outside the project; nothing written"},
        {".claude a link elsewhere",
         [&] {
             makeDirectories(dir_.file("elsewhere"));
             ASSERT_EQ(::symlink(dir_.file("elsewhere").c_str(), claude.c_str()), 0);
         },
         "", claude + " is a link to " + dir_.file("elsewhere") + "; nothing written"},
        {"a FIFO",
         [&] {
             makeDirectories(claude);
             ASSERT_EQ(::mkfifo(settingsFile().c_str(), 0600), 0);
         },
         "", "cannot read " + settingsFile() + ": not a regular file; left as it was"},
    };
    for (const Case& c : cases) {
        std::filesystem::remove_all(claude);
        std::filesystem::remove_all(cwd_ + "/config");
        std::filesystem::remove_all(dir_.file("elsewhere"));
        writeText(outside, "{}");
        c.plant();
        const Finished finished = answered(bash("npm test", kRuleSuggestions), "always");
        EXPECT_EQ(finished.out, kAllow) << c.what;
        EXPECT_EQ(messagesIn(finished.err).back(), "Always-allow: " + c.logged) << c.what;
        EXPECT_EQ(readText(outside), "{}") << c.what;
        EXPECT_TRUE(!exists(dir_.file("elsewhere")) || std::filesystem::is_empty(dir_.file("elsewhere"))) << c.what;
        if (!c.written.empty()) {
            EXPECT_EQ(readText(c.written), kept) << c.what;
            struct stat info;
            ASSERT_EQ(::lstat(settingsFile().c_str(), &info), 0);
            EXPECT_TRUE(S_ISLNK(info.st_mode)) << c.what;  // the link stays
        }
    }
}

