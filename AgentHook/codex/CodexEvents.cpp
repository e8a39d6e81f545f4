#include "codex/CodexEvents.hpp"

#include "bridge/Asking.hpp"
#include "bridge/EventTable.hpp"
#include "platform/Clock.hpp"
#include "runtime/Decisions.hpp"
#include "runtime/Logging.hpp"
#include "runtime/Run.hpp"

namespace AgentHook::Codex {

int handleStop(const HookInput& input) {
    relayFinishedTurn(Agent::codex, input.sessionId, input.cwd, input.lastAssistantMessage.value_or(std::string()), {});
    return 0;
}

PermissionDetails buildPermissionDetails(const std::string& toolName, const std::optional<ToolInputData>& toolInput) {
    return describeToolCall(toolName, toolInput,
                            {{{"Bash"}, "Run command?", ToolRow::Details::command},
                             {{"apply_patch"}, "Apply patch?", ToolRow::Details::path}});
}

int handlePermissionRequest(const HookInput& input) {
    const std::string toolName = input.toolName.value_or("unknown");
    const std::optional<PermissionResponse> response = askCommandPermission(
        Agent::codex, input.sessionId, input.cwd, toolName, buildPermissionDetails(toolName, input.toolInput));
    if (response) emitPermissionDecision(*response);
    return 0;
}

namespace {

// In the order agent-hook-setup writes them.
constexpr EventRoute<HookInput> kRoutes[] = {
    {"Stop", Registered::yes, nullptr, handleStop},
    {"UserPromptSubmit", Registered::yes, nullptr, dismissSession<HookInput>},
    {"PermissionRequest", Registered::yes, nullptr, handlePermissionRequest},
    {"SessionStart", Registered::no, nullptr, ignoreSessionStart<HookInput>},
    {"PreToolUse", Registered::no, nullptr, nullptr},
    {"PostToolUse", Registered::no, nullptr, nullptr},
};
constexpr EventTable<HookInput> kEvents{Agent::codex, kRoutes, false, exitOnUnknownEvent<Agent::codex, HookInput>};

std::optional<HookInput> decode(std::string_view bytes) { return decodeHookInput(bytes, platform::unixSeconds()); }

}  // namespace

int run() { return runEvents(kEvents, decode); }

std::vector<EventRegistration> registeredEvents() { return registrationsOf(kEvents); }

}  // namespace AgentHook::Codex
