// The debug log: one line per message, "[" UTC time "] [" pid "] " message,
// written once to standard error and once appended to debug.log in the
// scratch directory. Logging never fails its caller: when the file cannot be
// written the line is only on standard error.
#pragma once

#include <string>
#include <string_view>

#include "runtime/Paths.hpp"

namespace AgentHook {

void log(std::string_view message);
void logTo(std::string_view directory, std::string_view message);

// The full line for `message`, line feed included.
std::string formatLogLine(std::string_view message);

// The "Input (N bytes): ..." record for standard input's bytes.
std::string inputRecord(std::string_view bytes);

// Reads standard input to its end, logs its record and returns the bytes.
std::string readAndLogStdin();

}  // namespace AgentHook
