// AskUserQuestion and ExitPlanMode end to end: what the app is asked, and the
// exact bytes Claude Code gets back.
#include <gtest/gtest.h>

#include "bridge/AgentInboxPayload.hpp"
#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

const std::string kDatabaseQuestion =
    R"({"question":"Which database?","options":[{"label":"Postgres"},{"label":"SQLite"}]})";

class ClaudeQuestion : public HookTest {
protected:
    std::string call(const std::string& name, const std::string& tool, const std::string& toolInput,
                     const std::string& extra = "") const {
        return event(name, R"(,"tool_name":")" + tool + R"(","tool_input":)" + toolInput + extra);
    }
    // A plan file in the test's home, last modified `age` seconds ago.
    void plan(const std::string& slug, const std::string& text, double age = 0) {
        const std::string plans = environment_.home + "/.claude/plans";
        makeDirectories(plans);
        writeText(plans + "/" + slug + ".md", text);
        setAge(plans + "/" + slug + ".md", age);
    }
    std::string transcriptNaming(const std::string& slug) {
        const std::string path = dir_.file("t.jsonl");
        writeText(path, R"({"type":"user","slug":"other"})" "\n" R"({"type":"assistant","slug":")" + slug + "\"}\n");
        return path;
    }
};

}  // namespace

TEST_F(ClaudeQuestion, TheSingleQuestionFormIsAskedAndAnswered) {
    const Finished finished = answered(call("PreToolUse", "AskUserQuestion", kDatabaseQuestion), R"({"answers":[["SQLite"]]})");
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

    // No answer lets Claude Code ask in the terminal.
    EXPECT_EQ(answered(call("PreToolUse", "AskUserQuestion", kDatabaseQuestion), "").out,
              R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"ask"}})");
}

TEST_F(ClaudeQuestion, APlanReviewAnsweredWithAChangeRequestKeepsClaudePlanning) {
    plan("ship-it", "# Ship it\n\n1. Build\n2. Release");
    const std::string extra = R"(,"transcript_path":")" + transcriptNaming("ship-it") + "\"";
    const std::string input = call("PermissionRequest", "ExitPlanMode", R"({"plan":"# Ship it"})", extra);
    const Finished finished = answered(input, R"({"answers":[["Please add a Rollback step"]]})");
    EXPECT_EQ(finished.out, denial("Please add a Rollback step"));
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
    EXPECT_EQ(answered(input, R"({"answers":[["allow"]]})").out, kAllow);
    EXPECT_EQ(answered(input, "Approve").out, denial(""));
}

