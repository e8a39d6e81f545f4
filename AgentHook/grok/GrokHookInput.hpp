// Grok CLI's hook event, camelCase, with the environment as a second source:
// GROK_HOOK_EVENT wins over the JSON name; GROK_SESSION_ID and
// GROK_WORKSPACE_ROOT stand in for a missing id and directory. A variable
// counts only when set and not empty. Members decode leniently, as Codex's.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "bridge/CommandPermissions.hpp"

namespace AgentHook::Grok {

using ToolInputData = CommandToolInput;

struct HookInput {
    std::string sessionId;
    std::string cwd;
    std::optional<std::string> hookEventName;
    std::optional<std::string> reason;
    std::optional<std::string> promptId;
    std::optional<std::string> transcriptPath;
    std::optional<bool> stopHookActive;
    std::optional<std::string> lastAssistantMessage;
    std::optional<std::string> prompt;
    std::optional<std::string> source;
    std::optional<std::string> toolName;
    std::optional<ToolInputData> toolInput;
    std::optional<std::string> permissionMode;
};

// A variable's value when it is set and not empty.
using Environment = std::function<std::optional<std::string>(const char* name)>;

// Empty input is taken as an empty object. `now` gives a missing session id
// ("grok_" + seconds).
std::optional<HookInput> decodeHookInput(std::string_view bytes, const Environment& environment, std::int64_t now);

}  // namespace AgentHook::Grok
