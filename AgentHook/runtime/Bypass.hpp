// The session bypass: an empty file "<session id>-bypass-perms" in the scratch
// directory allows every permission request of the session without asking
// the app. Only its existence counts.
#pragma once

#include <string>

namespace AgentHook {

std::string bypassMarkerPath(const std::string& sessionId);

// True when the marker exists; logs that `toolName` is allowed because of it.
bool isBypassActive(const std::string& sessionId, const std::string& toolName);

// Creates the marker. The outcome is not checked: a marker that could not be
// made only means that the next request asks the app again. Each adapter
// logs the change in its own words.
void enableBypass(const std::string& sessionId);

}  // namespace AgentHook
