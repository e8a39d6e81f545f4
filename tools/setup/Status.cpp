#include "Status.hpp"

#include <algorithm>
#include <cstdio>

#include "ConfigFile.hpp"
#include "GrokToml.hpp"
#include "bridge/Inbox.hpp"
#include "platform/Files.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Setup {
namespace {

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string number(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

std::vector<std::string> problemsOf(const FoundEntry& entry, Agent agent) {
    std::vector<std::string> problems;
    if (!entry.timeout) {
        problems.push_back("no timeout: the agent's default ends the hook before the app's 30-minute wait");
    } else if (*entry.timeout < kHookTimeoutSeconds) {
        problems.push_back("timeout " + number(*entry.timeout) + " s is shorter than " +
                           std::to_string(kHookTimeoutSeconds) + " s");
    }
    const std::string program = commandProgram(entry.command);
    if (program.find('/') == std::string::npos) {
        problems.push_back(quoted(program) + " is not an absolute path: the agent's PATH may not find it");
    } else if (!platform::fileExists(program)) {
        problems.push_back(program + " does not exist");
    } else if (!platform::isExecutableFile(program)) {
        problems.push_back(program + " is not an executable file");
    }
    if (!text::isValidUtf8(entry.command)) problems.push_back("the command is not valid UTF-8");
    if (!entry.command.ends_with(std::string(" ") + agentName(agent))) {
        problems.push_back(std::string("the command does not name the agent \"") + agentName(agent) + "\"");
    }
    for (const EventRegistration& registration : registeredEvents(agent)) {
        if (entry.event != registration.event || registration.matcher == nullptr) continue;
        if (entry.matcher != registration.matcher) {
            problems.push_back("matcher " + (entry.matcher ? quoted(*entry.matcher) : std::string("missing")) +
                               " where " + quoted(registration.matcher) + " is recommended");
        }
    }
    return problems;
}

// Accepted, but worth changing: a "*" matcher where none is recommended
// works only where the agent reads "*" as every tool.
std::optional<std::string> noteOf(const FoundEntry& entry, Agent agent) {
    if (entry.matcher != "*") return std::nullopt;
    for (const EventRegistration& registration : registeredEvents(agent)) {
        if (entry.event == registration.event && registration.matcher == nullptr) {
            return entry.event + ": matcher \"*\" is not recommended; without a matcher the entry runs for every tool";
        }
    }
    return std::nullopt;
}

std::string entryLabel(const FoundEntry& entry) {
    return entry.matcher ? entry.event + " [" + *entry.matcher + "]" : entry.event;
}

std::string placeOf(const FoundEntry& entry) {
    if (entry.file.empty()) return {};
    return " (in " + entry.file + (entry.line ? ":" + std::to_string(entry.line) : std::string()) + ")";
}

// Grok also runs the hooks of every other JSON file in its hooks folder, of
// config.toml, and of Claude Code's settings.
void addGrokPlaces(AgentStatus& status, const std::optional<std::string>& project, const std::string& hookPath) {
    const std::string folder = directoryOf(status.path);
    std::vector<std::string> names = platform::listDirectory(folder).value_or(std::vector<std::string>());
    std::sort(names.begin(), names.end());
    std::vector<FoundEntry> found;
    for (const std::string& name : names) {
        if (!name.ends_with(".json") || folder + "/" + name == status.path) continue;
        OrderedJson document;
        bool exists = false;
        if (std::string err; !readConfiguration(folder + "/" + name, &document, &exists, &err)) {
            status.notes.push_back(err);
            continue;
        }
        for (FoundEntry& entry : findRegistration(document, hookPath)) {
            entry.file = folder + "/" + name;
            found.push_back(std::move(entry));
        }
    }
    if (!project) {
        const std::string toml = directoryOf(folder) + "/config.toml";
        if (const std::optional<std::string> text = platform::readFile(toml)) {
            for (FoundEntry& entry : findTomlRegistration(*text, hookPath)) {
                entry.file = toml;
                found.push_back(std::move(entry));
            }
        }
    }
    const std::string claude = configurationPath(Agent::claude, project);
    OrderedJson claudeDocument;
    bool claudeExists = false;
    if (std::string ignored; readConfiguration(claude, &claudeDocument, &claudeExists, &ignored)) {
        bool claudeEntries = false;
        for (FoundEntry& entry : findRegistration(claudeDocument, hookPath)) {
            if (!entry.command.ends_with(" grok")) {
                claudeEntries = true;
                continue;
            }
            entry.file = claude;
            found.push_back(std::move(entry));
        }
        if (claudeEntries) {
            status.notes.push_back("Grok also runs the agent-hook entries of " + claude +
                                   "; on Grok's events they end without doing anything");
        }
    }
    for (FoundEntry& entry : found) {
        if (const std::optional<std::string> note = noteOf(entry, Agent::grok)) status.notes.push_back(*note + placeOf(entry));
        std::vector<std::string> problems = problemsOf(entry, Agent::grok);
        if (entry.file == claude) problems.push_back("Claude Code runs it too, with its own events");
        status.entries.push_back({std::move(entry), std::move(problems)});
    }
}

// An event registered more than once runs agent-hook more than once.
void flagRepeats(AgentStatus& status) {
    for (std::size_t i = 0; i < status.entries.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (status.entries[j].entry.event == status.entries[i].entry.event) {
                status.entries[i].problems.push_back("a second entry for " + status.entries[i].entry.event +
                                                     ": the agent runs agent-hook twice");
                break;
            }
        }
    }
}

void printText(const std::vector<AgentStatus>& statuses, const std::string& inbox, bool inboxPresent, bool running) {
    for (const AgentStatus& status : statuses) {
        std::string state;
        if (!status.error.empty()) {
            state = "cannot be read";
        } else if (!status.registered()) {
            state = "not registered";
        } else {
            state = status.healthy() ? "registered, healthy" : "registered, NOT healthy";
        }
        std::printf("%-12s %s\n", agentTitle(status.agent), state.c_str());
        std::printf("  file       %s%s\n", status.path.c_str(), status.fileExists ? "" : " (absent)");
        if (!status.error.empty()) std::printf("  error      %s\n", status.error.c_str());
        for (const EntryHealth& health : status.entries) {
            const std::string timeout = health.entry.timeout ? ", timeout " + number(*health.entry.timeout) : "";
            std::printf("  %-32s %s  %s%s%s\n", entryLabel(health.entry).c_str(), health.problems.empty() ? "ok" : "!!",
                        health.entry.command.c_str(), timeout.c_str(), placeOf(health.entry).c_str());
            for (const std::string& problem : health.problems) std::printf("  %-32s    %s\n", "", problem.c_str());
        }
        for (const std::string& note : status.notes) std::printf("  note       %s\n", note.c_str());
        if (status.registered() && !status.missingEvents.empty()) {
            std::string missing;
            for (const std::string& event : status.missingEvents) missing += (missing.empty() ? "" : ", ") + event;
            std::printf("  missing    %s (agent-hook-setup install %s adds them)\n", missing.c_str(),
                        agentName(status.agent));
        }
    }
    std::printf("%-12s inbox %s%s; app %s\n", "App", inbox.empty() ? "(no home directory)" : inbox.c_str(),
                inboxPresent ? " present" : " absent (the app creates it)",
                running ? "running" : "not running (the hook wakes it)");
}

void replaceInvalidText(OrderedJson& value) {
    if (value.is_string()) {
        const std::string& text = value.get_ref<const std::string&>();
        if (!text::isValidUtf8(text)) value = text::withReplacementCharacters(text);
    } else if (value.is_structured()) {
        for (OrderedJson& item : value) replaceInvalidText(item);
    }
}

void printJson(const std::vector<AgentStatus>& statuses, const std::string& inbox, bool inboxPresent, bool running,
               bool healthy) {
    OrderedJson agents = OrderedJson::array();
    for (const AgentStatus& status : statuses) {
        OrderedJson item = OrderedJson::object();
        item["agent"] = agentName(status.agent);
        item["file"] = status.path;
        item["fileExists"] = status.fileExists;
        item["error"] = status.error.empty() ? OrderedJson(nullptr) : OrderedJson(status.error);
        item["registered"] = status.registered();
        item["healthy"] = status.healthy();
        OrderedJson entries = OrderedJson::array();
        for (const EntryHealth& health : status.entries) {
            OrderedJson entry = OrderedJson::object();
            entry["event"] = health.entry.event;
            entry["matcher"] = health.entry.matcher ? OrderedJson(*health.entry.matcher) : OrderedJson(nullptr);
            entry["command"] = health.entry.command;
            entry["timeout"] = health.entry.timeout ? OrderedJson(*health.entry.timeout) : OrderedJson(nullptr);
            entry["file"] = health.entry.file.empty() ? status.path : health.entry.file;
            entry["line"] = health.entry.line ? OrderedJson(health.entry.line) : OrderedJson(nullptr);
            entry["problems"] = health.problems;
            entries.push_back(std::move(entry));
        }
        item["entries"] = std::move(entries);
        item["missingEvents"] = status.missingEvents;
        item["notes"] = status.notes;
        agents.push_back(std::move(item));
    }
    OrderedJson report = OrderedJson::object();
    report["agents"] = std::move(agents);
    report["app"] = OrderedJson{{"inbox", inbox}, {"inboxPresent", inboxPresent}, {"running", running}};
    report["healthy"] = healthy;
    // A command or path that is not valid UTF-8 (a config.toml can hold one)
    // is shown with U+FFFD in its place; its entry says so among its problems.
    replaceInvalidText(report);
    const std::optional<std::string> text = writeOrderedJson(report, Layout{});
    std::fputs(text ? text->c_str() : "{\"error\": \"the report cannot be written as JSON\"}\n", stdout);
}

}  // namespace

bool AgentStatus::healthy() const {
    if (!error.empty()) return false;
    if (!registered()) return true;
    for (const EntryHealth& health : entries) {
        if (!health.problems.empty()) return false;
    }
    return missingEvents.empty();
}

AgentStatus agentStatus(Agent agent, const std::optional<std::string>& project, const std::string& hookPath) {
    AgentStatus status;
    status.agent = agent;
    status.path = configurationPath(agent, project);
    OrderedJson document;
    if (!readConfiguration(status.path, &document, &status.fileExists, &status.error)) return status;
    if (std::string problem; !hasHooksShape(document, &problem)) {
        status.error = status.path + ": " + problem;
        return status;
    }
    for (FoundEntry& entry : findRegistration(document, hookPath)) {
        if (const std::optional<std::string> note = noteOf(entry, agent)) status.notes.push_back(*note);
        std::vector<std::string> problems = problemsOf(entry, agent);
        status.entries.push_back({std::move(entry), std::move(problems)});
    }
    if (agent == Agent::grok) addGrokPlaces(status, project, hookPath);
    flagRepeats(status);
    for (const EventRegistration& registration : registeredEvents(agent)) {
        bool found = false;
        for (const EntryHealth& health : status.entries) found = found || health.entry.event == registration.event;
        if (!found) status.missingEvents.push_back(registration.event);
    }
    return status;
}

int runStatus(const Options& options, const std::string& hookPath) {
    std::vector<AgentStatus> statuses;
    bool healthy = true;
    bool anyRegistered = false;
    for (const Agent agent : options.agents) {
        statuses.push_back(agentStatus(agent, options.project, hookPath));
        healthy = healthy && statuses.back().healthy();
        anyRegistered = anyRegistered || statuses.back().registered();
    }
    // Nothing registered is not a working set-up.
    healthy = healthy && anyRegistered;
    const std::string inbox = inboxDirectory();
    const bool inboxPresent = !inbox.empty() && platform::fileExists(inbox);
    const bool running = isVoxtrelRunning();
    if (options.json) {
        printJson(statuses, inbox, inboxPresent, running, healthy);
    } else {
        printText(statuses, inbox, inboxPresent, running);
    }
    return healthy ? 0 : 1;
}

}  // namespace AgentHook::Setup
