// Linux: what the kernel tells about the running process.
#include <climits>
#include <unistd.h>

#include "platform/Process.hpp"

namespace AgentHook::platform {

std::string runningExecutablePath() {
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer);
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof buffer) return {};
    return std::string(buffer, static_cast<std::size_t>(length));
}

}  // namespace AgentHook::platform
