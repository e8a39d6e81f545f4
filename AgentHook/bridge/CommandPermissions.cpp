#include "bridge/CommandPermissions.hpp"

#include <algorithm>

#include "bridge/Asking.hpp"
#include "bridge/Replies.hpp"
#include "runtime/Bypass.hpp"
#include "runtime/Logging.hpp"

namespace AgentHook {

std::optional<CommandToolInput> decodeCommandToolInput(const text::Json& value) {
    if (!value.is_object()) return std::nullopt;
    CommandToolInput input;
    const bool valid = text::readOptional(value, "command", input.command) &&
                       text::readOptional(value, "description", input.description) &&
                       text::readOptional(value, "url", input.url) && text::readOptional(value, "query", input.query) &&
                       text::readOptional(value, "path", input.path);
    if (!valid) return std::nullopt;
    return input;
}

PermissionDetails describeToolCall(const std::string& toolName, const std::optional<CommandToolInput>& input,
                                   std::initializer_list<ToolRow> rows) {
    // The first present of the fields, else the fallback.
    auto firstOf = [&](std::initializer_list<std::optional<std::string> CommandToolInput::*> fields,
                       const std::string& fallback) {
        if (input) {
            for (const auto field : fields) {
                if (*input.*field) return *(*input.*field);
            }
        }
        return fallback;
    };
    using Input = CommandToolInput;
    if (input && input->description && !input->description->empty()) {
        return {*input->description, firstOf({&Input::command, &Input::url, &Input::path}, toolName)};
    }
    for (const ToolRow& row : rows) {
        if (std::find(row.tools.begin(), row.tools.end(), toolName) == row.tools.end()) continue;
        if (row.details == ToolRow::Details::command) return {row.summary, firstOf({&Input::command}, "")};
        return {row.summary, firstOf({&Input::path}, toolName)};
    }
    return {"Permission needed for " + toolName, firstOf({&Input::command, &Input::url}, toolName)};
}

std::string commandPermissionBody(const std::string& toolName, const PermissionDetails& details) {
    auto choice = [&](const char* label, const char* behavior) {
        return text::Json{{"label", label}, {"behavior", behavior}, {"tool", toolName}};
    };
    const text::Json body = {{"toolName", toolName},
                             {"summary", details.summary},
                             {"details", details.details},
                             {"suggestions", text::Json::array({choice("Yes", "allow"),
                                                                choice("Bypass permissions for this session", "bypass-perms"),
                                                                choice("No", "deny")})}};
    return text::toCompactJson(body).value_or("{}");
}

PermissionResponse resolveCommandPermissionReply(const std::string& reply, const std::string& sessionId,
                                                 std::string_view agentWord) {
    using Behavior = PermissionResponse::Behavior;
    switch (readPermissionReply(reply).word) {
        case PermissionWord::allow:
            return {Behavior::allow, std::nullopt};
        case PermissionWord::bypass:
            enableBypass(sessionId);
            log("Bypass-perms mode enabled for " + std::string(agentWord) + " session=" + sessionId);
            return {Behavior::allow, std::nullopt};
        case PermissionWord::deny:
            return {Behavior::deny, std::nullopt};
        case PermissionWord::always:
        case PermissionWord::other:
            break;
    }
    return {Behavior::deny, reply};
}

std::optional<PermissionResponse> askCommandPermission(Agent agent, const std::string& sessionId,
                                                       const std::string& cwd, const std::string& toolName,
                                                       const PermissionDetails& details) {
    const auto ask = [&] {
        return askApp(AppRequest{.agent = agent,
                                 .status = std::string(RequestStatus::permission),
                                 .sessionId = sessionId,
                                 .cwd = cwd,
                                 .summary = details.summary,
                                 .fullMessage = commandPermissionBody(toolName, details)});
    };
    const auto resolve = [&](const std::string& reply) {
        return resolveCommandPermissionReply(reply, sessionId, agentRawValue(agent));
    };
    return decidePermission(sessionId, toolName, [] { return false; }, ask, resolve);
}

}  // namespace AgentHook
