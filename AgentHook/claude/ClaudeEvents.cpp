#include "claude/ClaudeEvents.hpp"

#include <algorithm>

#include "bridge/ProjectInfo.hpp"
#include "bridge/Replies.hpp"
#include "claude/Transcript.hpp"
#include "claude/TranscriptWatch.hpp"
#include "platform/Clock.hpp"
#include "runtime/Decisions.hpp"
#include "runtime/Disable.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {

bool isStopEvent(const std::optional<std::string>& hookEventName) {
    if (!hookEventName) return false;
    std::string name = text::lowercased(*hookEventName);
    name.erase(std::remove(name.begin(), name.end(), '_'), name.end());
    return name == "stop";
}

WaitResult askVoxtrel(const HookInput& input, std::string_view status, std::string summary, std::string fullMessage,
                      Watch watch, std::optional<std::string> fileKey) {
    const ProjectInfo project = getProjectInfo(input.cwd);
    VoxtrelRequest request;
    request.agent = Agent::claude;
    request.status = std::string(status);
    request.sessionId = input.sessionId;
    request.summary = std::move(summary);
    request.fullMessage = std::move(fullMessage);
    request.cwd = input.cwd;
    request.projectName = project.projectName;
    request.gitBranch = project.gitBranch;
    request.title = getSessionTitle(input.sessionId, input.cwd, input.transcriptPath).value_or(std::string());
    request.fileKey = std::move(fileKey);
    PollEnvironment environment = defaultPollEnvironment();
    if (watch != Watch::nothing && input.transcriptPath) {
        std::optional<PendingCall> call;
        if (watch == Watch::toolCall) call = PendingCall{input.toolName, input.toolInputJson};
        environment.movedOn = [transcript = startTranscriptWatch(*input.transcriptPath, std::move(call))]() mutable {
            return sessionMovedOn(transcript);
        };
    }
    return sendToVoxtrelAndWait(request, environment);
}

int handleStopEvent(const HookInput& input) {
    std::string finalMessage = input.lastAssistantMessage.value_or(std::string());
    if (finalMessage.empty() && input.transcriptPath) {
        finalMessage = extractLastAssistantMessage(*input.transcriptPath).value_or(std::string());
    }
    log("Stop: finalMessage (" + std::to_string(text::characterCount(finalMessage)) +
        " chars): " + std::string(text::characterPrefix(finalMessage, 200)));
    if (finalMessage.empty()) return 0;

    log("Stop: notifying voxtrel with final message");
    const std::optional<std::string> reply =
        answerOf(askVoxtrel(input, RequestStatus::completed, "Task complete", std::move(finalMessage),
                            Watch::queuedPrompt, "stop"));
    if (reply) emitStopHookDecision(*reply);
    return 0;
}

namespace {

int handleAskUserQuestionPermission(const HookInput& input) {
    if (input.toolInput && input.toolInput->answers && !input.toolInput->answers->empty()) {
        log("AskUserQuestion: auto-approving (answers already provided by PreToolUse hook)");
        emitPermissionDecision(PermissionResponse{PermissionResponse::Behavior::allow, std::nullopt});
        return 0;
    }
    log("Letting AskUserQuestion pass through to TUI (no answers)");
    return 0;
}

int routeEvent(const HookInput& input) {
    const std::optional<std::string>& name = input.hookEventName;
    if (name == "Stop") return handleStopEvent(input);
    if (name == "Notification") {
        log("Notification type: " + input.notificationType.value_or("nil") + ", skipping");
        return 0;
    }
    if (name == "PreToolUse") return handlePreAskUserQuestionToolUseEvent(input);
    if (name == "PermissionRequest") {
        if (input.toolName == "AskUserQuestion") return handleAskUserQuestionPermission(input);
        if (input.toolName == "ExitPlanMode") return handleExitPlanModePermission(input);
        return handlePermissionRequestEvent(input);
    }
    if (name == "UserPromptSubmit") {
        dismissAgent(input.sessionId);
        return 0;
    }
    log("Unknown event, defaulting to Stop handler");
    return handleStopEvent(input);
}

}  // namespace

int handleEvent(std::string_view bytes) {
    const std::optional<HookInput> input = decodeHookInput(bytes, platform::unixSeconds());
    if (!input) {
        log("Failed to decode JSON");
        return 1;
    }
    log("Event: " + input->hookEventName.value_or("nil") + " session=" + input->sessionId);
    if (input->stopHookActive == true && !isStopEvent(input->hookEventName)) {
        log("Non-stop event with stop_hook_active=true, skipping");
        return 0;
    }
    if (isAgentDisabled(input->sessionId, input->cwd)) return 0;
    return routeEvent(*input);
}

int run() {
    log("Hook started (claude)");
    const std::string bytes = readAndLogStdin();
    return handleEvent(bytes);
}

}  // namespace AgentHook::Claude
