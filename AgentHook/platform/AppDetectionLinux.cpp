// Linux: a desktop application announces its identifier as a name on the
// session bus.
#include "platform/AppDetection.hpp"

#include "platform/Process.hpp"
#include "platform/SessionBus.hpp"

namespace AgentHook::platform {

bool isApplicationRunning(const std::vector<std::string>& identifiers) {
    const std::string address = sessionBusAddress();
    if (address.empty()) return false;
    return anyNameHasOwner(address, identifiers).value_or(false);
}

// No xdg-open (a machine without a desktop) is no fault: the app is then not
// on this machine to be woken, and the request waits in its inbox.
void openUrl(const std::string& url) { static_cast<void>(startDetached("xdg-open", {url})); }

}  // namespace AgentHook::platform
