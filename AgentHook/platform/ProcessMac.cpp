// macOS: what dyld tells about the running process.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <mach-o/dyld.h>

#include "platform/Process.hpp"

namespace AgentHook::platform {

std::string runningExecutablePath() {
    char buffer[PATH_MAX];
    std::uint32_t size = sizeof buffer;
    if (_NSGetExecutablePath(buffer, &size) != 0) return {};
    // dyld may give a path with symbolic links or "..": the setup tool
    // registers the absolute path a person would recognise.
    char resolved[PATH_MAX];
    return ::realpath(buffer, resolved) != nullptr ? std::string(resolved) : std::string(buffer);
}

}  // namespace AgentHook::platform
