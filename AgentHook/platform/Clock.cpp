#include "platform/Clock.hpp"

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

double processCpuSeconds() {
    timespec used{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

std::string isoTimestampUtc() { return isoTimestampUtc(unixSeconds()); }

std::string isoTimestampUtc(std::int64_t now) {
    // Computed by hand: glibc's gmtime_r reads the time-zone database on its
    // first call, and snprintf costs more than the rest of a log line.
    std::int64_t days = now / 86400;
    std::int64_t secondOfDay = now % 86400;
    if (secondOfDay < 0) {
        secondOfDay += 86400;
        days -= 1;
    }
    // Days since 1970-01-01 to a civil date (the proleptic Gregorian calendar,
    // in eras of 400 years that start on 1 March).
    const std::int64_t shifted = days + 719468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const std::int64_t dayOfEra = shifted - era * 146097;
    const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const std::int64_t day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    const std::int64_t month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);

    char text[20] = {'0', '0', '0', '0', '-', '0', '0', '-', '0', '0', 'T', '0', '0', ':', '0', '0', ':', '0', '0', 'Z'};
    const auto put = [&](std::size_t at, std::size_t width, std::int64_t value) {
        for (std::size_t i = width; i-- > 0; value /= 10) text[at + i] = static_cast<char>('0' + value % 10);
    };
    put(0, 4, year);
    put(5, 2, month);
    put(8, 2, day);
    put(11, 2, secondOfDay / 3600);
    put(14, 2, secondOfDay / 60 % 60);
    put(17, 2, secondOfDay % 60);
    return std::string(text, sizeof text);
}

void sleepSeconds(double seconds) {
    timespec request{};
    request.tv_sec = static_cast<std::time_t>(seconds);
    request.tv_nsec = static_cast<long>((seconds - static_cast<double>(request.tv_sec)) * 1e9);
    // An interrupt ends the sleep: the caller looks at its flag straight away.
    ::nanosleep(&request, nullptr);
}

}  // namespace AgentHook::platform
