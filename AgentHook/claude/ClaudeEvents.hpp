// Claude Code events: decode, the stop-hook-active and disable gates, routing,
// and the Stop round trip. Each operation returns the process's exit status.
#pragma once

#include <string_view>

#include "claude/ClaudeHookInput.hpp"

namespace AgentHook::Claude {

// The whole life of `agent-hook claude`.
int run();

// Runs one event given its bytes (run() after reading standard input).
int handleEvent(std::string_view bytes);

int handleStopEvent(const HookInput& input);

// "Stop", "stop", "S_T_O_P": lower-cased and without underscores, "stop".
bool isStopEvent(const std::optional<std::string>& hookEventName);

}  // namespace AgentHook::Claude
