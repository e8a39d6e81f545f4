// Linux: a desktop application announces its identifier as a name on the
// session bus.
#include "platform/AppDetection.hpp"

#include <cstdlib>

#include "platform/Files.hpp"
#include "platform/Process.hpp"
#include "platform/SessionBus.hpp"

namespace AgentHook::platform {
namespace {

// The session bus address, without ever starting a bus: the variable, else
// the per-user socket that systemd and the desktop provide.
std::string sessionBusAddress() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address != nullptr && *address != '\0') {
        return address;
    }
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0') {
        const std::string socket = std::string(runtime) + "/bus";
        if (fileExists(socket)) return "unix:path=" + socket;
    }
    return {};
}

}  // namespace

bool isApplicationRunning(const std::vector<std::string>& identifiers) {
    const std::string address = sessionBusAddress();
    if (address.empty()) return false;
    return anyNameHasOwner(address, identifiers).value_or(false);
}

void openUrl(const std::string& url) { startDetached("xdg-open", {url}); }

}  // namespace AgentHook::platform
