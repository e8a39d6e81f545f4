#include "platform/Environment.hpp"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace AgentHook::platform {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return {};
}

std::string applicationSupportDirectory() {
#if defined(__APPLE__)
    const std::string home = homeDirectory();
    return home.empty() ? std::string() : home + "/Library/Application Support";
#else
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data != '\0') return data;
    const std::string home = homeDirectory();
    return home.empty() ? std::string() : home + "/.local/share";
#endif
}

}  // namespace AgentHook::platform
