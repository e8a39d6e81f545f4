#include "platform/Environment.hpp"

#include "platform/Files.hpp"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <pwd.h>
#include <unistd.h>

namespace AgentHook::platform {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

#if defined(__APPLE__)
std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return {};
}
#else
// The program is linked statically, where getpwuid would need the C library's
// shared name-service modules; the user's own line of /etc/passwd serves.
std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    const std::optional<std::string> passwd = readFile("/etc/passwd");
    if (!passwd) return {};
    const std::string uid = std::to_string(::getuid());
    std::size_t start = 0;
    while (start < passwd->size()) {
        const std::size_t end = std::min(passwd->find('\n', start), passwd->size());
        // name:password:uid:gid:gecos:home:shell
        std::string_view fields[7];
        std::size_t count = 0, from = start;
        while (count < 7 && from <= end) {
            const std::size_t colon = std::min(passwd->find(':', from), end);
            fields[count++] = std::string_view(*passwd).substr(from, colon - from);
            from = colon + 1;
        }
        if (count == 7 && fields[2] == uid) return std::string(fields[5]);
        start = end + 1;
    }
    return {};
}
#endif

std::string applicationSupportDirectory() {
#if defined(__APPLE__)
    const std::string home = homeDirectory();
    return home.empty() ? std::string() : home + "/Library/Application Support";
#else
    // A relative path is not a base directory and is ignored, as for every XDG variable.
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/') return data;
    const std::string home = homeDirectory();
    return home.empty() ? std::string() : home + "/.local/share";
#endif
}

}  // namespace AgentHook::platform
