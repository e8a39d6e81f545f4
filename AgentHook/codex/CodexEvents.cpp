#include "codex/CodexEvents.hpp"

#include "bridge/Asking.hpp"
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

int routeEvent(const HookInput& input) {
    if (!input.hookEventName) {
        log("Unknown codex event nil, exiting");
        return 0;
    }
    const std::string& name = *input.hookEventName;
    if (name == "Stop") return handleStop(input);
    if (name == "UserPromptSubmit") {
        dismissAgent(input.sessionId);
        return 0;
    }
    if (name == "SessionStart") {
        log("SessionStart: source=" + input.source.value_or("nil") + ", no-op");
        return 0;
    }
    if (name == "PermissionRequest") return handlePermissionRequest(input);
    if (name == "PreToolUse" || name == "PostToolUse") {
        log(name + " not yet handled for codex, passing through");
        return 0;
    }
    log("Unknown codex event " + name + ", exiting");
    return 0;
}

std::optional<HookInput> decode(std::string_view bytes) { return decodeHookInput(bytes, platform::unixSeconds()); }

}  // namespace

int run() { return runHook("codex", decode, routeEvent); }

}  // namespace AgentHook::Codex
