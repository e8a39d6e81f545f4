// Grok CLI events: routing on the normalised name, the finished turn (with
// the session history when the event carries no message), pre-tool-use
// decisions in Grok's own form and permission requests in the shared one.
// Each handler returns the process's exit status.
#pragma once

#include <optional>
#include <string>

#include "bridge/EventTable.hpp"
#include "grok/GrokHookInput.hpp"
#include "runtime/Decisions.hpp"

namespace AgentHook::Grok {

// The whole life of `agent-hook grok`.
int run();

// What agent-hook-setup registers, read from the router's own table.
std::vector<EventRegistration> registeredEvents();

int handleStop(const HookInput& input);
int handlePreToolUse(const HookInput& input);

// The app's decision, or nothing when it gave none.
std::optional<PermissionResponse> requestPermissionDecision(const HookInput& input);

PermissionDetails buildPermissionDetails(const std::string& toolName, const std::optional<ToolInputData>& toolInput);

// {"decision":"allow"}, {"decision":"deny"} or {"decision":"deny","reason":...}.
std::optional<std::string> preToolUseDecisionJson(const PermissionResponse& response);
void emitPreToolUseDecision(const PermissionResponse& response);

}  // namespace AgentHook::Grok
