#include "claude/AlwaysAllow.hpp"

#include <algorithm>
#include <cerrno>

#include "platform/AtomicFile.hpp"
#include "platform/Lock.hpp"
#include "platform/Files.hpp"
#include "runtime/Logging.hpp"
#include "text/Quoting.hpp"
#include "runtime/Paths.hpp"
#include "text/Json.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {

// Hooks answered "always" at once each wait their turn to merge their rules:
// long enough for many writes of a large file, and the agent waits for
// nothing else meanwhile.
constexpr double kRulesLockSeconds = 30;

using text::Json;

namespace {

const std::string* nonEmptyValue(const std::map<std::string, std::string>& map, const char* key) {
    const auto found = map.find(key);
    return found != map.end() && !found->second.empty() ? &found->second : nullptr;
}

std::string joinPath(const std::string& directory, const char* component) {
    if (!directory.empty() && directory.back() == '/') return directory + component;
    return directory + "/" + component;
}

}  // namespace

std::string autoAcceptFilePath(const std::string& sessionId, const std::string& toolName) {
    return scratchPath(sessionId + "-autoaccept-" + toolName);
}

std::vector<std::string> extractAutoAcceptRules(const std::optional<std::vector<PermissionSuggestion>>& suggestions) {
    std::vector<std::string> rules;
    if (!suggestions) return rules;
    for (const PermissionSuggestion& suggestion : *suggestions) {
        if (!suggestion.rules) continue;
        for (const auto& map : *suggestion.rules) {
            if (const std::string* content = nonEmptyValue(map, "ruleContent")) rules.push_back(*content);
        }
    }
    return rules;
}

std::string mergedAutoAcceptText(const std::optional<std::string>& old, const std::string& added) {
    if (!old || old->empty()) return added;
    if (*old == "*" || added == "*") return "*";
    return *old + "\n" + added;
}

void writeAlwaysAllowFlag(const std::string& sessionId, const std::string& toolName,
                          const std::optional<std::vector<PermissionSuggestion>>& suggestions, bool isSetMode) {
    const std::string path = autoAcceptFilePath(sessionId, toolName);
    const std::vector<std::string> rules = isSetMode ? std::vector<std::string>{"*"} : extractAutoAcceptRules(suggestions);
    std::string added;
    for (std::size_t i = 0; i < rules.size(); ++i) {
        if (i > 0) added.push_back('\n');
        added += rules[i];
    }
    std::string error;
    bool written = false;
    {
        const platform::Lock lock{std::string(kScratchDirectory), kRulesLockSeconds};
        if (!lock.locked()) {
            log("Always-allow: cannot lock the rules of " + path + " (another hook holds them); rules not kept");
            return;
        }
        std::optional<std::string> old = platform::readFile(path);
        if (old && !text::isValidUtf8(*old)) old.reset();
        written = platform::writeFileAtomically(path, mergedAutoAcceptText(old, added), &error);
    }
    if (!written) {
        log("Always-allow: failed to write rules to " + path + ": " + error);
        return;
    }
    log("Always-allow: wrote rules to " + path + ": " + text::describeList(rules));
}

std::vector<std::string> buildSettingsAllowRules(const std::optional<std::vector<PermissionSuggestion>>& suggestions,
                                                 const std::string& toolName, bool isSetMode) {
    if (isSetMode) return {toolName};
    std::vector<std::string> rules;
    if (!suggestions) return rules;
    for (const PermissionSuggestion& suggestion : *suggestions) {
        if (!suggestion.rules) continue;
        for (const auto& map : *suggestion.rules) {
            const std::string* named = nonEmptyValue(map, "toolName");
            const std::string name = named ? *named : toolName;
            const std::string* content = nonEmptyValue(map, "ruleContent");
            rules.push_back(content ? name + "(" + *content + ")" : name);
        }
    }
    return rules;
}

SettingsMerge mergeAllowRules(std::string_view settings, const std::vector<std::string>& rules) {
    Json object = Json::object();
    if (!settings.empty()) {
        std::optional<Json> parsed = text::parseJsonKeepingNumbers(settings);
        if (!parsed || !parsed->is_object()) return {std::nullopt, "is not a JSON object"};
        object = std::move(*parsed);
    }
    Json& permissions = object["permissions"];
    if (permissions.is_null()) permissions = Json::object();
    if (!permissions.is_object()) return {std::nullopt, "has a \"permissions\" member that is not an object"};
    Json& allow = permissions["allow"];
    if (allow.is_null()) allow = Json::array();
    if (!allow.is_array()) return {std::nullopt, "has an \"allow\" member that is not an array"};
    for (const Json& entry : allow) {
        if (!entry.is_string()) return {std::nullopt, "has an \"allow\" entry that is not a text"};
    }
    for (const std::string& rule : rules) {
        if (std::find(allow.begin(), allow.end(), Json(rule)) == allow.end()) allow.push_back(rule);
    }
    std::optional<std::string> bytes = text::toPrettyJson(object);
    if (!bytes) return {std::nullopt, std::string(), true};
    return {std::move(bytes), std::string()};
}

namespace {

// Where the project's settings.local.json really is, inside the project's
// real folder; nothing (logged) when a link leads out of it, since a cloned
// repository can plant ".claude" or the file itself as a link to a user's
// file elsewhere. The call is allowed all the same.
std::optional<std::string> projectSettingsPath(const std::string& cwd) {
    const std::optional<std::string> project = platform::realPath(cwd);
    if (!project) {
        log("Always-allow: the project folder " + cwd + " cannot be found: " + platform::lastErrorDescription() +
            "; nothing written");
        return std::nullopt;
    }
    if (std::string problem; !platform::ensurePlainSubdirectory(*project, ".claude", &problem)) {
        log("Always-allow: " + problem + "; nothing written");
        return std::nullopt;
    }
    const std::string path = joinPath(*project, ".claude/settings.local.json");
    const std::optional<std::string> link = platform::linkTarget(path);
    if (!link) return path;
    const std::optional<std::string> real = platform::realPath(path);
    const std::string inside = *project == "/" ? "/" : *project + "/";
    if (!real || !real->starts_with(inside)) {
        log("Always-allow: " + path + " is a link to " + *link + ", " +
            (real ? "outside the project" : "which does not exist") + "; nothing written");
        return std::nullopt;
    }
    return real;
}

}  // namespace

void persistAllowRules(const std::string& cwd, const std::vector<std::string>& rules) {
    if (cwd.empty() || rules.empty()) {
        log("Always-allow: skipping settings.local.json persist (empty cwd or rules)");
        return;
    }
    const std::optional<std::string> target = projectSettingsPath(cwd);
    if (!target) return;
    const platform::Lock lock(target->substr(0, target->rfind('/')), kRulesLockSeconds);
    // Never written without the lock: another hook's rules would be lost.
    if (!lock.locked()) {
        log("Always-allow: cannot lock " + *target + " (another hook holds it); left as it was");
        return;
    }
    std::string settings;
    if (std::string why; !platform::readRegularFile(*target, &settings, &why) && errno != ENOENT) {
        log("Always-allow: cannot read " + *target + ": " + why + "; left as it was");
        return;
    }
    const SettingsMerge merge = mergeAllowRules(settings, rules);
    if (merge.unserializable) {
        log("Always-allow: failed to serialize settings.local.json");
        return;
    }
    if (!merge.bytes) {
        log("Always-allow: " + *target + " " + merge.problem + "; left as it was");
        return;
    }
    std::string error;
    if (!platform::writeFileAtomically(*target, *merge.bytes, &error, platform::AtomicFile::Mode::keepTarget)) {
        log("Always-allow: failed to write " + *target + ": " + error);
        return;
    }
    log("Always-allow: persisted " + text::describeList(rules) + " to " + *target);
}

}  // namespace AgentHook::Claude
