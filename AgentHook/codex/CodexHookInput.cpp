#include "codex/CodexHookInput.hpp"

namespace AgentHook::Codex {

std::optional<HookInput> decodeHookInput(std::string_view bytes, std::int64_t now) {
    const std::optional<text::Json> parsed = text::parseJson(bytes);
    if (!parsed || !parsed->is_object()) return std::nullopt;
    const text::Json& object = *parsed;
    using text::boolMember;
    using text::stringMember;

    HookInput input;
    input.sessionId = stringMember(object, "session_id").value_or("codex_" + std::to_string(now));
    input.transcriptPath = stringMember(object, "transcript_path");
    input.cwd = stringMember(object, "cwd").value_or(std::string());
    input.hookEventName = stringMember(object, "hook_event_name");
    input.model = stringMember(object, "model");
    input.turnId = stringMember(object, "turn_id");
    input.stopHookActive = boolMember(object, "stop_hook_active");
    input.lastAssistantMessage = stringMember(object, "last_assistant_message");
    input.prompt = stringMember(object, "prompt");
    input.source = stringMember(object, "source");
    input.toolName = stringMember(object, "tool_name");
    input.toolUseId = stringMember(object, "tool_use_id");
    if (const auto tool = object.find("tool_input"); tool != object.end()) input.toolInput = decodeCommandToolInput(*tool);
    return input;
}

}  // namespace AgentHook::Codex
