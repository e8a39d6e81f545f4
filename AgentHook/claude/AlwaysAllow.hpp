// Remembering an "always" answer: for the session, in the auto-accept file of
// the tool in the scratch directory; for the project, in the "permissions" →
// "allow" list of Claude Code's .claude/settings.local.json.
//
// The settings file belongs to the user. It is only ever changed by adding
// texts to that list: a file that does not parse as a JSON object, or whose
// "permissions" or "allow" has another shape, is left byte for byte as it was
// (one log line), and every other member comes back with the value it had,
// numbers written as they were read. Each read-modify-write of either file
// holds an advisory lock on its directory, so that two hooks answering at the
// same moment keep each other's rules. Nothing here fails its caller: every
// failure is logged and the request is allowed all the same.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "claude/ClaudeHookInput.hpp"

namespace AgentHook::Claude {

std::string autoAcceptFilePath(const std::string& sessionId, const std::string& toolName);

// Every non-empty "ruleContent" of the suggestions' rules, in order.
std::vector<std::string> extractAutoAcceptRules(const std::optional<std::vector<PermissionSuggestion>>& suggestions);

// Creates or extends the auto-accept file: "*" for a mode switch, else the
// suggested rule contents. Once the file holds "*" it stays "*".
void writeAlwaysAllowFlag(const std::string& sessionId, const std::string& toolName,
                          const std::optional<std::vector<PermissionSuggestion>>& suggestions, bool isSetMode);

// The file's new contents given its old ones (nothing when it is missing or unreadable).
std::string mergedAutoAcceptText(const std::optional<std::string>& old, const std::string& added);

// "Bash(npm test:*)" for a rule, the bare tool name for a mode switch.
std::vector<std::string> buildSettingsAllowRules(const std::optional<std::vector<PermissionSuggestion>>& suggestions,
                                                 const std::string& toolName, bool isSetMode);

void persistAllowRules(const std::string& cwd, const std::vector<std::string>& rules);

// The settings file's new bytes with `rules` added, or why it must stay as it is.
struct SettingsMerge {
    std::optional<std::string> bytes;
    std::string problem;           // the file's fault, for the log line
    bool unserializable = false;   // ours: a text could not be written
};
SettingsMerge mergeAllowRules(std::string_view settings, const std::vector<std::string>& rules);

}  // namespace AgentHook::Claude
