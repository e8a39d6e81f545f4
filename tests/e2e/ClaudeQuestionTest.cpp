// AskUserQuestion and ExitPlanMode end to end: what the app is asked, and the
// exact bytes Claude Code gets back.
#include <gtest/gtest.h>

#include <sys/time.h>

#include "bridge/AgentInboxPayload.hpp"
#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

const std::string kDatabaseQuestion =
    R"({"question":"Which database?","options":[{"label":"Postgres"},{"label":"SQLite"}]})";

class ClaudeQuestion : public HookTest {
protected:
    std::string event(const std::string& name, const std::string& tool, const std::string& toolInput,
                      const std::string& extra = "") const {
        return R"({"hook_event_name":")" + name + R"(","session_id":")" + session_ + R"(","cwd":")" + cwd_ +
               R"(","tool_name":")" + tool + R"(","tool_input":)" + toolInput + extra + "}";
    }
    Finished answered(const std::string& input, const std::string& reply) {
        app_.answerNext(environment_, reply);
        Finished finished = runHook({"claude"}, input, environment_);
        app_.join();
        return finished;
    }
    // A plan file in the test's home, last modified `age` seconds ago.
    void plan(const std::string& slug, const std::string& text, long age = 0) {
        const std::string plans = environment_.home + "/.claude/plans";
        makeDirectories(plans);
        const std::string path = plans + "/" + slug + ".md";
        writeText(path, text);
        timeval times[2];
        ::gettimeofday(&times[0], nullptr);
        times[0].tv_sec -= age;
        times[1] = times[0];
        ::utimes(path.c_str(), times);
    }
    std::string transcriptNaming(const std::string& slug) {
        const std::string path = dir_.file("t.jsonl");
        writeText(path, R"({"type":"user","slug":"other"})" "\n" R"({"type":"assistant","slug":")" + slug + "\"}\n");
        return path;
    }
};

}  // namespace

TEST_F(ClaudeQuestion, TheSingleQuestionFormIsAskedAndAnswered) {
    const Finished finished = answered(event("PreToolUse", "AskUserQuestion", kDatabaseQuestion), R"({"answers":[["SQLite"]]})");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out,
              R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"allow","updatedInput":{)"
              R"("answers":{"Which database?":"SQLite"},"questions":[{"options":[{"label":"Postgres"},{"label":"SQLite"}],)"
              R"("question":"Which database?"}]}}})");
    EXPECT_EQ(app_.message, R"({"questions":[{"options":[{"label":"Postgres"},{"label":"SQLite"}],"question":"Which database?"}]})");
    const auto payload = AgentHook::decodeInboxPayload(app_.payload);
    EXPECT_EQ(payload->status, "question");
    EXPECT_EQ(payload->summary, "Which database?");
    EXPECT_EQ(afterEventLine(finished).at(0), "PreToolUse AskUserQuestion: 1 question(s)");
}

TEST_F(ClaudeQuestion, SpokenWordsAnswerTheFirstQuestion) {
    const std::string questions = R"({"questions":[)" + kDatabaseQuestion +
                                  R"(,{"question":"Where?","header":"Host","options":[],"multiSelect":true}]})";
    const Finished finished = answered(event("PreToolUse", "AskUserQuestion", questions), "Use SQLite, on my/laptop\n");
    EXPECT_EQ(finished.out,
              R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"allow","updatedInput":{)"
              R"("answers":{"Which database?":"Use SQLite, on my\/laptop"},"questions":[)"
              R"({"options":[{"label":"Postgres"},{"label":"SQLite"}],"question":"Which database?"},)"
              R"({"header":"Host","multiSelect":true,"options":[],"question":"Where?"}]}}})");
    EXPECT_EQ(afterEventLine(finished).at(0), "PreToolUse AskUserQuestion: 2 question(s)");
}

TEST_F(ClaudeQuestion, InPlanModeThePlanGoesAlong) {
    plan("db-plan", "\n# Move to SQLite\n");
    const std::string extra = R"(,"permission_mode":"plan","transcript_path":")" + transcriptNaming("db-plan") + "\"";
    const Finished finished =
        answered(event("PreToolUse", "AskUserQuestion", kDatabaseQuestion, extra), R"({"answers":[["Postgres"]]})");
    EXPECT_EQ(app_.message, R"({"context":"# Move to SQLite","questions":[{"options":[{"label":"Postgres"},{"label":"SQLite"}],"question":"Which database?"}]})");
    const auto messages = afterEventLine(finished);
    EXPECT_EQ(messages.at(0), "findPlanContent: matched plan via transcript slug 'db-plan'");
    EXPECT_EQ(messages.at(1), "PreToolUse AskUserQuestion: found plan context (16 chars)");

    // A plan older than 15 seconds belongs to an earlier question: none goes along.
    plan("db-plan", "# Old", 20);
    const Finished stale =
        answered(event("PreToolUse", "AskUserQuestion", kDatabaseQuestion, extra), R"({"answers":[["Postgres"]]})");
    EXPECT_EQ(app_.message.find("context"), std::string::npos);
    EXPECT_EQ(afterEventLine(stale).at(0), "findPlanContent: plan file 'db-plan' is stale (20s old), skipping");
}

TEST_F(ClaudeQuestion, NoAnswerLetsClaudeAsk) {
    const Finished finished = answered(event("PreToolUse", "AskUserQuestion", kDatabaseQuestion), "");
    EXPECT_EQ(finished.out, R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"ask"}})");
}

TEST_F(ClaudeQuestion, OtherToolsAndNoQuestionsPassQuietly) {
    const std::string inputs[] = {
        event("PreToolUse", "Bash", R"({"command":"ls"})"),
        event("PreToolUse", "AskUserQuestion", R"({"questions":[],"question":""})"),
        event("PreToolUse", "AskUserQuestion", R"({"questions":[{"question":"Q","options":"bad"}]})"),
    };
    for (const std::string& input : inputs) {
        const Finished finished = runHook({"claude"}, input, environment_);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, "");
        EXPECT_TRUE(afterEventLine(finished).empty()) << input;
    }
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
}

TEST_F(ClaudeQuestion, APlanReviewAnsweredWithAChangeRequestKeepsClaudePlanning) {
    plan("ship-it", "# Ship it\n\n1. Build\n2. Release");
    const std::string extra = R"(,"transcript_path":")" + transcriptNaming("ship-it") + "\"";
    const std::string input = event("PermissionRequest", "ExitPlanMode", R"({"plan":"# Ship it"})", extra);
    const Finished finished = answered(input, R"({"answers":[["Please add a Rollback step"]]})");
    EXPECT_EQ(finished.out,
              R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"Please add a Rollback step"},"hookEventName":"PermissionRequest"}})");
    EXPECT_EQ(app_.message,
              R"({"context":"# Ship it\n\n1. Build\n2. Release","questions":[{"header":"Plan","multiSelect":false,"options":[)"
              R"({"description":"Start implementing the plan","label":"Approve"},)"
              R"({"description":"Go back and revise the plan","label":"Reject"}],"question":"Approve this implementation plan?"}]})");
    const auto payload = AgentHook::decodeInboxPayload(app_.payload);
    EXPECT_EQ(payload->status, "question");
    EXPECT_EQ(payload->summary, "Review implementation plan");
    const auto messages = afterEventLine(finished);
    ASSERT_GE(messages.size(), 4u);
    EXPECT_EQ(std::vector<std::string>(messages.begin(), messages.begin() + 3),
              (std::vector<std::string>{"ExitPlanMode: looking for plan content",
                                        "findPlanContent: matched plan via transcript slug 'ship-it'",
                                        "ExitPlanMode: found plan (30 chars)"}));

    // The review never skips a plan for its age.
    plan("ship-it", "# Ship it", 60);
    EXPECT_EQ(answered(input, R"({"answers":[["allow"]]})").out,
              R"({"hookSpecificOutput":{"decision":{"behavior":"allow","message":""},"hookEventName":"PermissionRequest"}})");
    EXPECT_EQ(answered(input, "Approve").out,
              R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":""},"hookEventName":"PermissionRequest"}})");
}

TEST_F(ClaudeQuestion, APlanReviewWithoutPlanOrAnswer) {
    const std::string input = event("PermissionRequest", "ExitPlanMode", "{}");
    const Finished finished = answered(input, "");
    EXPECT_EQ(finished.out, "");
    const auto messages = afterEventLine(finished);
    EXPECT_EQ(messages.at(0), "ExitPlanMode: looking for plan content");
    EXPECT_EQ(messages.at(1), "ExitPlanMode: no plan file found");
    EXPECT_EQ(messages.back(), "ExitPlanMode: no response, yielding to TUI");
    EXPECT_EQ(app_.message.find("context"), std::string::npos);

    // Without a slug in the transcript, the newest plan file is the plan.
    plan("older", "Older", 100);
    plan("newer", "Newer", 50);
    answered(input, R"({"answers":[["deny"]]})");
    EXPECT_NE(app_.message.find(R"("context":"Newer")"), std::string::npos);
}
