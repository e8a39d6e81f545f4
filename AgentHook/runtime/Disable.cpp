#include "runtime/Disable.hpp"

#include "platform/Files.hpp"
#include "platform/Identifiers.hpp"
#include "runtime/Logging.hpp"

namespace AgentHook {

std::string cwdKey(std::string_view cwd) { return platform::md5Hex(cwd); }

bool isAgentDisabled(const std::string& sessionId, const std::string& cwd, std::string_view directory) {
    const std::string prefix = std::string(directory) + "/disabled-";
    if (platform::fileExists(prefix + sessionId)) {
        logTo(directory, "Exiting: voxtrel disabled for session=" + sessionId);
        return true;
    }
    if (cwd.empty()) return false;
    if (platform::fileExists(prefix + cwdKey(cwd))) {
        logTo(directory, "Exiting: voxtrel disabled for cwd=" + cwd);
        return true;
    }
    return false;
}

}  // namespace AgentHook
