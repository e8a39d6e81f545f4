// What agent-hook registers with each agent, where, and how to find it in a
// configuration.
//
// agent-hook's own entries are the hooks whose command runs a program named
// "agent-hook" (any directory) or the hook path given; nothing else in the
// file is ever changed. Each registered event gets one group of its own:
// {"matcher": ... (when the agent wants one), "hooks": [{"type": "command",
// "command": "<hook> <agent>", "timeout": 1860}]}.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrderedJson.hpp"
#include "bridge/AgentInboxPayload.hpp"
#include "bridge/EventTable.hpp"

namespace AgentHook::Setup {

// The agents are the hook's own (bridge/AgentInboxPayload.hpp): AgentHook::Agent.

inline constexpr int kHookTimeoutSeconds = 1860;

const std::vector<Agent>& allAgents();
std::optional<Agent> agentNamed(std::string_view name);
const char* agentName(Agent agent);   // "claude"
const char* agentTitle(Agent agent);  // "Claude Code"
std::vector<EventRegistration> registeredEvents(Agent agent);

// The file install writes: the user's (CODEX_HOME and GROK_HOME respected) or,
// with a project directory, the project's. "" when there is no home directory.
std::string configurationPath(Agent agent, const std::optional<std::string>& project);

// "<hook> <agent>", the path single-quoted for the shell when it needs it.
std::string hookCommand(const std::string& hookPath, Agent agent);

// The program a command runs: its first word, a quoted one unquoted.
std::string commandProgram(std::string_view command);

bool isOwnCommand(std::string_view command, const std::string& hookPath);

// Whether `root` has room for a registration: an object whose "hooks" member,
// if any, is an object; `err` says what is wrong when not.
[[nodiscard]] bool hasHooksShape(const OrderedJson& root, std::string* err);

// Whether a hook object runs agent-hook.
bool isOwnHook(const OrderedJson& hook, const std::string& hookPath);

// One agent-hook entry found in a configuration.
struct FoundEntry {
    std::string event;
    std::optional<std::string> matcher;
    std::string command;
    std::optional<double> timeout;  // nothing when missing or not a number
    std::string file;               // where it is, when not in the file install writes
    std::size_t line = 0;           // its line there, when known
};
std::vector<FoundEntry> findRegistration(const OrderedJson& root, const std::string& hookPath);

}  // namespace AgentHook::Setup
