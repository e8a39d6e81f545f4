// The pieces of a Claude Code permission request that need no I/O: what the
// app is shown (summary, details, the four choices), which target the stored
// rules are matched against, and what the user's answer means.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bridge/CommandPermissions.hpp"
#include "claude/ClaudeHookInput.hpp"
#include "runtime/Decisions.hpp"
#include "text/Json.hpp"

namespace AgentHook::Claude {

using RuleMaps = std::vector<std::map<std::string, std::string>>;
using Suggestions = std::optional<std::vector<PermissionSuggestion>>;

PermissionDetails buildPermissionDetails(const std::string& toolName, const std::optional<ToolInputData>& toolInput);

// "-" or "+" before each line of the text's first 500 characters.
std::string editBlock(const std::string& text, char marker);

// A short display form of a suggestion's rules ("src/**" for
// "//Users/me/proj/src/**"); nothing for no rules.
std::optional<std::string> permissionRuleTarget(const std::optional<RuleMaps>& rules);

// The four choices: allow, always (by mode or by rules), bypass, deny.
text::Json permissionPayloadSuggestions(const Suggestions& suggestions, const std::string& toolName);

// What stored rules are matched against: the file path, else the command,
// else the URL, else the query; "" when there is none.
std::string autoAcceptTarget(const std::optional<ToolInputData>& toolInput);

bool hasSetModeSuggestion(const Suggestions& suggestions);

// Turns a reply into the decision, storing "always" rules and the bypass.
PermissionResponse resolvePermissionDecisionFromResponse(const std::string& reply, const std::string& sessionId,
                                                         const std::string& toolName,
                                                         const Suggestions& permissionSuggestions,
                                                         const std::string& cwd);

}  // namespace AgentHook::Claude
