#include "platform/Clock.hpp"

#include <ctime>

namespace AgentHook::platform {

std::int64_t unixSeconds() { return static_cast<std::int64_t>(::time(nullptr)); }

std::string isoTimestampUtc() {
    const std::time_t now = ::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return std::string(text, length);
}

void sleepSeconds(double seconds) {
    timespec request{};
    request.tv_sec = static_cast<std::time_t>(seconds);
    request.tv_nsec = static_cast<long>((seconds - static_cast<double>(request.tv_sec)) * 1e9);
    // An interrupt ends the sleep: the caller looks at its flag straight away.
    ::nanosleep(&request, nullptr);
}

}  // namespace AgentHook::platform
