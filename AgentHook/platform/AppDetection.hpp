// Is a desktop application with one of the given identifiers running?
#pragma once

#include <string>
#include <vector>

namespace AgentHook::platform {

// macOS: the bundle identifiers of the running applications, compared exactly.
// Linux: an identifier counts when it is an owned name on the session D-Bus.
// Any failure (no bus, no libdbus, an error) answers false.
bool isApplicationRunning(const std::vector<std::string>& identifiers);

// Opens a URL with the desktop's handler: /usr/bin/open on macOS (waited
// for), xdg-open from PATH elsewhere (detached). Failures are ignored.
void openUrl(const std::string& url);

}  // namespace AgentHook::platform
