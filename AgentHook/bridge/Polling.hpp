// The blocking round trip with the app: the request's body goes to a message
// file, an update payload to the inbox, and the response file is polled once
// a second for five minutes, then every ten seconds, up to 30 minutes in all.
// On time-out the request is withdrawn (a dismiss payload); on SIGINT it is
// withdrawn and the caller is told to exit with status 0.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "bridge/AgentInboxPayload.hpp"
#include "runtime/Paths.hpp"

namespace AgentHook {

struct VoxtrelRequest {
    Agent agent = Agent::claude;
    std::string status;
    std::string sessionId;
    std::string summary;
    std::string fullMessage;
    std::string cwd;
    std::string projectName;
    std::string gitBranch;
    std::string title;
    // Fixed file names across requests, left in place after the answer (Stop).
    std::optional<std::string> fileKey;
};

struct WaitResult {
    bool interrupted = false;
    // The response file's text as read (not trimmed); absent on time-out.
    std::optional<std::string> reply;
};

// How the wait sleeps and where the request files live; tests replace both.
struct PollEnvironment {
    std::function<void(int seconds)> sleep;
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

WaitResult sendToVoxtrelAndWait(const VoxtrelRequest& request,
                                const PollEnvironment& environment = defaultPollEnvironment());

// Withdraws whatever the app shows for the session.
void dismissAgent(const std::string& sessionId);

}  // namespace AgentHook
