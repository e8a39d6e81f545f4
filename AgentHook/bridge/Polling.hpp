// The blocking round trip with the app: the request's body goes to a message
// file, an update payload to the inbox, and the response file is read the
// moment it is moved into place (file notifications), and on a schedule as
// well: once a second for five minutes, then every ten seconds, up to 30
// minutes in all. On time-out the request is withdrawn (a dismiss payload).
//
// A request nobody can answer any more is withdrawn at once, and the caller
// told to exit with status 0 and no output: on SIGINT, SIGTERM or SIGHUP, when
// standard output hangs up (the agent is gone), and when the adapter's watch
// sees that the session moved on without the app. Signals and the hang-up
// wake the wait; the watch is asked when its file changes, every quarter
// second for a second after that, and at each poll (every quarter second
// throughout where no notification can be had).
//
// A hook that gives up dismisses only its own request, never a newer one of
// its session; a request no app took within 20 s of going out to an app that
// was not running is taken back, and one that cannot reach the app at all is
// given up at once: the agent then asks in its own terminal.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "bridge/AgentInboxPayload.hpp"
#include "runtime/Paths.hpp"

namespace AgentHook {


// How a wait ended. An empty response is no answer, everywhere.
struct WaitResult {
    enum class Outcome {
        answered,    // `reply` holds the response file's text as read (not trimmed, not empty)
        unanswered,  // an empty response, or none within the wait: the agent decides
        withdrawn,   // the request went away first: exit 0 without output
    };
    Outcome outcome = Outcome::unanswered;
    std::string reply;
};

// Why a waiting request is moot ("the call was answered in the terminal"),
// or nothing while it still stands. Called at every look of the wait.
using SessionWatch = std::function<std::optional<std::string>()>;

// One request to the app, from the handler that asks to the payload: the
// handler fills what it knows, askApp adds the project and the branch.
struct AppRequest {
    Agent agent = Agent::claude;
    std::string status = {};  // "permission", "question", "completed"
    std::string sessionId = {};
    std::string cwd = {};
    std::string summary = {};
    std::string fullMessage = {};
    std::string title = {};
    // Fixed file names across requests, left in place after the answer (Stop).
    std::optional<std::string> fileKey = {};
    // What the adapter watches while the request waits, and the file whose
    // changes should wake the wait to look ("" for none).
    SessionWatch movedOn = {};
    std::string watchedFile = {};
    std::string projectName = {};
    std::string gitBranch = {};
};

// How the wait sleeps and where the request files live; tests replace
// them. `wait` sleeps up to `seconds`, waking early for a signal, the agent
// hanging up or the descriptor of file events (-1: none) becoming readable,
// and returns the seconds it slept.
struct PollEnvironment {
    std::function<double(double seconds, int fileEvents)> wait;
    // Off: the schedule of looks alone, as where no notification can be had.
    bool fileNotifications = true;
    // A payload no app has taken this long after it went out to an app that
    // was not running is taken back.
    double takeBackSeconds = 20;
    std::string scratchDirectory{kScratchDirectory};
};

PollEnvironment defaultPollEnvironment();

struct RequestFiles {
    std::string requestId;
    std::string messageFile;
    std::string responseFile;
};

RequestFiles requestFiles(const std::string& scratchDirectory, const std::string& sessionId,
                          const std::string& fileKey);

WaitResult sendToVoxtrelAndWait(const AppRequest& request,
                                const PollEnvironment& environment = defaultPollEnvironment());

// Withdraws whatever the app shows for the session.
void dismissAgent(const std::string& sessionId);

}  // namespace AgentHook
