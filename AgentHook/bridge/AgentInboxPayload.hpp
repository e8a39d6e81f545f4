// The app's file protocol: the inbox payload record with its JSON form, the
// agent identifiers, and the request status words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AgentHook {

enum class Agent { claude, codex, grok };

// "claude-code", "codex" or "grok".
std::string_view agentRawValue(Agent agent);

namespace RequestStatus {
inline constexpr std::string_view permission = "permission";
inline constexpr std::string_view question = "question";
inline constexpr std::string_view completed = "completed";
}  // namespace RequestStatus

struct AgentInboxPayload {
    enum class Kind { update, dismiss };
    Kind kind = Kind::update;
    std::optional<std::string> sessionId;
    std::optional<std::string> requestId;
    std::optional<std::string> agent;
    std::optional<std::string> status;
    std::optional<std::string> summary;
    std::optional<std::string> message;
    std::optional<std::string> messageFile;
    std::optional<std::string> responseFile;
    std::optional<std::string> cwd;
    std::optional<std::string> project;
    std::optional<std::string> branch;
    std::optional<std::string> title;
    std::optional<std::int32_t> hookPid;

    bool operator==(const AgentInboxPayload&) const = default;
};

// Compact JSON with sorted keys; absent fields left out. Nothing when a text
// is not valid UTF-8.
std::optional<std::string> encodeInboxPayload(const AgentInboxPayload& payload);

// "kind" is required and must be "update" or "dismiss"; other members are read
// when present with the right type, and unknown members are ignored.
std::optional<AgentInboxPayload> decodeInboxPayload(std::string_view bytes);

}  // namespace AgentHook
