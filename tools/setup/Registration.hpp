// What agent-hook registers with each agent, where, and the edits of a
// configuration's "hooks" member that add or remove it.
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

namespace AgentHook::Setup {

enum class Agent { claude, codex, grok };

inline constexpr int kHookTimeoutSeconds = 1860;

struct EventRegistration {
    const char* event;
    const char* matcher;  // nullptr: no matcher member
};

const std::vector<Agent>& allAgents();
std::optional<Agent> agentNamed(std::string_view name);
const char* agentName(Agent agent);   // "claude"
const char* agentTitle(Agent agent);  // "Claude Code"
const std::vector<EventRegistration>& registeredEvents(Agent agent);

// The file install writes: the user's (CODEX_HOME and GROK_HOME respected) or,
// with a project directory, the project's. "" when there is no home directory.
std::string configurationPath(Agent agent, const std::optional<std::string>& project);

// "<hook> <agent>", the path single-quoted for the shell when it needs it.
std::string hookCommand(const std::string& hookPath, Agent agent);

// The program a command runs: its first word, a quoted one unquoted.
std::string commandProgram(std::string_view command);

bool isOwnCommand(std::string_view command, const std::string& hookPath);

// What makes `root` unfit for a registration: not an object, or a "hooks"
// member that is not an object.
std::optional<std::string> shapeProblem(const OrderedJson& root);

// Adds the agent's registration to `root` (an object), replacing every older
// agent-hook entry in place; what is wrong with the document when it has no
// room for it (`root` is then unchanged).
std::optional<std::string> addRegistration(OrderedJson& root, Agent agent, const std::string& hookPath);

// Removes every agent-hook entry, and the groups, events and "hooks" member
// left empty by that; what is wrong with the document, as above.
std::optional<std::string> removeRegistration(OrderedJson& root, const std::string& hookPath);

// One agent-hook entry found in a configuration.
struct FoundEntry {
    std::string event;
    std::optional<std::string> matcher;
    std::string command;
    std::optional<double> timeout;  // nothing when missing or not a number
};
std::vector<FoundEntry> findRegistration(const OrderedJson& root, const std::string& hookPath);

}  // namespace AgentHook::Setup
