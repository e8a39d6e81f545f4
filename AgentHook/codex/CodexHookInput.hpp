// Codex CLI's hook event. Every member decodes leniently: one that is
// missing, null or of another type takes its default. Only input that is not
// a JSON object fails as a whole.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bridge/CommandPermissions.hpp"

namespace AgentHook::Codex {

using ToolInputData = CommandToolInput;

struct HookInput {
    std::string sessionId;
    std::optional<std::string> transcriptPath;
    std::string cwd;
    std::optional<std::string> hookEventName;
    std::optional<std::string> model;
    std::optional<std::string> turnId;
    std::optional<bool> stopHookActive;
    std::optional<std::string> lastAssistantMessage;
    std::optional<std::string> prompt;
    std::optional<std::string> source;
    std::optional<std::string> toolName;
    std::optional<std::string> toolUseId;
    std::optional<ToolInputData> toolInput;
};

// `now` is the Unix time used for a missing session id ("codex_" + seconds).
std::optional<HookInput> decodeHookInput(std::string_view bytes, std::int64_t now);

}  // namespace AgentHook::Codex
