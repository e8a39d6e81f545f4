#include "bridge/Polling.hpp"

#include <algorithm>
#include <unistd.h>

#include "bridge/Inbox.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/Clock.hpp"
#include "platform/Lock.hpp"
#include "platform/Identifiers.hpp"
#include "platform/FileEvents.hpp"
#include "platform/Files.hpp"
#include "platform/Process.hpp"
#include "platform/Signals.hpp"
#include "platform/Streams.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {
namespace {

constexpr int kFastPhaseSeconds = 300;
constexpr int kLastPollBefore = 1799;
constexpr double kWatchSeconds = 0.25;
constexpr double kWatchAfterChangeSeconds = 1;
constexpr std::size_t kAnswerLimit = 1u << 20;

// Why the request must be withdrawn now, or nothing.
std::optional<std::string> withdrawalReason(const AppRequest& request) {
    if (const int signal = platform::caughtSignal()) return std::string(platform::signalName(signal)) + " received";
    if (platform::standardOutputGone()) return std::string("Standard output hung up (the agent is gone)");
    if (request.movedOn) return request.movedOn();
    return std::nullopt;
}

}  // namespace

PollEnvironment defaultPollEnvironment() {
    PollEnvironment environment;
    environment.wait = [](double seconds, int fileEvents) {
        const double start = platform::steadySeconds();
        platform::waitForWakeup(seconds, fileEvents);
        // xdg-open, started detached for a wake-up, must not stay a zombie.
        platform::reapExitedChildren();
        return std::min(seconds, platform::steadySeconds() - start);
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

namespace {

// Which of the session's requests went out last, and the lock that keeps that
// record and the payloads in one order: a hook that gives up must not take
// down a newer request of its session.
struct SessionRecord {
    std::string latest;
    std::string lock;
};

SessionRecord sessionRecord(const std::string& directory, const std::string& sessionId) {
    return {directory + "/" + sessionId + "-latest-request", directory + "/" + sessionId + "-requests.lock"};
}

constexpr double kSessionLockSeconds = 2;

// Dismisses the session's request when `mark` is still its latest, logging
// `line` first; false when a newer request of the session is showing.
bool dismissIfLatest(const std::string& directory, const std::string& sessionId, const std::string& mark,
                     const std::string& line) {
    const SessionRecord record = sessionRecord(directory, sessionId);
    const platform::Lock lock(record.lock, kSessionLockSeconds, platform::Lock::On::file);
    // No record (it could not be written) is no sign of a newer request.
    const std::optional<std::string> latest = platform::readFile(record.latest);
    if (latest && *latest != mark) return false;
    if (!line.empty()) logTo(directory, line);
    dismissAgent(sessionId);
    return true;
}

std::string newerRequestLine(const std::string& sessionId) {
    return "a newer request of session=" + sessionId + " is showing; exiting without a dismiss";
}

}  // namespace

WaitResult sendToVoxtrelAndWait(const AppRequest& request, const PollEnvironment& environment) {
    const std::string& directory = environment.scratchDirectory;
    // The request files are created by name there: nowhere safe, no request.
    if (std::string problem; !platform::makePrivateDirectory(directory, &problem)) {
        log("Cannot send the request: " + problem);
        return WaitResult{WaitResult::Outcome::unanswered, {}};
    }
    const std::int32_t pid = static_cast<std::int32_t>(::getpid());
    const std::string fileKey = request.fileKey.value_or(std::to_string(pid));
    const RequestFiles files = requestFiles(directory, request.sessionId, fileKey);

    // A request that cannot reach the app would hold the agent for nothing:
    // the agent decides at once.
    const auto stepAside = [&](const std::string& why) {
        logTo(directory, why + "; leaving the decision to the agent session=" + request.sessionId);
        platform::removeFile(files.messageFile);
        platform::restoreDefaultSignals();
        return WaitResult{WaitResult::Outcome::unanswered, {}};
    };
    if (std::string error; !platform::writeFileAtomically(files.messageFile, request.fullMessage, &error)) {
        return stepAside("Failed to write message file: " + error);
    }
    // A stale answer to an earlier request with the same key must never be taken.
    if (std::string error; platform::removeFileReporting(files.responseFile, &error) == platform::Removal::failed) {
        return stepAside("A stale answer is in the way (" + error + ")");
    }

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
    // The handlers are in place before the app can see the request: whoever
    // sees it may end the hook at once.
    platform::catchTerminationSignals();
    const std::string mark = files.requestId + " " + platform::randomUuid();
    Delivery delivery;
    {
        const SessionRecord record = sessionRecord(directory, request.sessionId);
        const platform::Lock lock(record.lock, kSessionLockSeconds, platform::Lock::On::file);
        if (!lock.locked()) logTo(directory, "The session's request lock is held elsewhere; sending without it");
        if (std::string error; !platform::writeFileAtomically(record.latest, mark, &error)) {
            logTo(directory, "Failed to record the session's latest request: " + error);
        }
        if (!deliverToVoxtrel(payload, &delivery)) return stepAside("The request cannot reach the app");
    }
    // An app that is not running when the request goes out gets a while to
    // start and take it (it removes what it reads); a payload still there
    // then is taken back, and the agent asks in its own terminal.
    bool mayTakeBack = !delivery.appRunning;

    // Between the polls of the schedule the wait sleeps on the response file's
    // directory and the adapter's file (the transcript): an answer or a sign
    // that the session moved on is seen at once, not at the next look.
    platform::FileEvents events;
    std::string eventsError;
    const bool notified = environment.fileNotifications && events.addDirectory(directory, &eventsError) &&
                          (request.watchedFile.empty() || events.addFile(request.watchedFile, &eventsError));
    if (environment.fileNotifications && !notified) {
        logTo(directory, "No file notifications (" + eventsError + "); looking on the schedule only");
    }
    const std::string responseName = files.responseFile.substr(directory.size() + 1);

    std::string lastRefusal;
    // The answer when the response file holds one now. Between the polls of
    // the schedule an empty file may be one still being written: only a
    // scheduled poll takes it as the empty answer.
    const auto answer = [&](bool scheduled) -> std::optional<WaitResult> {
        std::string refusal;
        std::string reply;
        bool read = platform::readOwnFile(files.responseFile, &reply, &refusal, kAnswerLimit);
        // A half-written or non-UTF-8 answer is read again later.
        if (read && !text::isValidUtf8(reply)) {
            read = false;
            refusal = "not valid UTF-8 (read again until it is)";
        }
        // Far beyond any spoken answer: no answer, and the agent decides.
        if (refusal.starts_with(platform::kLargerThan)) {
            logTo(directory, "Response file " + files.responseFile + " is " + refusal + "; taken as no answer");
            platform::removeFile(files.responseFile);
            platform::removeFile(files.messageFile);
            platform::restoreDefaultSignals();
            return WaitResult{WaitResult::Outcome::unanswered, {}};
        }
        if (read && (scheduled || !reply.empty())) {
            logTo(directory, "Poll got response (" + std::to_string(text::characterCount(reply)) +
                                 " chars) for session=" + request.sessionId + " requestId=" + files.requestId);
            if (!request.fileKey) {
                platform::removeFile(files.responseFile);
                platform::removeFile(files.messageFile);
            }
            platform::restoreDefaultSignals();
            if (reply.empty()) return WaitResult{WaitResult::Outcome::unanswered, {}};
            return WaitResult{WaitResult::Outcome::answered, std::move(reply)};
        }
        // Someone else's file, a link, or text that is not UTF-8 is never the
        // user's answer; each reason is logged once.
        if (!refusal.empty() && refusal != lastRefusal) {
            logTo(directory, "Ignoring response file " + files.responseFile + ": " + refusal);
        }
        lastRefusal = std::move(refusal);
        return std::nullopt;
    };

    // The schedule's times are counted from what each wait reports, so tests
    // drive it without waiting.
    double elapsed = 0;
    int nextPoll = 0;
    bool responseTouched = false;
    // When the watched file changed last: the watch may need another look a
    // moment later (a typed prompt is judged once it has stayed queued).
    double watchedFileChanged = 0;
    for (;;) {
        if (const std::optional<std::string> reason = withdrawalReason(request)) {
            if (!dismissIfLatest(directory, request.sessionId, mark,
                                 *reason + " \xE2\x80\x94 dismissing session=" + request.sessionId + " and exiting")) {
                logTo(directory, *reason + " \xE2\x80\x94 " + newerRequestLine(request.sessionId));
            }
            return WaitResult{WaitResult::Outcome::withdrawn, {}};
        }
        if (mayTakeBack && elapsed >= environment.takeBackSeconds) {
            mayTakeBack = false;
            std::string error;
            switch (platform::removeFileReporting(delivery.path, &error)) {
                case platform::Removal::removed:
                    return stepAside("No app took the request within " +
                                     std::to_string(static_cast<int>(environment.takeBackSeconds)) +
                                     " s; took it back (requestId=" + files.requestId + ")");
                case platform::Removal::absent:  // an app took it: its answer is awaited
                    break;
                case platform::Removal::failed:
                    logTo(directory, "Cannot take back the request: " + error);
                    break;
            }
        }
        if (elapsed >= nextPoll) {
            if (nextPoll > kLastPollBefore) break;
            if (std::optional<WaitResult> result = answer(true)) return std::move(*result);
            nextPoll += nextPoll < kFastPhaseSeconds ? 1 : 10;
        } else if (responseTouched) {
            if (std::optional<WaitResult> result = answer(false)) return std::move(*result);
        }
        // With notifications the wait sleeps until the next poll of the
        // schedule (a signal and a hang-up wake it too), looking every quarter
        // second only for a while after the watched file changed; without
        // them it looks every quarter second throughout.
        double pause = nextPoll - elapsed;
        if (!notified || elapsed - watchedFileChanged < kWatchAfterChangeSeconds) pause = std::min(pause, kWatchSeconds);
        if (mayTakeBack) pause = std::min(pause, std::max(0.0, environment.takeBackSeconds - elapsed));
        elapsed += environment.wait(pause, events.descriptor());
        responseTouched = false;
        for (const std::string& name : events.take()) {
            if (name.empty()) watchedFileChanged = elapsed;
            responseTouched = responseTouched || name.empty() || name == responseName;
        }
    }

    logTo(directory, "Poll timeout after " + std::to_string(nextPoll) + "s for session=" + request.sessionId +
                         " requestId=" + files.requestId);
    if (!dismissIfLatest(directory, request.sessionId, mark, "")) logTo(directory, "Poll timeout: " + newerRequestLine(request.sessionId));
    if (!request.fileKey) platform::removeFile(files.messageFile);
    platform::restoreDefaultSignals();
    return WaitResult{WaitResult::Outcome::unanswered, {}};
}

void dismissAgent(const std::string& sessionId) {
    AgentInboxPayload payload;
    payload.kind = AgentInboxPayload::Kind::dismiss;
    payload.sessionId = sessionId;
    deliverToVoxtrel(payload);
}

}  // namespace AgentHook
