#include "runtime/Run.hpp"

#include <algorithm>

#include "runtime/Disable.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

std::string normalizedEventName(std::string_view name) {
    std::string normalized = text::lowercased(name);
    normalized.erase(std::remove(normalized.begin(), normalized.end(), '_'), normalized.end());
    return normalized;
}

bool isStopEvent(const std::optional<std::string>& hookEventName) {
    return hookEventName && normalizedEventName(*hookEventName) == "stop";
}

bool passesGates(const std::string& sessionId, const std::string& cwd, const std::optional<std::string>& hookEventName,
                 std::optional<bool> stopHookActive) {
    log("Event: " + hookEventName.value_or("nil") + " session=" + sessionId);
    // The session id names files in the scratch directory: one that could
    // lead out of it is never used.
    if (sessionId.find('/') != std::string::npos || sessionId.find("..") != std::string::npos ||
        sessionId.find('\0') != std::string::npos) {
        log("Session id cannot name a file, leaving the decision to the agent");
        return false;
    }
    if (stopHookActive == true && !isStopEvent(hookEventName)) {
        log("Non-stop event with stop_hook_active=true, skipping");
        return false;
    }
    return !isAgentDisabled(sessionId, cwd);
}

}  // namespace AgentHook
