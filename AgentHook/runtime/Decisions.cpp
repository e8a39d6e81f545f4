#include "runtime/Decisions.hpp"

#include "platform/Streams.hpp"
#include "runtime/Logging.hpp"
#include "text/Json.hpp"

namespace AgentHook {

std::optional<std::string> permissionDecisionJson(const PermissionResponse& response) {
    text::Json decision = text::Json::object();
    decision["behavior"] = response.behavior == PermissionResponse::Behavior::deny ? "deny" : "allow";
    decision["message"] = response.message.value_or(std::string());
    text::Json output = text::Json::object();
    output["hookSpecificOutput"] = {{"decision", decision}, {"hookEventName", "PermissionRequest"}};
    return text::toCompactJson(output);
}

std::optional<std::string> stopHookDecisionJson(std::string_view reason) {
    text::Json output = text::Json::object();
    output["decision"] = "block";
    output["reason"] = std::string(reason);
    return text::toCompactJson(output);
}

void emitPermissionDecision(const PermissionResponse& response) {
    if (const auto bytes = permissionDecisionJson(response)) platform::writeStandardOutput(*bytes);
}

void emitStopHookDecision(std::string_view reason) {
    log("Stop: relaying voice response via decision=block reason");
    if (const auto bytes = stopHookDecisionJson(reason)) platform::writeStandardOutput(*bytes);
}

}  // namespace AgentHook
