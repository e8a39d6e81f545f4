#include "Registration.hpp"

#include <cstdlib>

#include "claude/ClaudeEvents.hpp"
#include "codex/CodexEvents.hpp"
#include "grok/GrokEvents.hpp"
#include "platform/Environment.hpp"

namespace AgentHook::Setup {
namespace {

std::string homeOr(const char* variable, const char* fallback) {
    if (std::optional<std::string> value = platform::environmentValue(variable); value && !value->empty()) {
        return *value;
    }
    const std::string home = platform::homeDirectory();
    return home.empty() ? std::string() : home + "/" + fallback;
}

std::string joined(const std::string& directory, const char* rest) {
    if (directory.empty()) return {};
    return directory.back() == '/' ? directory + rest : directory + "/" + rest;
}
}  // namespace

bool isOwnHook(const OrderedJson& hook, const std::string& hookPath) {
    if (!hook.is_object()) return false;
    const auto command = hook.find("command");
    return command != hook.end() && command->is_string() &&
           isOwnCommand(command->get_ref<const std::string&>(), hookPath);
}

bool hasHooksShape(const OrderedJson& root, std::string* err) {
    if (!root.is_object()) {
        *err = "the document is not a JSON object";
        return false;
    }
    const auto hooks = root.find("hooks");
    if (hooks != root.end() && !hooks->is_object()) {
        *err = "its \"hooks\" member is not an object";
        return false;
    }
    return true;
}

const std::vector<Agent>& allAgents() {
    static const std::vector<Agent> agents = {Agent::claude, Agent::codex, Agent::grok};
    return agents;
}

std::optional<Agent> agentNamed(std::string_view name) { return agentForCommandWord(name); }

const char* agentName(Agent agent) { return namesOf(agent).commandWord.data(); }

const char* agentTitle(Agent agent) { return namesOf(agent).title.data(); }

std::vector<EventRegistration> registeredEvents(Agent agent) {
    switch (agent) {
        case Agent::claude: return Claude::registeredEvents();
        case Agent::codex: return Codex::registeredEvents();
        case Agent::grok: return Grok::registeredEvents();
    }
    return {};
}

std::string configurationPath(Agent agent, const std::optional<std::string>& project) {
    switch (agent) {
        case Agent::claude:
            return project ? joined(*project, ".claude/settings.json") : joined(platform::homeDirectory(), ".claude/settings.json");
        case Agent::codex:
            return project ? joined(*project, ".codex/hooks.json") : joined(homeOr("CODEX_HOME", ".codex"), "hooks.json");
        case Agent::grok:
            return project ? joined(*project, ".grok/hooks/agent-hook.json")
                           : joined(homeOr("GROK_HOME", ".grok"), "hooks/agent-hook.json");
    }
    return {};
}

std::string hookCommand(const std::string& hookPath, Agent agent) {
    bool plain = !hookPath.empty();
    for (const char c : hookPath) {
        const bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                          std::string_view("_@%+=:,./-").find(c) != std::string_view::npos;
        plain = plain && safe;
    }
    std::string quoted;
    if (plain) {
        quoted = hookPath;
    } else {
        quoted = "'";
        for (const char c : hookPath) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        quoted += "'";
    }
    return quoted + " " + agentName(agent);
}

std::string commandProgram(std::string_view command) {
    std::size_t at = command.find_first_not_of(" \t");
    std::string word;
    while (at != std::string_view::npos && at < command.size() && command[at] != ' ' && command[at] != '\t') {
        const char c = command[at++];
        if (c == '\'') {
            while (at < command.size() && command[at] != '\'') word += command[at++];
            ++at;
        } else if (c == '"') {
            while (at < command.size() && command[at] != '"') {
                if (command[at] == '\\' && at + 1 < command.size()) ++at;
                word += command[at++];
            }
            ++at;
        } else if (c == '\\' && at < command.size()) {
            word += command[at++];
        } else {
            word += c;
        }
    }
    return word;
}

bool isOwnCommand(std::string_view command, const std::string& hookPath) {
    const std::string program = commandProgram(command);
    const std::size_t slash = program.rfind('/');
    const std::string_view base = slash == std::string::npos ? std::string_view(program)
                                                             : std::string_view(program).substr(slash + 1);
    return base == "agent-hook" || program == hookPath;
}

std::vector<FoundEntry> findRegistration(const OrderedJson& root, const std::string& hookPath) {
    std::vector<FoundEntry> found;
    if (!root.is_object()) return found;
    const auto hooks = root.find("hooks");
    if (hooks == root.end() || !hooks->is_object()) return found;
    for (const auto& [event, list] : hooks->items()) {
        if (!list.is_array()) continue;
        for (const OrderedJson& group : list) {
            const auto inner = group.is_object() ? group.find("hooks") : group.end();
            if (inner == group.end() || !inner->is_array()) continue;
            for (const OrderedJson& hook : *inner) {
                if (!isOwnHook(hook, hookPath)) continue;
                FoundEntry entry;
                entry.event = event;
                if (const auto matcher = group.find("matcher"); matcher != group.end() && matcher->is_string()) {
                    entry.matcher = matcher->get<std::string>();
                }
                entry.command = hook.find("command")->get<std::string>();
                if (const auto timeout = hook.find("timeout"); timeout != hook.end()) {
                    if (timeout->is_number()) {
                        entry.timeout = timeout->get<double>();
                    } else if (timeout->is_binary()) {
                        const auto& digits = timeout->get_binary();
                        entry.timeout = std::strtod(std::string(digits.begin(), digits.end()).c_str(), nullptr);
                    }
                }
                found.push_back(std::move(entry));
            }
        }
    }
    return found;
}

}  // namespace AgentHook::Setup
