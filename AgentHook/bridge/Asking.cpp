#include "bridge/Asking.hpp"

#include "bridge/ProjectInfo.hpp"
#include "bridge/Replies.hpp"
#include "runtime/Decisions.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

WaitResult askApp(AppRequest request) {
    const ProjectInfo project = getProjectInfo(request.cwd);
    VoxtrelRequest voxtrel;
    voxtrel.agent = request.agent;
    voxtrel.status = std::string(request.status);
    voxtrel.sessionId = std::move(request.sessionId);
    voxtrel.summary = std::move(request.summary);
    voxtrel.fullMessage = std::move(request.fullMessage);
    voxtrel.cwd = std::move(request.cwd);
    voxtrel.projectName = project.projectName;
    voxtrel.gitBranch = project.gitBranch;
    voxtrel.title = std::move(request.title);
    voxtrel.fileKey = std::move(request.fileKey);
    PollEnvironment environment = defaultPollEnvironment();
    environment.movedOn = std::move(request.movedOn);
    return sendToVoxtrelAndWait(voxtrel, environment);
}

bool relayFinishedTurn(Agent agent, const std::string& sessionId, const std::string& cwd, std::string finalMessage,
                       const std::function<std::string()>& title, SessionWatch movedOn,
                       const std::function<bool()>& mayAsk) {
    log("Stop: finalMessage (" + std::to_string(text::characterCount(finalMessage)) +
        " chars): " + std::string(text::characterPrefix(finalMessage, 200)));
    if (finalMessage.empty()) return false;
    if (mayAsk && !mayAsk()) return false;
    log("Stop: notifying voxtrel with final message");
    AppRequest request{agent, RequestStatus::completed, sessionId, cwd, "Task complete", std::move(finalMessage),
                       title ? title() : std::string(), "stop", std::move(movedOn)};
    const WaitResult result = askApp(std::move(request));
    if (result.outcome != WaitResult::Outcome::answered) return false;
    emitStopHookDecision(result.reply);
    return true;
}

void logPermissionDismissed(const std::string& sessionId) {
    log("Permission dismissed, yielding to TUI for session=" + sessionId);
}

}  // namespace AgentHook
