// Claude Code events: decode, the stop-hook-active and disable gates, routing,
// and the handlers. Each handler returns the process's exit status.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "bridge/EventTable.hpp"
#include "bridge/Polling.hpp"
#include "claude/ClaudeHookInput.hpp"
#include "claude/TranscriptFile.hpp"

namespace AgentHook::Claude {

// The whole life of `agent-hook claude`.
int run();

// What agent-hook-setup registers, read from the router's own table.
std::vector<EventRegistration> registeredEvents();

int handleStopEvent(const HookInput& input);
int handlePermissionRequestEvent(const HookInput& input);
int handlePreAskUserQuestionToolUseEvent(const HookInput& input);
int handleExitPlanModePermission(const HookInput& input);

// What a waiting request watches in the transcript: nothing (a question, which
// Claude Code cannot answer meanwhile), the event's tool call (a permission
// request), or a queued prompt (a finished turn).
enum class Watch { nothing, toolCall, queuedPrompt };

// Puts a request to the app for the event's session, with the project, branch
// and session title, and waits for the answer. `pass` is a pass over the
// transcript already made for this event, which the title lookup reuses.
WaitResult askVoxtrel(const HookInput& input, std::string_view status, std::string summary, std::string fullMessage,
                      Watch watch, const std::optional<TranscriptPass>& pass = std::nullopt);

}  // namespace AgentHook::Claude
