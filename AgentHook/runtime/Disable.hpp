// Disable markers: an empty file "disabled-<session id>" or
// "disabled-<md5 of the working directory>" in the scratch directory switches
// the app off for that session or directory. Only existence counts; any error
// of the test counts as "no marker".
#pragma once

#include <string>
#include <string_view>

#include "runtime/Paths.hpp"

namespace AgentHook {

// The key of a working directory: MD5 of its bytes exactly as reported, hex.
std::string cwdKey(std::string_view cwd);

// Logs the reason and answers true when a marker switches this event off.
bool isAgentDisabled(const std::string& sessionId, const std::string& cwd,
                     std::string_view directory = kScratchDirectory);

}  // namespace AgentHook
