#include "Registration.hpp"

#include <cstdlib>
#include <map>

#include "platform/Environment.hpp"

namespace AgentHook::Setup {
namespace {

const std::vector<EventRegistration> kClaudeEvents = {
    {"Stop", nullptr},
    {"UserPromptSubmit", nullptr},
    {"PermissionRequest", "*"},
    {"PreToolUse", "AskUserQuestion"},
    {"Notification", nullptr},
};
const std::vector<EventRegistration> kCodexEvents = {
    {"Stop", nullptr},
    {"UserPromptSubmit", nullptr},
    {"PermissionRequest", nullptr},
};
const std::vector<EventRegistration> kGrokEvents = {
    {"Stop", nullptr},
    {"UserPromptSubmit", nullptr},
    {"PreToolUse", "*"},
    {"SessionEnd", nullptr},
};

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

bool isOwnHook(const OrderedJson& hook, const std::string& hookPath) {
    if (!hook.is_object()) return false;
    const auto command = hook.find("command");
    return command != hook.end() && command->is_string() &&
           isOwnCommand(command->get_ref<const std::string&>(), hookPath);
}

// What taking agent-hook's entries out of a "hooks" object left behind.
struct Removal {
    std::map<std::string, std::size_t> places;  // per event: where the first entry was
    std::vector<std::string> emptied;           // events whose list only held entries of ours
    bool removedAny = false;
};

Removal removeOwnEntries(OrderedJson& hooks, const std::string& hookPath) {
    Removal removal;
    for (auto member = hooks.begin(); member != hooks.end(); ++member) {
        const std::string& event = member.key();
        OrderedJson& list = member.value();
        if (!list.is_array()) continue;
        OrderedJson kept = OrderedJson::array();
        bool removedHere = false;
        for (OrderedJson& group : list) {
            const auto inner = group.is_object() ? group.find("hooks") : group.end();
            if (inner == group.end() || !inner->is_array()) {
                kept.push_back(std::move(group));
                continue;
            }
            OrderedJson others = OrderedJson::array();
            for (OrderedJson& hook : *inner) {
                if (!isOwnHook(hook, hookPath)) others.push_back(std::move(hook));
            }
            const bool removed = others.size() != inner->size();
            if (removed && !removedHere) removal.places.emplace(event, kept.size() + (others.empty() ? 0 : 1));
            removedHere = removedHere || removed;
            if (removed && others.empty()) continue;
            *inner = std::move(others);
            kept.push_back(std::move(group));
        }
        list = std::move(kept);
        if (removedHere && list.empty()) removal.emptied.push_back(event);
        removal.removedAny = removal.removedAny || removedHere;
    }
    return removal;
}

void eraseEmptied(OrderedJson& hooks, const std::vector<std::string>& emptied) {
    for (const std::string& event : emptied) {
        const auto found = hooks.find(event);
        if (found != hooks.end() && found->is_array() && found->empty()) hooks.erase(found);
    }
}

}  // namespace

std::optional<std::string> shapeProblem(const OrderedJson& root) {
    if (!root.is_object()) return "the document is not a JSON object";
    const auto hooks = root.find("hooks");
    if (hooks != root.end() && !hooks->is_object()) return "its \"hooks\" member is not an object";
    return std::nullopt;
}

const std::vector<Agent>& allAgents() {
    static const std::vector<Agent> agents = {Agent::claude, Agent::codex, Agent::grok};
    return agents;
}

std::optional<Agent> agentNamed(std::string_view name) {
    for (const Agent agent : allAgents()) {
        if (name == agentName(agent)) return agent;
    }
    return std::nullopt;
}

const char* agentName(Agent agent) {
    switch (agent) {
        case Agent::claude: return "claude";
        case Agent::codex: return "codex";
        case Agent::grok: return "grok";
    }
    return "";
}

const char* agentTitle(Agent agent) {
    switch (agent) {
        case Agent::claude: return "Claude Code";
        case Agent::codex: return "Codex CLI";
        case Agent::grok: return "Grok CLI";
    }
    return "";
}

const std::vector<EventRegistration>& registeredEvents(Agent agent) {
    switch (agent) {
        case Agent::claude: return kClaudeEvents;
        case Agent::codex: return kCodexEvents;
        case Agent::grok: return kGrokEvents;
    }
    return kClaudeEvents;
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

std::optional<std::string> addRegistration(OrderedJson& root, Agent agent, const std::string& hookPath) {
    if (std::optional<std::string> problem = shapeProblem(root)) return problem;
    if (const auto hooks = root.find("hooks"); hooks != root.end()) {
        for (const EventRegistration& registration : registeredEvents(agent)) {
            const auto list = hooks->find(registration.event);
            if (list != hooks->end() && !list->is_array()) {
                return std::string("its \"hooks\" member's \"") + registration.event + "\" is not a list";
            }
        }
    } else {
        root["hooks"] = OrderedJson::object();
    }
    OrderedJson& hooks = root["hooks"];
    const Removal removal = removeOwnEntries(hooks, hookPath);
    for (const EventRegistration& registration : registeredEvents(agent)) {
        OrderedJson group = OrderedJson::object();
        if (registration.matcher) group["matcher"] = registration.matcher;
        OrderedJson hook = OrderedJson::object();
        hook["type"] = "command";
        hook["command"] = hookCommand(hookPath, agent);
        hook["timeout"] = kHookTimeoutSeconds;
        group["hooks"] = OrderedJson::array({std::move(hook)});
        OrderedJson& list = hooks[registration.event];
        if (list.is_null()) list = OrderedJson::array();
        const auto place = removal.places.find(registration.event);
        const std::size_t at = place == removal.places.end() ? list.size() : std::min(place->second, list.size());
        list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), std::move(group));
    }
    eraseEmptied(hooks, removal.emptied);
    return std::nullopt;
}

std::optional<std::string> removeRegistration(OrderedJson& root, const std::string& hookPath) {
    if (std::optional<std::string> problem = shapeProblem(root)) return problem;
    const auto hooks = root.find("hooks");
    if (hooks == root.end()) return std::nullopt;
    const Removal removal = removeOwnEntries(*hooks, hookPath);
    eraseEmptied(*hooks, removal.emptied);
    if (removal.removedAny && hooks->empty()) root.erase(hooks);
    return std::nullopt;
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
