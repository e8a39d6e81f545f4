#include "Commands.hpp"

#include <cstdio>

#include "ConfigFile.hpp"
#include "Registration.hpp"
#include "RegistrationEdit.hpp"
#include "Status.hpp"
#include "platform/Files.hpp"
#include "platform/Process.hpp"

namespace AgentHook::Setup {
namespace {

const char* const kCodexTrust =
    "Codex skips hooks that nobody has trusted yet: start `codex` once in a terminal and choose\n"
    "\"Trust all and continue\" on its \"Hooks need review\" screen (again after any change of the\n"
    "command). From then on Codex prints \"hook: Stop Completed\" on standard error for each run.\n";

std::string eventList(Agent agent) {
    std::string list;
    for (const EventRegistration& registration : registeredEvents(agent)) {
        if (!list.empty()) list += ", ";
        list += registration.event;
    }
    return list;
}

void printError(const std::string& message) { std::fprintf(stderr, "agent-hook-setup: %s\n", message.c_str()); }

EditRequest requestFor(const Options& options, const std::string& path, const std::string& hookPath) {
    EditRequest request;
    request.path = path;
    request.dryRun = options.dryRun;
    if (options.command == Command::uninstall) {
        request.restoresBackup = [&hookPath](const OrderedJson& backup, const OrderedJson& changed) {
            return sameApartFromRegistration(backup, changed, hookPath);
        };
    }
    return request;
}

// Runs one edit per agent; `report` prints the outcome of a real (not dry) run.
template <class Change, class Report>
int forEachAgent(const Options& options, const std::string& hookPath, Change change, Report report) {
    int status = 0;
    for (const Agent agent : options.agents) {
        const std::string path = configurationPath(agent, options.project);
        if (path.empty()) {
            printError(std::string(agentTitle(agent)) + ": no home directory to find its configuration in");
            status = 1;
            continue;
        }
        std::string diff;
        std::string err;
        const EditOutcome outcome = editConfiguration(requestFor(options, path, hookPath), change(agent), &diff, &err);
        if (outcome == EditOutcome::failed) {
            printError(err);
            status = 1;
        } else if (options.dryRun) {
            if (outcome == EditOutcome::changed) {
                std::fputs(diff.c_str(), stdout);
            } else {
                std::printf("%s: %s needs no change\n", agentTitle(agent), path.c_str());
            }
        } else {
            report(agent, path, outcome == EditOutcome::changed);
        }
    }
    return status;
}

std::string backupNote(const std::string& path) {
    const std::string backup = path + ".agent-hook.bak";
    return platform::fileExists(backup) ? "; the previous file is " + backup : std::string();
}

// Grok reads hooks from several places: an entry of ours elsewhere runs too.
void warnAboutOtherEntries(Agent agent, const Options& options, const std::string& hookPath) {
    if (agent != Agent::grok || options.dryRun) return;
    for (const EntryHealth& health : agentStatus(agent, options.project, hookPath).entries) {
        const FoundEntry& entry = health.entry;
        if (entry.file.empty()) continue;
        std::string place = entry.file;
        if (entry.line) place.append(":").append(std::to_string(entry.line));
        std::printf("warning: Grok also runs agent-hook for %s from %s; remove that entry, or it runs twice\n",
                    entry.event.c_str(), place.c_str());
    }
}

}  // namespace

std::string defaultHookPath() {
    const std::string self = platform::runningExecutablePath();
    const std::size_t slash = self.rfind('/');
    if (slash == std::string::npos) return {};
    return self.substr(0, slash + 1) + "agent-hook";
}

int runInstall(const Options& options, const std::string& hookPath) {
    if (!platform::isExecutableFile(hookPath)) {
        printError("warning: " + hookPath + " is not an executable file; registering it all the same");
    }
    return forEachAgent(
        options, hookPath,
        [&](Agent agent) {
            return [agent, &hookPath](std::string& text, std::string* err) { return addRegistration(text, agent, hookPath, err); };
        },
        [&](Agent agent, const std::string& path, bool changed) {
            warnAboutOtherEntries(agent, options, hookPath);
            if (!changed) {
                std::printf("%s: agent-hook is already registered in %s; nothing changed\n", agentTitle(agent),
                            path.c_str());
                return;
            }
            std::printf("%s: agent-hook registered in %s (%s)%s\n", agentTitle(agent), path.c_str(),
                        eventList(agent).c_str(), backupNote(path).c_str());
            if (agent == Agent::codex) std::fputs(kCodexTrust, stdout);
            if (agent == Agent::grok && options.project) {
                std::puts("Grok loads a project's hook files only in folders you have trusted.");
            }
        });
}

int runUninstall(const Options& options, const std::string& hookPath) {
    return forEachAgent(
        options, hookPath,
        [&](Agent) { return [&hookPath](std::string& text, std::string* err) { return removeRegistration(text, hookPath, err); }; },
        [&](Agent agent, const std::string& path, bool changed) {
            if (!changed) {
                std::printf("%s: agent-hook is not registered in %s; nothing changed\n", agentTitle(agent),
                            path.c_str());
                return;
            }
            std::printf("%s: agent-hook removed from %s%s\n", agentTitle(agent), path.c_str(),
                        backupNote(path).c_str());
        });
}

}  // namespace AgentHook::Setup
