// Wall-clock time and sleeping.
#pragma once

#include <cstdint>
#include <string>

namespace AgentHook::platform {

// Whole seconds since 1970-01-01 00:00 UTC.
std::int64_t unixSeconds();

// Seconds since 1970-01-01 00:00 UTC, with their fraction.
double nowSeconds();

// Seconds on a clock that never jumps (for deadlines), with their fraction.
double steadySeconds();

// The CPU time this process has used, in seconds.
double processCpuSeconds();
// The current time as "2026-11-16T20:06:55Z" (UTC, whole seconds).
std::string isoTimestampUtc();
// The same for a given time (seconds since 1970-01-01 00:00 UTC, years 0 to 9999).
std::string isoTimestampUtc(std::int64_t unixSeconds);

// Blocks the thread; an interrupting signal ends the sleep early.
void sleepSeconds(double seconds);

}  // namespace AgentHook::platform
