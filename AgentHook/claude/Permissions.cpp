#include "claude/Permissions.hpp"

#include "bridge/Replies.hpp"
#include "claude/AlwaysAllow.hpp"
#include "runtime/Bypass.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {

namespace {

constexpr std::size_t kEditBlockCharacters = 500;

std::string orEmpty(const std::optional<ToolInputData>& input, std::optional<std::string> ToolInputData::*field) {
    if (!input || !(*input.*field)) return std::string();
    return *(*input.*field);
}

bool isPresent(const std::optional<ToolInputData>& input, std::optional<std::string> ToolInputData::*field) {
    return input && (*input.*field).has_value();
}

// "pattern", with " in " + path when there is one; "" without a pattern.
std::string searchDetails(const std::optional<ToolInputData>& input) {
    if (!isPresent(input, &ToolInputData::pattern)) return std::string();
    std::string details = *input->pattern;
    if (input->path) details += " in " + *input->path;
    return details;
}

}  // namespace

std::string editBlock(const std::string& text, char marker) {
    const std::string_view prefix = text::characterPrefix(text, kEditBlockCharacters);
    std::string block;
    block.reserve(prefix.size() + 16);
    block.push_back(marker);
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        // A carriage return and line feed are one character, not a line break.
        if (prefix[i] == '\n' && (i == 0 || prefix[i - 1] != '\r')) {
            block.push_back('\n');
            block.push_back(marker);
        } else {
            block.push_back(prefix[i]);
        }
    }
    return block;
}

PermissionDetails buildPermissionDetails(const std::string& toolName, const std::optional<ToolInputData>& input) {
    PermissionDetails result{"Permission needed for " + toolName, std::string()};
    // The summary for a tool whose subject is the field; the default without it.
    auto about = [&](std::optional<std::string> ToolInputData::*field, const char* summary) {
        if (!isPresent(input, field)) return;
        result.summary = summary;
        result.details = *(*input.*field);
    };
    if (toolName == "Bash") {
        about(&ToolInputData::command, "Run command?");
    } else if (toolName == "Edit") {
        about(&ToolInputData::filePath, "Edit file?");
        if (isPresent(input, &ToolInputData::filePath) && input->oldString && input->newString) {
            result.details += "\n\n" + editBlock(*input->oldString, '-') + "\n" + editBlock(*input->newString, '+');
        }
    } else if (toolName == "Write") {
        about(&ToolInputData::filePath, "Write file?");
    } else if (toolName == "Read") {
        about(&ToolInputData::filePath, "Read file?");
    } else if (toolName == "Glob") {
        result = {"Search for files?", searchDetails(input)};
    } else if (toolName == "Grep") {
        result = {"Search file contents?", searchDetails(input)};
    } else if (toolName == "WebFetch") {
        result = {"Fetch URL?", orEmpty(input, &ToolInputData::url)};
    } else if (toolName == "WebSearch") {
        result = {"Web search?", orEmpty(input, &ToolInputData::query)};
    } else {
        result.details = toolName;
        for (auto field : {&ToolInputData::filePath, &ToolInputData::command, &ToolInputData::pattern}) {
            if (isPresent(input, field)) {
                result.details = *(*input.*field);
                break;
            }
        }
    }
    return result;
}

std::optional<std::string> permissionRuleTarget(const std::optional<RuleMaps>& rules) {
    if (!rules) return std::nullopt;
    for (const auto& map : *rules) {
        auto nonEmpty = [&](const char* key) -> const std::string* {
            const auto found = map.find(key);
            return found != map.end() && !found->second.empty() ? &found->second : nullptr;
        };
        if (const std::string* content = nonEmpty("ruleContent")) {
            std::string_view s = *content;
            if (s.starts_with("//")) s.remove_prefix(1);
            std::vector<std::string_view> pieces;
            for (std::size_t start = 0; start <= s.size();) {
                const std::size_t slash = std::min(s.find('/', start), s.size());
                if (slash > start) pieces.push_back(s.substr(start, slash - start));
                start = slash + 1;
            }
            if (pieces.empty()) return std::string(s);
            if (pieces.size() == 1) return std::string(pieces[0]);
            return std::string(pieces[pieces.size() - 2]) + "/" + std::string(pieces.back());
        }
        if (const std::string* value = nonEmpty("value")) return *value;
        if (const std::string* path = nonEmpty("path")) return *path;
        for (const auto& [key, value] : map) {
            if (!value.empty()) return value;
        }
    }
    return std::nullopt;
}

text::Json permissionPayloadSuggestions(const Suggestions& suggestions, const std::string& toolName) {
    auto choice = [&](std::string label, const char* behavior) {
        return text::Json{{"label", std::move(label)}, {"behavior", behavior}, {"tool", toolName}};
    };
    text::Json always = choice("Always allow " + toolName, "always");
    always["setMode"] = true;
    for (const PermissionSuggestion& suggestion : suggestions.value_or(std::vector<PermissionSuggestion>{})) {
        if (suggestion.type == "setMode") {
            always = choice("Allow all " + toolName + " this session", "always");
            always["setMode"] = true;
            break;
        }
        if (suggestion.behavior && text::lowercased(*suggestion.behavior) == "allow" && suggestion.rules &&
            !suggestion.rules->empty()) {
            const std::optional<std::string> target = permissionRuleTarget(suggestion.rules);
            always = choice(target ? "Always allow in " + *target : "Always allow", "always");
            text::Json rules = text::Json::array();
            for (const auto& map : *suggestion.rules) rules.push_back(text::Json(map));
            always["rules"] = std::move(rules);
            break;
        }
    }
    return text::Json::array({choice("Yes", "allow"), std::move(always),
                              choice("Bypass permissions for this session", "bypass-perms"), choice("No", "deny")});
}

std::string autoAcceptTarget(const std::optional<ToolInputData>& toolInput) {
    for (auto field : {&ToolInputData::filePath, &ToolInputData::command, &ToolInputData::url, &ToolInputData::query}) {
        if (isPresent(toolInput, field)) return *(*toolInput.*field);
    }
    return std::string();
}

bool hasSetModeSuggestion(const Suggestions& suggestions) {
    if (!suggestions) return false;
    for (const PermissionSuggestion& suggestion : *suggestions) {
        if (suggestion.type == "setMode") return true;
    }
    return false;
}

PermissionResponse resolvePermissionDecisionFromResponse(const std::string& reply, const std::string& sessionId,
                                                         const std::string& toolName,
                                                         const Suggestions& permissionSuggestions,
                                                         const std::string& cwd) {
    using Behavior = PermissionResponse::Behavior;
    PermissionReply read = readPermissionReply(reply);
    switch (read.word) {
        case PermissionWord::allow:
            return {Behavior::allow, std::nullopt};
        case PermissionWord::always: {
            const bool setMode = hasSetModeSuggestion(permissionSuggestions);
            writeAlwaysAllowFlag(sessionId, toolName, permissionSuggestions, setMode);
            persistAllowRules(cwd, buildSettingsAllowRules(permissionSuggestions, toolName, setMode));
            return {Behavior::allow, std::nullopt};
        }
        case PermissionWord::bypass:
            enableBypass(sessionId);
            log("Bypass-perms mode enabled (word-match) for session=" + sessionId);
            return {Behavior::allow, std::nullopt};
        case PermissionWord::deny:
            return {Behavior::deny, std::nullopt};
        case PermissionWord::other:
            break;
    }
    return {Behavior::deny, std::move(read.normalized)};
}

}  // namespace AgentHook::Claude
