// `agent-hook claude` end to end, with an in-test watcher playing the app.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "bridge/AgentInboxPayload.hpp"
#include "support/TestSupport.hpp"

using namespace testsupport;

using ClaudeFlow = HookTest;

TEST_F(ClaudeFlow, StopHandsTheSpokenReplyBackAsABlockDecision) {
    const std::string input = event("Stop", R"(,"last_assistant_message":"Done with /src.")");
    const Finished finished = answered(input, "Thanks, now \"ship\" it/2");
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

    // An empty reply leaves the turn to Claude.
    EXPECT_EQ(answered(input, "").out, "");
}

TEST_F(ClaudeFlow, TheFinalMessageAndTitleComeFromClaudesFiles) {
    std::string folder = cwd_;
    for (char& c : folder) c = c == '/' ? '-' : c;
    folder = environment_.home + "/.claude/projects/" + folder;
    makeDirectories(folder);
    const std::string transcript = folder + "/" + session_ + ".jsonl";
    writeText(transcript,
              R"({"type":"custom-title","customTitle":"Old name"})" "\n"
              R"({"type":"assistant","message":{"content":[{"type":"text","text":"From the transcript"}]}})" "\n"
              R"({"type":"custom-title","customTitle":"Voice hook"})" "\n");
    const Finished finished = answered(event("Stop", R"(,"transcript_path":")" + transcript + "\""), "ok");
    EXPECT_EQ(finished.out, R"({"decision":"block","reason":"ok"})");
    EXPECT_EQ(app_.message, "From the transcript");
    EXPECT_EQ(AgentHook::decodeInboxPayload(app_.payload)->title, "Voice hook");
}

TEST_F(ClaudeFlow, GatesAndRoutes) {
    struct Case {
        std::string members;  // "hook_event_name" and others, each with a trailing comma
        bool stopHookActive;
        std::vector<std::string> messages;
        std::string out = "";
    };
    const std::string skipped = "Non-stop event with stop_hook_active=true, skipping";
    const std::string unknown = "Unknown event, defaulting to Stop handler";
    const std::string noMessage = "Stop: finalMessage (0 chars): ";
    const Case cases[] = {
        {R"("hook_event_name":"Stop",)", true, {noMessage}},
        {R"("hook_event_name":"S_t_o_p",)", true, {unknown, noMessage}},
        {R"("hook_event_name":"SubagentStop",)", false, {unknown, noMessage}},
        {R"("hook_event_name":"PreToolUse",)", true, {skipped}},
        {R"("hook_event_name":"Notification",)", false, {"Notification type: nil, skipping"}},
        // Before a tool runs, only questions go to the app.
        {R"("hook_event_name":"PreToolUse","tool_name":"Bash","tool_input":{"command":"ls"},)", false, {}},
        {R"("hook_event_name":"PermissionRequest","tool_name":"AskUserQuestion","tool_input":{"answers":{}},)", false,
         {"Letting AskUserQuestion pass through to TUI (no answers)"}},
        {R"("hook_event_name":"PermissionRequest","tool_name":"AskUserQuestion","tool_input":{"answers":{"Q?":"Y"}},)",
         false, {"AskUserQuestion: auto-approving (answers already provided by PreToolUse hook)"}, kAllow},
    };
    for (const Case& c : cases) {
        const std::string input = "{" + c.members + (c.stopHookActive ? R"("stop_hook_active":true,)" : "") +
                                  R"("session_id":")" + session_ + R"("})";
        const Finished finished = runHook({"claude"}, input, environment_);
        EXPECT_EQ(finished.status, 0) << input;
        EXPECT_EQ(finished.out, c.out) << input;
        EXPECT_EQ(afterEventLine(finished), c.messages) << input;
    }
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
}

TEST_F(ClaudeFlow, DisabledSessionsAndDirectoriesEndQuietly) {
    writeText(kScratch + "/disabled-" + session_, "");
    Finished finished = runHook({"claude"}, event("Stop", R"(,"last_assistant_message":"Done.")"), environment_);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(afterEventLine(finished), std::vector<std::string>{"Exiting: voxtrel disabled for session=" + session_});

    // The stop-hook-active gate comes first: a skipped event never consults the markers.
    finished = runHook({"claude"}, event("PreToolUse", R"(,"stop_hook_active":true)"), environment_);
    EXPECT_EQ(afterEventLine(finished), std::vector<std::string>{"Non-stop event with stop_hook_active=true, skipping"});
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
}

TEST_F(ClaudeFlow, TypingIntoTheAgentWithdrawsTheRequest) {
    const std::pair<std::optional<std::string>, std::vector<std::string>> cases[] = {
        {std::nullopt, {"voxtrel://agent-wake"}}, {"myscheme", {"myscheme://agent-wake"}}, {"not a scheme", {}}};
    for (const auto& [scheme, calls] : cases) {
        TempDir dir;
        HookEnvironment environment = makeHookEnvironment(dir);
        if (scheme) environment.extra["VOXTREL_SCHEME"] = *scheme;
        const Finished finished = runHook({"claude"}, event("UserPromptSubmit"), environment);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(payloadsIn(inboxOf(environment)), std::vector<std::string>{dismissPayload(session_)});
        EXPECT_EQ(xdgOpenCalls(environment), calls);
    }
}

// Claude Code ignores a ninth Stop block in a row: that Stop must not ask the
// app for a reply that would be lost, and a new run of Stops asks again.
TEST_F(ClaudeFlow, TheNinthStopInARowStepsAsideInsteadOfAsking) {
    const std::string counter = kScratch + "/" + session_ + "-stop-blocks";
    const auto stop = [&](bool active) {
        return event("Stop", std::string(R"(,"last_assistant_message":"Done.","stop_hook_active":)") +
                                 (active ? "true" : "false"));
    };
    EXPECT_EQ(answered(stop(false), "first").out, R"({"decision":"block","reason":"first"})");
    EXPECT_EQ(readText(counter), "1");
    writeText(counter, "7");  // six more spoken replies in between
    EXPECT_EQ(answered(stop(true), "eighth").out, R"({"decision":"block","reason":"eighth"})");
    EXPECT_EQ(readText(counter), "8");

    const std::string inbox = inboxOf(environment_);
    const std::size_t payloads = payloadsIn(inbox).size();
    const Finished ninth = runHook({"claude"}, stop(true), environment_);
    EXPECT_EQ(ninth.status, 0);
    EXPECT_EQ(ninth.out, "");
    EXPECT_EQ(payloadsIn(inbox).size(), payloads);
    EXPECT_EQ(afterEventLine(ninth),
              (std::vector<std::string>{"Stop: finalMessage (5 chars): Done.",
                                        "Stop: Claude Code ignores a block after 8 in a row, stepping aside session=" +
                                            session_}));

    // The user types to go on: the next turn's Stop comes without the flag.
    EXPECT_EQ(answered(stop(false), "again").out, R"({"decision":"block","reason":"again"})");
    EXPECT_EQ(readText(counter), "1");
}
