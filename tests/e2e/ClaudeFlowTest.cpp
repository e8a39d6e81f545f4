// `agent-hook claude` end to end, with an in-test watcher playing the app.
#include <gtest/gtest.h>

#include <signal.h>

#include "bridge/AgentInboxPayload.hpp"
#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

class ClaudeFlow : public HookTest {
protected:
    std::string stopEvent(const std::string& extra) const {
        return R"({"hook_event_name":"Stop","session_id":")" + session_ + R"(","cwd":")" + cwd_ + "\"" + extra + "}";
    }
};

}  // namespace

TEST_F(ClaudeFlow, StopHandsTheSpokenReplyBackAsABlockDecision) {
    app_.answerNext(environment_, "Thanks, now \"ship\" it/2");
    const Finished finished = runHook({"claude"}, stopEvent(R"(,"last_assistant_message":"Done with /src.")"), environment_);
    app_.join();

    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, R"({"decision":"block","reason":"Thanks, now \"ship\" it\/2"})");
    const std::string messageFile = kScratch + "/" + session_ + "-stop-message.txt";
    const std::string responseFile = kScratch + "/" + session_ + "-stop-response.txt";
    EXPECT_EQ(app_.payload,
              R"({"agent":"claude-code","branch":"","cwd":")" + escapedSlashes(cwd_) + R"(","hookPid":)" +
                  std::to_string(finished.pid) + R"(,"kind":"update","messageFile":")" + escapedSlashes(messageFile) +
                  R"(","project":"proj","requestId":")" + session_ + R"(-stop","responseFile":")" +
                  escapedSlashes(responseFile) + R"(","sessionId":")" + session_ +
                  R"(","status":"completed","summary":"Task complete","title":""})");
    EXPECT_EQ(app_.message, "Done with /src.");
    EXPECT_EQ(readText(messageFile), "Done with /src.");  // Stop files stay for the next turn
    EXPECT_TRUE(exists(responseFile));
    EXPECT_EQ(afterEventLine(finished),
              (std::vector<std::string>{
                  "Stop: finalMessage (15 chars): Done with /src.",
                  "Stop: notifying voxtrel with final message",
                  "Notification sent: agent=claude-code status=completed session=" + session_ + " requestId=" +
                      session_ + "-stop summary=Task complete",
                  "Poll got response (23 chars) for session=" + session_ + " requestId=" + session_ + "-stop",
                  "Stop: relaying voice response via decision=block reason"}));
    EXPECT_EQ(xdgOpenCalls(environment_), std::vector<std::string>{"voxtrel://agent-wake"});
}

TEST_F(ClaudeFlow, AnEmptyReplyLeavesTheTurnToClaude) {
    app_.answerNext(environment_, "");
    const Finished finished = runHook({"claude"}, stopEvent(R"(,"last_assistant_message":"Done.")"), environment_);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
}

TEST_F(ClaudeFlow, StopWithoutAnyFinalMessageContactsNoApp) {
    const Finished finished = runHook({"claude"}, stopEvent(R"(,"last_assistant_message":"")"), environment_);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(afterEventLine(finished), std::vector<std::string>{"Stop: finalMessage (0 chars): "});
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
}

TEST_F(ClaudeFlow, TheFinalMessageAndTitleComeFromClaudesFiles) {
    const std::string folder = environment_.home + "/.claude/projects/" + [&] {
        std::string name = cwd_;
        for (char& c : name) c = c == '/' ? '-' : c;
        return name;
    }();
    makeDirectories(folder);
    const std::string transcript = folder + "/" + session_ + ".jsonl";
    writeText(transcript,
              R"({"type":"custom-title","customTitle":"Old name"})" "\n"
              R"({"type":"assistant","message":{"content":[{"type":"text","text":"From the transcript"}]}})" "\n"
              R"({"type":"custom-title","customTitle":"Voice hook"})" "\n");
    app_.answerNext(environment_, "ok");
    const Finished finished = runHook({"claude"}, stopEvent(R"(,"transcript_path":")" + transcript + "\""), environment_);
    app_.join();
    EXPECT_EQ(finished.out, R"({"decision":"block","reason":"ok"})");
    EXPECT_EQ(app_.message, "From the transcript");
    EXPECT_EQ(AgentHook::decodeInboxPayload(app_.payload)->title, "Voice hook");
}

TEST_F(ClaudeFlow, GatesAndRoutes) {
    struct Case {
        std::string nameMember;  // the "hook_event_name" member and others, or ""
        bool stopHookActive;
        std::vector<std::string> messages;
        std::string out = "";
    };
    const std::string skipped = "Non-stop event with stop_hook_active=true, skipping";
    const std::string unknown = "Unknown event, defaulting to Stop handler";
    const std::string noMessage = "Stop: finalMessage (0 chars): ";
    const Case cases[] = {
        {R"("hook_event_name":"Stop",)", true, {noMessage}},
        {R"("hook_event_name":"stop",)", true, {unknown, noMessage}},
        {R"("hook_event_name":"S_t_o_p",)", true, {unknown, noMessage}},
        {R"("hook_event_name":"stop_",)", true, {unknown, noMessage}},
        {R"("hook_event_name":"SubagentStop",)", true, {skipped}},
        {R"("hook_event_name":"SubagentStop",)", false, {unknown, noMessage}},
        {"", true, {skipped}},
        {"", false, {unknown, noMessage}},
        {R"("hook_event_name":"PreToolUse",)", true, {skipped}},
        {R"("hook_event_name":"Notification",)", false, {"Notification type: nil, skipping"}},
        {R"("hook_event_name":"PermissionRequest","tool_name":"AskUserQuestion","tool_input":{"answers":{}},)", false,
         {"Letting AskUserQuestion pass through to TUI (no answers)"}},
        {R"("hook_event_name":"PermissionRequest","tool_name":"AskUserQuestion","tool_input":{"answers":{"Q?":"Y"}},)",
         false,
         {"AskUserQuestion: auto-approving (answers already provided by PreToolUse hook)"},
         R"({"hookSpecificOutput":{"decision":{"behavior":"allow","message":""},"hookEventName":"PermissionRequest"}})"},
    };
    for (const Case& c : cases) {
        const std::string input = "{" + c.nameMember + (c.stopHookActive ? R"("stop_hook_active":true,)" : "") +
                                  R"("session_id":")" + session_ + R"("})";
        const Finished finished = runHook({"claude"}, input, environment_);
        EXPECT_EQ(finished.status, 0) << input;
        EXPECT_EQ(finished.out, c.out) << input;
        EXPECT_EQ(afterEventLine(finished), c.messages) << input;
    }
    const Finished nameless = runHook({"claude"}, R"({"session_id":")" + session_ + R"("})", environment_);
    EXPECT_EQ(messagesIn(nameless.err).at(2), "Event: nil session=" + session_);
}

TEST_F(ClaudeFlow, DisabledSessionsAndDirectoriesEndQuietly) {
    writeText(kScratch + "/disabled-" + session_, "");
    Finished finished = runHook({"claude"}, stopEvent(R"(,"last_assistant_message":"Done.")"), environment_);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(afterEventLine(finished), std::vector<std::string>{"Exiting: voxtrel disabled for session=" + session_});

    // The stop-hook-active gate comes first: a skipped event never consults the markers.
    finished = runHook({"claude"}, R"({"hook_event_name":"PreToolUse","stop_hook_active":true,"session_id":")" +
                                       session_ + R"("})", environment_);
    EXPECT_EQ(afterEventLine(finished), std::vector<std::string>{"Non-stop event with stop_hook_active=true, skipping"});
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
}

TEST_F(ClaudeFlow, TypingIntoTheAgentWithdrawsTheRequest) {
    struct Case {
        std::optional<std::string> scheme;
        std::vector<std::string> calls;
    };
    const Case cases[] = {{std::nullopt, {"voxtrel://agent-wake"}}, {"myscheme", {"myscheme://agent-wake"}},
                          {"not a scheme", {}}};
    for (const Case& c : cases) {
        TempDir dir;
        HookEnvironment environment = makeHookEnvironment(dir);
        if (c.scheme) environment.extra["VOXTREL_SCHEME"] = *c.scheme;
        const Finished finished = runHook(
            {"claude"}, R"({"hook_event_name":"UserPromptSubmit","session_id":")" + session_ + R"("})", environment);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(payloadsIn(inboxOf(environment)),
                  std::vector<std::string>{R"({"kind":"dismiss","sessionId":")" + session_ + R"("})"});
        EXPECT_EQ(xdgOpenCalls(environment), c.calls);
    }
}

TEST_F(ClaudeFlow, AnInterruptDuringTheWaitDismissesAndExitsZero) {
    RunningProcess process =
        start(AGENT_HOOK_PROGRAM, {"claude"}, environment_.build(), true, stopEvent(R"(,"last_assistant_message":"Hi")"));
    ASSERT_TRUE(waitForPayload(inboxOf(environment_), 20));
    // A Ctrl-C before the wait begins ends the process the ordinary way.
    waitForInterruptHandler(process.pid);
    ::kill(process.pid, SIGINT);
    const Finished finished = finish(process);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(messagesIn(finished.err).back(), "SIGINT received \xE2\x80\x94 dismissing session=" + session_ + " and exiting");
    const auto payloads = payloadsIn(inboxOf(environment_));
    ASSERT_EQ(payloads.size(), 2u);
    EXPECT_EQ(payloads[1], R"({"kind":"dismiss","sessionId":")" + session_ + R"("})");
    EXPECT_TRUE(exists(kScratch + "/" + session_ + "-stop-message.txt"));
}
