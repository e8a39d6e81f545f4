#include <gtest/gtest.h>

#include "claude/ClaudeHookInput.hpp"

using namespace AgentHook::Claude;

// Nesting far beyond the parser's limit neither overflows the stack nor
// fails the event: the deep value alone is dropped.
TEST(ClaudeInput, DeepNestingDoesNotOverflow) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_FALSE(decodeHookInput(deep, 1));
    const std::optional<HookInput> wrapped = decodeHookInput("{\"tool_input\":" + deep + "}", 1);
    ASSERT_TRUE(wrapped);
    EXPECT_FALSE(wrapped->toolInput);
}
