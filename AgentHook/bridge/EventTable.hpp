// Each adapter's events in one table: the name the agent sends, whether and
// how agent-hook-setup registers it, and the handler. The router and the setup
// tool read the same rows, so a registration can never name an event the hook
// does not handle, nor miss one it does.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bridge/AgentInboxPayload.hpp"
#include "bridge/Polling.hpp"
#include "runtime/Logging.hpp"
#include "runtime/Run.hpp"

namespace AgentHook {

// One entry agent-hook-setup writes into an agent's hooks: the event and,
// where the agent filters by tool, the matcher (nullptr: no matcher member).
struct EventRegistration {
    const char* event;
    const char* matcher;
};

enum class Registered { no, yes };

template <class Input>
struct EventRoute {
    const char* name;         // as the agent's documentation spells it
    Registered registered;    // no: handled when sent, never registered
    const char* matcher;      // for a registered event; nullptr: none
    int (*handle)(const Input&);  // nullptr: seen and passed through
};

template <class Input>
struct EventTable {
    Agent agent;
    std::span<const EventRoute<Input>> routes;
    bool normalizedNames;             // Grok: "pre_tool_use" is "PreToolUse"
    int (*unknown)(const Input&);     // no row matches, or no name at all
};

template <class Input>
std::vector<EventRegistration> registrationsOf(const EventTable<Input>& table) {
    std::vector<EventRegistration> registrations;
    for (const EventRoute<Input>& route : table.routes) {
        if (route.registered == Registered::yes) registrations.push_back({route.name, route.matcher});
    }
    return registrations;
}

template <class Input>
int routeEvent(const EventTable<Input>& table, const Input& input) {
    if (input.hookEventName) {
        const std::string name = table.normalizedNames ? normalizedEventName(*input.hookEventName) : *input.hookEventName;
        for (const EventRoute<Input>& route : table.routes) {
            if (name != (table.normalizedNames ? normalizedEventName(route.name) : std::string(route.name))) continue;
            if (route.handle) return route.handle(input);
            log(std::string(route.name) + " not yet handled for " + std::string(namesOf(table.agent).commandWord) +
                ", passing through");
            return 0;
        }
    }
    return table.unknown(input);
}

// The life of one hook process (runHook) with the table as its router.
template <class Input, class Decode>
int runEvents(const EventTable<Input>& table, Decode decode) {
    return runHook(namesOf(table.agent).commandWord, decode,
                   [&table](const Input& input) { return routeEvent(table, input); });
}

// The rows the adapters share.

// A prompt typed into the agent, or the session ending: whatever the app
// still shows for the session goes.
template <class Input>
int dismissSession(const Input& input) {
    dismissAgent(input.sessionId);
    return 0;
}

template <class Input>
int ignoreSessionStart(const Input& input) {
    log("SessionStart: source=" + input.source.value_or("nil") + ", no-op");
    return 0;
}

template <Agent agent, class Input>
int exitOnUnknownEvent(const Input& input) {
    log("Unknown " + std::string(namesOf(agent).commandWord) + " event " + input.hookEventName.value_or("nil") +
        ", exiting");
    return 0;
}

}  // namespace AgentHook
