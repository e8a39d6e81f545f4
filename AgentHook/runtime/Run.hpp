// The life of one hook process, the same for every agent: log the start,
// read and record standard input, decode the adapter's record, log the event,
// then the two gates every event passes (a non-stop event while a Stop hook
// is active is dropped; a switched-off session or directory ends quietly),
// and hand the event to the adapter's router. Returns the exit status: 1 for
// input that does not decode, else what the router returns.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/Logging.hpp"

namespace AgentHook {

// Lower-cased and without underscores: "pre_tool_use" and "PreToolUse" are "pretooluse".
std::string normalizedEventName(std::string_view name);

// "Stop", "stop", "S_T_O_P": an event name that normalises to "stop".
bool isStopEvent(const std::optional<std::string>& hookEventName);

// Logs the event line and applies both gates; false when the event ends here.
bool passesGates(const std::string& sessionId, const std::string& cwd, const std::optional<std::string>& hookEventName,
                 std::optional<bool> stopHookActive);

// `decode` turns the bytes into the adapter's record (which has sessionId,
// cwd, hookEventName and stopHookActive) or nothing; `route` handles it.
template <class Decode, class Route>
int handleEvent(std::string_view bytes, Decode decode, Route route) {
    const auto input = decode(bytes);
    if (!input) {
        log("Failed to decode JSON");
        return 1;
    }
    if (!passesGates(input->sessionId, input->cwd, input->hookEventName, input->stopHookActive)) return 0;
    return route(*input);
}

template <class Decode, class Route>
int runHook(std::string_view agent, Decode decode, Route route) {
    log("Hook started (" + std::string(agent) + ")");
    const std::string bytes = readAndLogStdin();
    return handleEvent(bytes, decode, route);
}

}  // namespace AgentHook
