// Odd and hostile surroundings, each tried on an earlier build: the hook
// ends with status 0, and neither writes where it must not nor dies.
#include <gtest/gtest.h>

#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

class Hostile : public HookTest {
protected:
    // A Claude event that decides at once: the questions were answered already.
    std::string deciding() const {
        return event("PermissionRequest", R"(,"tool_name":"AskUserQuestion","tool_input":{"answers":{"Q?":"A"}})");
    }
};

}  // namespace

TEST_F(Hostile, ClosedStandardStreams) {
    // The hook starts with standard error closed: the log file must not take its number.
    const std::size_t since = logSize();
    RunningProcess process = start("/bin/sh", {"-c", "exec 2>&-; exec \"$0\" claude", AGENT_HOOK_PROGRAM},
                                   environment_.build(), true, deciding());
    const Finished finished = finish(process);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, kAllow);
    const auto messages = logMessagesOf(finished.pid, since);
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages.back(), "AskUserQuestion: auto-approving (answers already provided by PreToolUse hook)");
}

TEST_F(Hostile, ASessionIdThatCouldLeaveTheScratchDirectory) {
    for (const std::string& id : {std::string("../escaped"), std::string("a/b"), std::string("a\\u0000b"), std::string("..")}) {
        const std::string input = R"({"hook_event_name":"Stop","session_id":")" + id +
                                  R"(","last_assistant_message":"Done."})";
        const Finished finished = runHook({"codex"}, input, environment_);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(afterEventLine(finished),
                  std::vector<std::string>{"Session id cannot name a file, leaving the decision to the agent"})
            << id;
    }
    EXPECT_TRUE(payloadsIn(inboxOf(environment_)).empty());
    EXPECT_FALSE(exists("/tmp/escaped-stop-message.txt"));
}

