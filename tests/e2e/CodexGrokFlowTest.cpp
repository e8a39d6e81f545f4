// `agent-hook codex` and `agent-hook grok` end to end: finished turns,
// permission requests and their replies, byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "bridge/AgentInboxPayload.hpp"
#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

class AgentFlow : public HookTest {
protected:
    std::string codexPermission() const {
        return event("PermissionRequest",
                     R"(,"permission_mode":"on-request","tool_name":"Bash","tool_input":{"command":"npm publish","description":"Publish it"})");
    }
    std::string grok(const std::string& event, const std::string& extra = "") const {
        return R"({"hookEventName":")" + event + R"(","sessionId":")" + session_ + R"(","cwd":")" + cwd_ +
               R"(","toolName":"run_terminal_command","toolInput":{"command":"make"})" + extra + "}";
    }
};

}  // namespace

TEST_F(AgentFlow, CodexFinishedTurn) {
    const Finished finished =
        answered(event("Stop", R"(,"last_assistant_message":"Published \/ done.")"), "Now tag the release", "codex");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, R"({"decision":"block","reason":"Now tag the release"})");
    EXPECT_EQ(app_.message, "Published / done.");
    const auto payload = AgentHook::decodeInboxPayload(app_.payload);
    EXPECT_EQ(payload->agent, "codex");
    EXPECT_EQ(payload->title, "");
    EXPECT_EQ(payload->requestId, session_ + "-stop");
}

TEST_F(AgentFlow, CodexPermissionReplies) {
    struct Case {
        std::string reply;
        std::string out;
    };
    const Case cases[] = {
        {" ALLOW\n", kAllow},
        {"deny", denial("")},
        {"No, use the STAGING database\n", denial("No, use the STAGING database\\n")},  // word for word
        {"always", denial("always")},
        {"", ""},
    };
    for (const Case& c : cases) {
        const Finished finished = answered(codexPermission(), c.reply, "codex");
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, c.out) << c.reply;
    }
    EXPECT_EQ(app_.message,
              R"({"details":"npm publish","suggestions":[{"behavior":"allow","label":"Yes","tool":"Bash"},)"
              R"({"behavior":"bypass-perms","label":"Bypass permissions for this session","tool":"Bash"},)"
              R"({"behavior":"deny","label":"No","tool":"Bash"}],"summary":"Publish it","toolName":"Bash"})");
    const Finished bypass = answered(codexPermission(), "bypass", "codex");
    EXPECT_EQ(bypass.out, kAllow);
    EXPECT_EQ(messagesIn(bypass.err).back(), "Bypass-perms mode enabled for codex session=" + session_);
    const Finished later = runHook({"codex"}, codexPermission(), environment_);
    EXPECT_EQ(later.out, kAllow);
    EXPECT_EQ(afterEventLine(later),
              std::vector<std::string>{"Bypass-perms mode active for session=" + session_ + ", auto-allowing Bash"});
}

TEST_F(AgentFlow, CodexRoutesByExactName) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {R"("hook_event_name":"SessionStart","source":"resume")", {"SessionStart: source=resume, no-op"}},
        {R"("hook_event_name":"PostToolUse")", {"PostToolUse not yet handled for codex, passing through"}},
        {R"("hook_event_name":"stop")", {"Unknown codex event stop, exiting"}},
        {R"("hook_event_name":"Interrupt","stop_hook_active":true)", {"Non-stop event with stop_hook_active=true, skipping"}},
        {R"("x":1)", {"Unknown codex event nil, exiting"}},
    };
    for (const auto& [members, messages] : cases) {
        const Finished finished = runHook({"codex"}, R"({"session_id":")" + session_ + R"(",)" + members + "}", environment_);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(afterEventLine(finished), messages) << members;
    }
    EXPECT_EQ(runHook({"codex"}, "", environment_).status, 1);
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
}

TEST_F(AgentFlow, GrokPreToolUseAnswersInGroksOwnForm) {
    struct Case {
        std::string reply;
        std::string out;
    };
    const Case cases[] = {
        {"allow", R"({"decision":"allow"})"},
        {"Use the Makefile in /src", R"({"decision":"deny","reason":"Use the Makefile in \/src"})"},
        {"", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(answered(grok("pre_tool_use"), c.reply, "grok").out, c.out) << c.reply;
    }
    const auto payload = AgentHook::decodeInboxPayload(app_.payload);
    EXPECT_EQ(payload->agent, "grok");
    EXPECT_EQ(payload->summary, "Run command?");
    // A permission request in Grok's name gets the decision all agents share.
    EXPECT_EQ(answered(grok("PermissionRequest"), "Use the Makefile", "grok").out, denial("Use the Makefile"));
    // Modes in which Grok never asks pass through, whatever the session's markers say.
    const Finished passed = runHook({"grok"}, grok("PRE_TOOL_USE", R"(,"permissionMode":"dontAsk")"), environment_);
    EXPECT_EQ(passed.out, "");
    EXPECT_EQ(afterEventLine(passed),
              std::vector<std::string>{"permissionMode=dontAsk never asks, passing through run_terminal_command"});
}

TEST_F(AgentFlow, GrokFinishedTurnFromTheSessionHistory) {
    const std::string history = environment_.home + "/.grok/sessions/group/" + session_;
    makeDirectories(history);
    writeText(history + "/chat_history.jsonl",
              R"({"type":"user","content":"Build it"})" "\n"
              R"({"type":"assistant","content":[{"type":"text","text":"Built "},{"type":"text","text":"and tested."}]})" "\n");
    const Finished finished = answered(grok("Stop", R"(,"reason":"END_TURN","lastAssistantMessage":"")"), "ship it", "grok");
    EXPECT_EQ(finished.out, R"({"decision":"block","reason":"ship it"})");
    EXPECT_EQ(app_.message, "Built and tested.");

    const Finished shutdown = runHook({"grok"}, grok("Stop", R"(,"reason":"Shutdown")"), environment_);
    EXPECT_EQ(afterEventLine(shutdown), std::vector<std::string>{"Stop reason=shutdown, skipping"});
}

// With no app running as a request goes out, the request gets 20 s to be
// taken from the inbox; one still there is taken back and the agent asks in
// its own terminal, while one an app took is waited for as long as ever.
TEST_F(AgentFlow, ARequestNoAppTakesIsTakenBackAfterTwentySeconds) {
    const std::string inbox = inboxOf(environment_);
    const std::string taken = uniqueSessionId("taken");
    const auto permission = [&](const std::string& session) {
        return R"({"hook_event_name":"PermissionRequest","session_id":")" + session + R"(","cwd":")" + cwd_ +
               R"(","tool_name":"Bash","tool_input":{"command":"make"}})";
    };
    const auto startedAt = std::chrono::steady_clock::now();
    RunningProcess untaken = start(AGENT_HOOK_PROGRAM, {"codex"}, environment_.build(), true, permission(session_));
    RunningProcess answeredLater = start(AGENT_HOOK_PROGRAM, {"codex"}, environment_.build(), true, permission(taken));
    // The app takes the second session's payload at once and answers after 25 s.
    std::string response;
    while (response.empty() && std::chrono::steady_clock::now() - startedAt < std::chrono::seconds(10)) {
        for (const std::string& path : payloadPathsIn(inbox)) {
            const auto decoded = AgentHook::decodeInboxPayload(readText(path));
            if (!decoded || decoded->sessionId != taken) continue;
            std::filesystem::remove(path);
            response = decoded->responseFile.value_or("");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_FALSE(response.empty());

    const Finished gaveUp = finish(untaken);
    const double gaveUpAfter = std::chrono::duration<double>(std::chrono::steady_clock::now() - startedAt).count();
    EXPECT_EQ(gaveUp.status, 0);
    EXPECT_EQ(gaveUp.out, "");
    EXPECT_GE(gaveUpAfter, 20);
    EXPECT_LT(gaveUpAfter, 24);
    const std::vector<std::string> messages = messagesIn(gaveUp.err);
    const std::string tookBack = "No app took the request within 20 s; took it back (requestId=" + session_ + "-";
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(), [&](const std::string& m) { return m.rfind(tookBack, 0) == 0; }),
              1);
    EXPECT_TRUE(payloadPathsIn(inbox).empty());  // taken back, and no dismiss for it

    std::this_thread::sleep_until(startedAt + std::chrono::seconds(25));
    writeText(response, "allow");
    const Finished allowed = finish(answeredLater);
    EXPECT_EQ(allowed.out, kAllow);
    removeSessionFiles(taken);
}
