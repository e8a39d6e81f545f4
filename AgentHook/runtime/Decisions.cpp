#include "runtime/Decisions.hpp"

#include "platform/Files.hpp"
#include "platform/Streams.hpp"
#include "runtime/Logging.hpp"
#include "text/Json.hpp"

namespace AgentHook {

// Written out directly (keys in sorted order) rather than through a tree: a
// permission allowed by a stored rule pays for nothing else at start-up.
std::optional<std::string> permissionDecisionJson(const PermissionResponse& response) {
    std::string out = R"({"hookSpecificOutput":{"decision":{"behavior":)";
    out += response.behavior == PermissionResponse::Behavior::deny ? R"("deny")" : R"("allow")";
    out += R"(,"message":)";
    if (!text::appendJsonString(out, response.message.value_or(std::string()))) return std::nullopt;
    out += R"(},"hookEventName":"PermissionRequest"}})";
    return out;
}

std::optional<std::string> stopHookDecisionJson(std::string_view reason) {
    std::string out = R"({"decision":"block","reason":)";
    if (!text::appendJsonString(out, reason)) return std::nullopt;
    out += '}';
    return out;
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
