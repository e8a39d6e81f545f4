// The command line of agent-hook-setup.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Registration.hpp"

namespace AgentHook::Setup {

enum class Command { install, uninstall, status, help, version };

struct Options {
    Command command = Command::help;
    std::vector<Agent> agents;               // install, uninstall, status (all when not named)
    std::optional<std::string> project;      // --project DIR, made absolute
    std::optional<std::string> hookPath;     // --hook PATH, made absolute
    bool dryRun = false;                     // --dry-run
    bool json = false;                       // status --json
};

struct ParsedOptions {
    std::optional<Options> options;
    std::string error;  // a usage error when there are no options
};

// Options may come before or after the command; "--name=value" is accepted.
// Relative paths are taken from `workingDirectory`.
ParsedOptions parseOptions(const std::vector<std::string>& arguments, const std::string& workingDirectory);

extern const char* const kUsage;
extern const char* const kHelp;

}  // namespace AgentHook::Setup
