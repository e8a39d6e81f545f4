#include "bridge/Polling.hpp"

#include <csignal>
#include <unistd.h>

#include "bridge/Inbox.hpp"
#include "platform/Clock.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/Files.hpp"
#include "platform/Process.hpp"
#include "platform/Signals.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {
namespace {

volatile std::sig_atomic_t sigintCaught = 0;

constexpr int kFastPhaseSeconds = 300;
constexpr int kLastPollBefore = 1799;

}  // namespace

PollEnvironment defaultPollEnvironment() {
    PollEnvironment environment;
    environment.sleep = [](int seconds) {
        platform::sleepSeconds(seconds);
        // xdg-open, started detached for a wake-up, must not stay a zombie.
        platform::reapExitedChildren();
    };
    return environment;
}

RequestFiles requestFiles(const std::string& scratchDirectory, const std::string& sessionId,
                          const std::string& fileKey) {
    RequestFiles files;
    files.requestId = sessionId + "-" + fileKey;
    files.messageFile = scratchDirectory + "/" + files.requestId + "-message.txt";
    files.responseFile = scratchDirectory + "/" + files.requestId + "-response.txt";
    return files;
}

WaitResult sendToVoxtrelAndWait(const VoxtrelRequest& request, const PollEnvironment& environment) {
    const std::string& directory = environment.scratchDirectory;
    platform::createDirectories(directory);
    const std::int32_t pid = static_cast<std::int32_t>(::getpid());
    const std::string fileKey = request.fileKey.value_or(std::to_string(pid));
    const RequestFiles files = requestFiles(directory, request.sessionId, fileKey);

    platform::writeFileAtomically(files.messageFile, request.fullMessage);
    // A stale answer to an earlier request with the same key must never be taken.
    platform::removeFile(files.responseFile);

    AgentInboxPayload payload;
    payload.kind = AgentInboxPayload::Kind::update;
    payload.sessionId = request.sessionId;
    payload.requestId = files.requestId;
    payload.agent = std::string(agentRawValue(request.agent));
    payload.status = request.status;
    payload.summary = request.summary;
    payload.messageFile = files.messageFile;
    payload.responseFile = files.responseFile;
    payload.cwd = request.cwd;
    payload.project = request.projectName;
    payload.branch = request.gitBranch;
    payload.title = request.title;
    payload.hookPid = pid;

    logTo(directory, "Notification sent: agent=" + std::string(agentRawValue(request.agent)) +
                         " status=" + request.status + " session=" + request.sessionId +
                         " requestId=" + files.requestId + " summary=" + request.summary);
    deliverToVoxtrel(payload);

    sigintCaught = 0;
    platform::catchInterrupts(&sigintCaught);
    int elapsed = 0;
    for (;;) {
        if (elapsed > kLastPollBefore) break;
        if (sigintCaught != 0) {
            logTo(directory, "SIGINT received \xE2\x80\x94 dismissing session=" + request.sessionId + " and exiting");
            dismissAgent(request.sessionId);
            return WaitResult{true, std::nullopt};
        }
        if (platform::fileExists(files.responseFile)) {
            std::optional<std::string> reply = platform::readFile(files.responseFile);
            // A half-written or non-UTF-8 answer is read again at the next poll.
            if (reply && text::isValidUtf8(*reply)) {
                logTo(directory, "Poll got response (" + std::to_string(text::characterCount(*reply)) +
                                     " chars) for session=" + request.sessionId +
                                     " requestId=" + files.requestId);
                if (!request.fileKey) {
                    platform::removeFile(files.responseFile);
                    platform::removeFile(files.messageFile);
                }
                platform::restoreDefaultInterrupts();
                return WaitResult{false, std::move(reply)};
            }
        }
        const int pause = elapsed < kFastPhaseSeconds ? 1 : 10;
        environment.sleep(pause);
        elapsed += pause;
    }

    logTo(directory, "Poll timeout after " + std::to_string(elapsed) + "s for session=" + request.sessionId +
                         " requestId=" + files.requestId);
    dismissAgent(request.sessionId);
    if (!request.fileKey) platform::removeFile(files.messageFile);
    platform::restoreDefaultInterrupts();
    return WaitResult{false, std::nullopt};
}

void dismissAgent(const std::string& sessionId) {
    AgentInboxPayload payload;
    payload.kind = AgentInboxPayload::Kind::dismiss;
    payload.sessionId = sessionId;
    deliverToVoxtrel(payload);
}

}  // namespace AgentHook
