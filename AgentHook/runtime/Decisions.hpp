// The decisions all adapters write to standard output: compact JSON, sorted
// keys, slashes as "\/", no trailing line feed, one write. Both operations
// only write; the caller exits right after.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace AgentHook {

struct PermissionResponse {
    enum class Behavior { allow, deny };
    Behavior behavior = Behavior::allow;
    std::optional<std::string> message;
};

// The bytes of each decision; nothing when a text cannot be written as JSON.
std::optional<std::string> permissionDecisionJson(const PermissionResponse& response);
std::optional<std::string> stopHookDecisionJson(std::string_view reason);

// Writes a decision's bytes to standard output in one write; nothing for
// none. A write that fails (the agent closed its end) is logged.
void emitDecision(const std::optional<std::string>& bytes);

void emitPermissionDecision(const PermissionResponse& response);
void emitStopHookDecision(std::string_view reason);

}  // namespace AgentHook
