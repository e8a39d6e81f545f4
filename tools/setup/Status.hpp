// status: per agent, whether agent-hook is registered, where, and whether
// each entry will work (a timeout of at least 1860 seconds, an existing
// executable agent-hook by its absolute path, the recommended matcher, every
// event there); and the app's side (inbox present, app running). As text for
// a person, or as JSON for scripts. Grok's entries are looked for wherever
// Grok reads hooks: its hooks folder, config.toml and Claude Code's settings.
// Exit status 0 when something is registered and everything registered is
// healthy, 1 otherwise (a configuration that cannot be read included).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Options.hpp"
#include "Registration.hpp"

namespace AgentHook::Setup {

struct EntryHealth {
    FoundEntry entry;
    std::vector<std::string> problems;
};

struct AgentStatus {
    Agent agent = Agent::claude;
    std::string path;
    bool fileExists = false;
    std::string error;  // the file cannot be read or parsed
    std::vector<EntryHealth> entries;
    std::vector<std::string> missingEvents;
    std::vector<std::string> notes;  // worth knowing, not a fault

    bool registered() const { return !entries.empty(); }
    bool healthy() const;
};

AgentStatus agentStatus(Agent agent, const std::optional<std::string>& project, const std::string& hookPath);

int runStatus(const Options& options, const std::string& hookPath);

}  // namespace AgentHook::Setup
