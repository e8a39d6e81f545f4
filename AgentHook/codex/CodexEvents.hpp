// Codex CLI events: routing by exact name, the finished turn, and permission
// requests with three choices and the session bypass. Each handler returns
// the process's exit status.
#pragma once

#include <string>

#include "bridge/EventTable.hpp"
#include "codex/CodexHookInput.hpp"

namespace AgentHook::Codex {

// The whole life of `agent-hook codex`.
int run();

// What agent-hook-setup registers, read from the router's own table.
std::vector<EventRegistration> registeredEvents();

int handleStop(const HookInput& input);
int handlePermissionRequest(const HookInput& input);

PermissionDetails buildPermissionDetails(const std::string& toolName, const std::optional<ToolInputData>& toolInput);

}  // namespace AgentHook::Codex
