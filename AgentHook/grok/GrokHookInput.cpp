#include "grok/GrokHookInput.hpp"

namespace AgentHook::Grok {

std::optional<HookInput> decodeHookInput(std::string_view bytes, const Environment& environment, std::int64_t now) {
    const std::optional<text::Json> parsed = text::parseJson(bytes.empty() ? std::string_view("{}") : bytes);
    if (!parsed || !parsed->is_object()) return std::nullopt;
    const text::Json& object = *parsed;
    using text::boolMember;
    using text::stringMember;
    auto firstOf = [](std::optional<std::string> a, std::optional<std::string> b) { return a ? a : b; };

    HookInput input;
    input.hookEventName = firstOf(environment("GROK_HOOK_EVENT"), stringMember(object, "hookEventName"));
    input.sessionId = firstOf(stringMember(object, "sessionId"), environment("GROK_SESSION_ID"))
                          .value_or("grok_" + std::to_string(now));
    input.cwd = firstOf(firstOf(stringMember(object, "cwd"), stringMember(object, "workspaceRoot")),
                        environment("GROK_WORKSPACE_ROOT"))
                    .value_or(std::string());
    input.reason = stringMember(object, "reason");
    input.promptId = stringMember(object, "promptId");
    input.transcriptPath = stringMember(object, "transcriptPath");
    input.stopHookActive = boolMember(object, "stopHookActive");
    input.lastAssistantMessage = stringMember(object, "lastAssistantMessage");
    input.prompt = stringMember(object, "prompt");
    input.source = stringMember(object, "source");
    input.toolName = stringMember(object, "toolName");
    if (const auto tool = object.find("toolInput"); tool != object.end()) input.toolInput = decodeCommandToolInput(*tool);
    input.permissionMode = stringMember(object, "permissionMode");
    return input;
}

}  // namespace AgentHook::Grok
