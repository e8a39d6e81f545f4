// Environment, home and per-user data directories.
#pragma once

#include <optional>
#include <string>

namespace AgentHook::platform {

// The variable's value when it is set (possibly empty).
std::optional<std::string> environmentValue(const char* name);

// HOME when set and not empty, else the password database; "" when neither.
std::string homeDirectory();

// Where per-user application data lives: "~/Library/Application Support" on
// macOS; XDG_DATA_HOME (when set to an absolute path) or "~/.local/share" elsewhere.
// "" when no home directory can be found.
std::string applicationSupportDirectory();

}  // namespace AgentHook::platform
