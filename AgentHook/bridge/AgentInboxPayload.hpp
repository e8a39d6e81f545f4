// The app's file protocol: the inbox payload record with its JSON form, the
// agent identifiers, and the request status words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AgentHook {

enum class Agent { claude, codex, grok };

// The one table of the agents: the word that names an agent on the command
// line, its value in the app's payloads, and its name for people. The entry
// point (entry/Dispatch.cpp) and agent-hook-setup read it.
struct AgentNames {
    Agent agent;
    std::string_view commandWord;   // "claude"
    std::string_view payloadValue;  // "claude-code"
    std::string_view title;         // "Claude Code"
};
inline constexpr AgentNames kAgents[] = {
    {Agent::claude, "claude", "claude-code", "Claude Code"},
    {Agent::codex, "codex", "codex", "Codex CLI"},
    {Agent::grok, "grok", "grok", "Grok CLI"},
};

// The agent a command word names (compared exactly), if any.
std::optional<Agent> agentForCommandWord(std::string_view word);
const AgentNames& namesOf(Agent agent);

// "claude-code", "codex" or "grok".
inline std::string_view agentRawValue(Agent agent) { return namesOf(agent).payloadValue; }

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
