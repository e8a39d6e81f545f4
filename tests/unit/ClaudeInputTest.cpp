#include <gtest/gtest.h>

#include "claude/ClaudeHookInput.hpp"

using namespace AgentHook::Claude;

namespace {
constexpr std::int64_t kNow = 1763323615;

HookInput decode(const std::string& json) {
    auto input = decodeHookInput(json, kNow);
    EXPECT_TRUE(input) << json;
    return input.value_or(HookInput{});
}
}  // namespace

TEST(ClaudeInput, MissingMembersAndMembersOfTheWrongTypeTakeTheirDefault) {
    const char* inputs[] = {
        "{}",
        R"({"session_id":42,"cwd":null,"stop_hook_active":"true","hook_event_name":["Stop"],"tool_name":false,)"
        R"("tool_input":"ls","permission_suggestions":{},"last_assistant_message":7,"transcript_path":1,"message":{}})",
    };
    for (const char* json : inputs) {
        const HookInput input = decode(json);
        EXPECT_EQ(input.sessionId, "claude_1763323615");
        EXPECT_EQ(input.cwd, "");
        EXPECT_EQ(input.toolName, "unknown");
        EXPECT_FALSE(input.transcriptPath || input.stopHookActive || input.hookEventName || input.message ||
                     input.notificationType || input.toolInput || input.permissionSuggestions ||
                     input.permissionMode || input.lastAssistantMessage)
            << json;
    }
}

TEST(ClaudeInput, OneBadNestedValueFailsItsWholeRecord) {
    struct Case {
        const char* json;
        bool toolInput;
        bool suggestions;
    };
    const Case cases[] = {
        {R"({"tool_input":{"command":5,"description":"ok"}})", false, true},
        {R"({"tool_input":{"questions":[{"question":"Q"}]}})", false, true},              // options missing
        {R"({"tool_input":{"command":null,"multiSelect":true}})", true, true},
        {R"({"permission_suggestions":[{"type":"x"},{"rules":[{"toolName":3}]}]})", true, false},
        {R"({"permission_suggestions":[]})", true, true},
    };
    for (const Case& c : cases) {
        const HookInput input = decode(c.json);
        if (std::string(c.json).find("tool_input") != std::string::npos) {
            EXPECT_EQ(input.toolInput.has_value(), c.toolInput) << c.json;
        }
        if (std::string(c.json).find("permission_suggestions") != std::string::npos) {
            EXPECT_EQ(input.permissionSuggestions.has_value(), c.suggestions) << c.json;
        }
    }
}

TEST(ClaudeInput, ElicitationQuestionsFromListOrSingleFields) {
    struct Case {
        const char* toolInput;
        int count;  // -1: absent
        const char* firstQuestion;
        std::size_t firstOptions;
    };
    const Case cases[] = {
        {R"({"questions":[{"question":"A?","options":[{"label":"x"}]},{"question":"B?","options":[]}]})", 2, "A?", 1},
        {R"({"questions":[],"question":"Single?","header":"H","multiSelect":true})", 1, "Single?", 0},
        {R"({"question":"Single?","options":[{"label":"a"},{"label":"b","description":"d"}]})", 1, "Single?", 2},
        {R"({"questions":[],"question":""})", -1, "", 0},
    };
    for (const Case& c : cases) {
        const HookInput input = decode(std::string(R"({"tool_input":)") + c.toolInput + "}");
        ASSERT_TRUE(input.toolInput) << c.toolInput;
        const auto questions = input.toolInput->elicitationQuestions();
        if (c.count < 0) {
            EXPECT_FALSE(questions) << c.toolInput;
            continue;
        }
        ASSERT_TRUE(questions) << c.toolInput;
        EXPECT_EQ(static_cast<int>(questions->size()), c.count);
        EXPECT_EQ(questions->front().question, c.firstQuestion);
        EXPECT_EQ(questions->front().options.size(), c.firstOptions);
    }
    const HookInput single = decode(R"({"tool_input":{"question":"Q","header":"H","multiSelect":false}})");
    const auto question = single.toolInput->elicitationQuestions()->front();
    EXPECT_EQ(question.header, "H");
    EXPECT_EQ(question.multiSelect, false);
}

// Nesting far beyond the parser's limit neither overflows the stack nor
// fails the event: the deep value alone is dropped.
TEST(ClaudeInput, DeepNestingDoesNotOverflow) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_FALSE(decodeHookInput(deep, 1));
    const std::optional<HookInput> wrapped = decodeHookInput("{\"tool_input\":" + deep + "}", 1);
    ASSERT_TRUE(wrapped);
    EXPECT_FALSE(wrapped->toolInput);
}
