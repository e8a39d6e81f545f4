// The program as the agents start it: arguments, exit statuses, standard
// streams and the debug log.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>


#include "support/TestSupport.hpp"

using namespace testsupport;

using EntryPoint = HookTest;

TEST_F(EntryPoint, UnknownAgentsGetTheUsageLineAndStatus64WithoutReadingInput) {
    const std::vector<std::vector<std::string>> argumentLists = {{}, {"gemini"}, {""}, {"claudex"}, {" claude"}};
    for (const auto& arguments : argumentLists) {
        // Standard input stays open and unread: the program must not wait for it.
        const std::size_t since = logSize();
        RunningProcess process = start(AGENT_HOOK_PROGRAM, arguments, environment_.build(), false, "{\"x\":1}");
        const int stdinFd = process.stdinFd;
        process.stdinFd = -1;
        const Finished finished = finish(process);
        EXPECT_EQ(finished.status, 64);
        EXPECT_EQ(finished.err, "usage: agent-hook <claude|codex|grok>\n");
        EXPECT_EQ(finished.out, "");
        EXPECT_TRUE(logMessagesOf(finished.pid, since).empty());
        ::close(stdinFd);
    }
}

TEST_F(EntryPoint, LogLinesGoToStandardErrorAndTheLogFileAlike) {
    const std::string input = R"({"hook_event_name":"Notification","notification_type":"idle_prompt","session_id":")" +
                              session_ + R"(","cwd":"/tmp/é"})";
    const std::size_t since = logSize();
    const Finished finished = runHook({"claude"}, input, environment_);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
    // Every line of standard error is a log line of this process: the file holds the same.
    EXPECT_EQ(logMessagesOf(finished.pid, since), messagesIn(finished.err));
    EXPECT_EQ(messagesIn(finished.err),
              (std::vector<std::string>{"Hook started (claude)",
                                        "Input (" + std::to_string(input.size()) + " bytes): " + input,
                                        "Event: Notification session=" + session_,
                                        "Notification type: idle_prompt, skipping"}));
}

