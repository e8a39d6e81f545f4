#include "grok/GrokEvents.hpp"

#include "bridge/Asking.hpp"
#include "bridge/EventTable.hpp"
#include "grok/GrokTranscript.hpp"
#include "platform/Clock.hpp"
#include "platform/Environment.hpp"
#include "runtime/Logging.hpp"
#include "runtime/Run.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Grok {

int handleStop(const HookInput& input) {
    if (input.reason) {
        const std::string reason = text::lowercased(*input.reason);
        if (reason != "end_turn") {
            log("Stop reason=" + reason + ", skipping");
            return 0;
        }
    }
    std::string finalMessage = input.lastAssistantMessage.value_or(std::string());
    if (finalMessage.empty()) finalMessage = lastAssistantMessage(input.sessionId, input.promptId, input.transcriptPath);
    relayFinishedTurn(Agent::grok, input.sessionId, input.cwd, std::move(finalMessage), {});
    return 0;
}

PermissionDetails buildPermissionDetails(const std::string& toolName, const std::optional<ToolInputData>& toolInput) {
    return describeToolCall(toolName, toolInput,
                            {{{"Bash", "run_terminal_command", "Shell"}, "Run command?", ToolRow::Details::command},
                             {{"apply_patch", "search_replace", "Edit", "Write", "MultiEdit"}, "Edit file?",
                              ToolRow::Details::path},
                             {{"read_file", "Read"}, "Read file?", ToolRow::Details::path}});
}

std::optional<PermissionResponse> requestPermissionDecision(const HookInput& input) {
    const std::string toolName = input.toolName.value_or("unknown");
    return askCommandPermission(Agent::grok, input.sessionId, input.cwd, toolName,
                                buildPermissionDetails(toolName, input.toolInput));
}

std::optional<std::string> preToolUseDecisionJson(const PermissionResponse& response) {
    const bool deny = response.behavior == PermissionResponse::Behavior::deny;
    text::Json decision = {{"decision", deny ? "deny" : "allow"}};
    if (response.message && !response.message->empty()) decision["reason"] = *response.message;
    return text::toCompactJson(decision);
}

void emitPreToolUseDecision(const PermissionResponse& response) {
    emitDecision(preToolUseDecisionJson(response));
}

int handlePreToolUse(const HookInput& input) {
    if (input.permissionMode == "bypassPermissions" || input.permissionMode == "dontAsk") {
        log("permissionMode=" + *input.permissionMode + " never asks, passing through " +
            input.toolName.value_or("unknown"));
        return 0;
    }
    if (const std::optional<PermissionResponse> response = requestPermissionDecision(input)) {
        emitPreToolUseDecision(*response);
    }
    return 0;
}

namespace {

int handlePermissionRequest(const HookInput& input) {
    if (const std::optional<PermissionResponse> response = requestPermissionDecision(input)) {
        emitPermissionDecision(*response);
    }
    return 0;
}

// In the order agent-hook-setup writes them. PreToolUse without a matcher:
// Grok defines no wildcard and reads a matcher as tool names, while an entry
// without one runs for every tool.
constexpr EventRoute<HookInput> kRoutes[] = {
    {"Stop", Registered::yes, nullptr, handleStop},
    {"UserPromptSubmit", Registered::yes, nullptr, dismissSession<HookInput>},
    {"PreToolUse", Registered::yes, nullptr, handlePreToolUse},
    {"SessionEnd", Registered::yes, nullptr, dismissSession<HookInput>},
    {"SessionStart", Registered::no, nullptr, ignoreSessionStart<HookInput>},
    {"PermissionRequest", Registered::no, nullptr, handlePermissionRequest},
    {"PostToolUse", Registered::no, nullptr, nullptr},
};
constexpr EventTable<HookInput> kEvents{Agent::grok, kRoutes, true, exitOnUnknownEvent<Agent::grok, HookInput>};

std::optional<std::string> fromEnvironment(const char* name) {
    std::optional<std::string> value = platform::environmentValue(name);
    if (value && value->empty()) value.reset();
    return value;
}

std::optional<HookInput> decode(std::string_view bytes) {
    return decodeHookInput(bytes, fromEnvironment, platform::unixSeconds());
}

}  // namespace

int run() { return runEvents(kEvents, decode); }

std::vector<EventRegistration> registeredEvents() { return registrationsOf(kEvents); }

}  // namespace AgentHook::Grok
