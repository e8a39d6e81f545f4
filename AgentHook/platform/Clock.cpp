#include "platform/Clock.hpp"

#include <cstdio>
#include <ctime>

namespace AgentHook::platform {

std::int64_t unixSeconds() { return static_cast<std::int64_t>(::time(nullptr)); }

double nowSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double steadySeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::string isoTimestampUtc() {
    const std::time_t now = ::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    // Formatted by hand: strftime loads the time-zone database on first use,
    // which costs more than the rest of a typical event's logging.
    char text[32];
    const int length = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                                     parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return std::string(text, length > 0 ? static_cast<std::size_t>(length) : 0);
}

void sleepSeconds(double seconds) {
    timespec request{};
    request.tv_sec = static_cast<std::time_t>(seconds);
    request.tv_nsec = static_cast<long>((seconds - static_cast<double>(request.tv_sec)) * 1e9);
    // An interrupt ends the sleep: the caller looks at its flag straight away.
    ::nanosleep(&request, nullptr);
}

}  // namespace AgentHook::platform
