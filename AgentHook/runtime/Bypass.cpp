#include "runtime/Bypass.hpp"

#include "platform/Files.hpp"
#include "runtime/Logging.hpp"
#include "runtime/Paths.hpp"

namespace AgentHook {

std::string bypassMarkerPath(const std::string& sessionId) { return scratchPath(sessionId + "-bypass-perms"); }

bool isBypassActive(const std::string& sessionId, const std::string& toolName) {
    if (!platform::fileExists(bypassMarkerPath(sessionId))) return false;
    log("Bypass-perms mode active for session=" + sessionId + ", auto-allowing " + toolName);
    return true;
}

void enableBypass(const std::string& sessionId) {
    const std::string path = bypassMarkerPath(sessionId);
    // The call itself is still allowed; later ones will be asked about again.
    if (std::string error; !platform::writeFile(path, "", &error)) log("Failed to write " + path + ": " + error);
}

}  // namespace AgentHook
