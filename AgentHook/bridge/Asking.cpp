#include "bridge/Asking.hpp"

#include "bridge/ProjectInfo.hpp"
#include "bridge/Replies.hpp"
#include "runtime/Decisions.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

WaitResult askApp(AppRequest request) {
    ProjectInfo project = getProjectInfo(request.cwd);
    request.projectName = std::move(project.projectName);
    request.gitBranch = std::move(project.gitBranch);
    return sendToVoxtrelAndWait(request);
}

bool relayFinishedTurn(Agent agent, const std::string& sessionId, const std::string& cwd, std::string finalMessage,
                       const std::function<std::string()>& title, SessionWatch movedOn,
                       const std::function<bool()>& mayAsk, std::string watchedFile) {
    log("Stop: finalMessage (" + std::to_string(text::characterCount(finalMessage)) +
        " chars): " + std::string(text::characterPrefix(finalMessage, 200)));
    if (finalMessage.empty()) return false;
    if (mayAsk && !mayAsk()) return false;
    log("Stop: notifying voxtrel with final message");
    AppRequest request{.agent = agent,
                       .status = std::string(RequestStatus::completed),
                       .sessionId = sessionId,
                       .cwd = cwd,
                       .summary = "Task complete",
                       .fullMessage = std::move(finalMessage),
                       .title = title ? title() : std::string(),
                       .fileKey = "stop",
                       .movedOn = std::move(movedOn),
                       .watchedFile = std::move(watchedFile)};
    const WaitResult result = askApp(std::move(request));
    if (result.outcome != WaitResult::Outcome::answered) return false;
    emitStopHookDecision(result.reply);
    return true;
}

void logPermissionDismissed(const std::string& sessionId) {
    log("Permission dismissed, yielding to TUI for session=" + sessionId);
}

}  // namespace AgentHook
