// The program as the agents start it: arguments, exit statuses, standard
// streams and the debug log.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <regex>

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

TEST_F(EntryPoint, AgentNamesMatchInAnyLetterCaseAndExtraArgumentsAreIgnored) {
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"Claude"}, {"CLAUDE"}, {"claude", "--verbose", "x"}}) {
        const Finished finished = runHook(arguments, event("Notification"), environment_);
        EXPECT_EQ(finished.status, 0);
        const auto messages = messagesIn(finished.err);
        ASSERT_FALSE(messages.empty());
        EXPECT_EQ(messages.front(), "Hook started (claude)");
    }
}

TEST_F(EntryPoint, InputThatIsNotAJsonObjectEndsWithStatus1) {
    // Bytes after the object, hidden behind a NUL, make it no object at all.
    using namespace std::string_literals;
    for (const std::string& input : {""s, "[1,2]"s, "\"Stop\""s, "{\"session_id\":"s, "\xFF"s, "{}\0{\"x\":1}"s}) {
        const Finished finished = runHook({"claude"}, input, environment_);
        EXPECT_EQ(finished.status, 1) << input;
        EXPECT_EQ(finished.out, "");
        const auto messages = messagesIn(finished.err);
        ASSERT_EQ(messages.size(), 3u) << finished.err;
        EXPECT_EQ(messages[2], "Failed to decode JSON");
    }
}

TEST_F(EntryPoint, LogLinesGoToStandardErrorAndTheLogFileAlike) {
    const std::string input = R"({"hook_event_name":"Notification","notification_type":"idle_prompt","session_id":")" +
                              session_ + R"(","cwd":"/tmp/é"})";
    const std::size_t since = logSize();
    const Finished finished = runHook({"claude"}, input, environment_);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
    const std::regex line(R"(\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] \[)" + std::to_string(finished.pid) + R"(\] .*)");
    std::size_t start = 0;
    while (start < finished.err.size()) {
        const std::size_t end = finished.err.find('\n', start);
        ASSERT_NE(end, std::string::npos);
        EXPECT_TRUE(std::regex_match(finished.err.substr(start, end - start), line)) << finished.err.substr(start, end - start);
        start = end + 1;
    }
    EXPECT_EQ(logMessagesOf(finished.pid, since), messagesIn(finished.err));
    EXPECT_EQ(messagesIn(finished.err),
              (std::vector<std::string>{"Hook started (claude)",
                                        "Input (" + std::to_string(input.size()) + " bytes): " + input,
                                        "Event: Notification session=" + session_,
                                        "Notification type: idle_prompt, skipping"}));
}

TEST_F(EntryPoint, TheInputRecordCutsAt500CharactersOrSaysBinary) {
    struct Case {
        std::string input;
        std::string record;
    };
    const std::string wide = "\xC3\xA9";  // é: two bytes, one character
    std::string accents;
    for (int i = 0; i < 600; ++i) accents += wide;
    std::string first500;
    for (int i = 0; i < 500; ++i) first500 += wide;
    const Case cases[] = {
        {std::string(1200, 'a'), "Input (1200 bytes): " + std::string(500, 'a')},
        {accents, "Input (1200 bytes): " + first500},
        {"\xFF", "Input (1 bytes): (binary)"},
        {"", "Input (0 bytes): "},
    };
    for (const Case& c : cases) {
        const Finished finished = runHook({"claude"}, c.input, environment_);
        const auto messages = messagesIn(finished.err);
        ASSERT_GE(messages.size(), 2u);
        EXPECT_EQ(messages[1], c.record);
    }
}
