// Putting a request to the app the way every adapter does: the project and
// branch of the working directory go along, and the wait watches what the
// adapter can watch. And the finished turn, which every agent hands over the
// same way: the final message goes to the app, and a spoken reply comes back
// as a Stop decision that makes the agent go on with it.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "bridge/Polling.hpp"

namespace AgentHook {


// Fills in the project and branch of the request's working directory and waits.
WaitResult askApp(AppRequest request);

// Logs the final message; an empty one ends the turn without the app, and
// so does `mayAsk` returning false (it logs why). `title` is looked up only
// when the app is asked. True when a block decision went out.
bool relayFinishedTurn(Agent agent, const std::string& sessionId, const std::string& cwd, std::string finalMessage,
                       const std::function<std::string()>& title, SessionWatch movedOn = {},
                       const std::function<bool()>& mayAsk = {}, std::string watchedFile = {});

// The line every permission handler logs when the app gave no answer.
void logPermissionDismissed(const std::string& sessionId);

}  // namespace AgentHook
