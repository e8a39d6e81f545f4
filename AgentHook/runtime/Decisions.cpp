#include "runtime/Decisions.hpp"

#include "platform/Files.hpp"
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

void emitDecision(const std::optional<std::string>& bytes) {
    if (bytes && !platform::writeStandardOutput(*bytes)) {
        log("Failed to write the decision to standard output: " + platform::lastErrorDescription());
    }
}

void emitPermissionDecision(const PermissionResponse& response) { emitDecision(permissionDecisionJson(response)); }

void emitStopHookDecision(std::string_view reason) {
    log("Stop: relaying voice response via decision=block reason");
    emitDecision(stopHookDecisionJson(reason));
}

}  // namespace AgentHook
