#include "claude/ClaudeEvents.hpp"

#include "bridge/Asking.hpp"
#include "bridge/EventTable.hpp"
#include "claude/SessionTitle.hpp"
#include "claude/StopBlocks.hpp"
#include "claude/TranscriptFile.hpp"
#include "claude/TranscriptWatch.hpp"
#include "platform/Clock.hpp"
#include "runtime/Decisions.hpp"
#include "runtime/Logging.hpp"
#include "runtime/Paths.hpp"
#include "runtime/Run.hpp"

namespace AgentHook::Claude {

namespace {

SessionWatch transcriptWatch(const HookInput& input, Watch watch) {
    if (watch == Watch::nothing || !input.transcriptPath) return {};
    std::optional<PendingCall> call;
    if (watch == Watch::toolCall) call = PendingCall{input.toolName, input.toolInputJson};
    return [transcript = startTranscriptWatch(*input.transcriptPath, std::move(call))]() mutable {
        return sessionMovedOn(transcript);
    };
}

std::string sessionTitle(const HookInput& input, const std::optional<TranscriptPass>& pass) {
    return getSessionTitle(input.sessionId, input.cwd, input.transcriptPath, pass).value_or(std::string());
}

}  // namespace

WaitResult askVoxtrel(const HookInput& input, std::string_view status, std::string summary, std::string fullMessage,
                      Watch watch, const std::optional<TranscriptPass>& pass) {
    SessionWatch movedOn = transcriptWatch(input, watch);
    return askApp(AppRequest{.agent = Agent::claude,
                             .status = std::string(status),
                             .sessionId = input.sessionId,
                             .cwd = input.cwd,
                             .summary = std::move(summary),
                             .fullMessage = std::move(fullMessage),
                             .title = sessionTitle(input, pass),
                             .movedOn = std::move(movedOn),
                             .watchedFile = watch == Watch::nothing ? std::string() : input.transcriptPath.value_or("")});
}

int handleStopEvent(const HookInput& input) {
    std::string finalMessage = input.lastAssistantMessage.value_or(std::string());
    // The title is looked up in the same transcript: it takes the pass made here.
    std::optional<TranscriptPass> pass;
    if (finalMessage.empty() && input.transcriptPath) {
        finalMessage = extractLastAssistantMessage(*input.transcriptPath, {}, &pass).value_or(std::string());
    }
    const std::string directory(kScratchDirectory);
    const int blocks = stopBlocksInARow(directory, input.sessionId, input.stopHookActive.value_or(false));
    const auto mayAsk = [&] {
        if (blocks < kMostStopBlocksInARow) return true;
        log("Stop: Claude Code ignores a block after " + std::to_string(kMostStopBlocksInARow) +
            " in a row, stepping aside session=" + input.sessionId);
        return false;
    };
    if (relayFinishedTurn(Agent::claude, input.sessionId, input.cwd, std::move(finalMessage),
                          [&] { return sessionTitle(input, pass); }, transcriptWatch(input, Watch::queuedPrompt),
                          mayAsk, input.transcriptPath.value_or(""))) {
        recordStopBlock(directory, input.sessionId, blocks + 1);
    }
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

int handleNotification(const HookInput& input) {
    log("Notification type: " + input.notificationType.value_or("nil") + ", skipping");
    return 0;
}

int handlePermissionRequest(const HookInput& input) {
    if (input.toolName == "AskUserQuestion") return handleAskUserQuestionPermission(input);
    if (input.toolName == "ExitPlanMode") return handleExitPlanModePermission(input);
    return handlePermissionRequestEvent(input);
}

int handleUnknownEvent(const HookInput& input) {
    log("Unknown event, defaulting to Stop handler");
    return handleStopEvent(input);
}

// In the order agent-hook-setup writes them.
constexpr EventRoute<HookInput> kRoutes[] = {
    {"Stop", Registered::yes, nullptr, handleStopEvent},
    {"UserPromptSubmit", Registered::yes, nullptr, dismissSession<HookInput>},
    {"PermissionRequest", Registered::yes, "*", handlePermissionRequest},
    {"PreToolUse", Registered::yes, "AskUserQuestion", handlePreAskUserQuestionToolUseEvent},
    {"Notification", Registered::yes, nullptr, handleNotification},
};
constexpr EventTable<HookInput> kEvents{Agent::claude, kRoutes, false, handleUnknownEvent};

std::optional<HookInput> decode(std::string_view bytes) { return decodeHookInput(bytes, platform::unixSeconds()); }

}  // namespace

int run() { return runEvents(kEvents, decode); }

std::vector<EventRegistration> registeredEvents() { return registrationsOf(kEvents); }

}  // namespace AgentHook::Claude
