// A permission request put to the app: one flow for every agent (bypass,
// ask, outcome, resolve), and the request as Codex and Grok put it: three
// choices (allow, bypass for the session, deny), a summary and details from
// the tool's own row, and the answer read word for word. Claude extends the
// flow with its stored rules, its four choices and "always".
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "bridge/AgentInboxPayload.hpp"
#include "bridge/Asking.hpp"
#include "bridge/Polling.hpp"
#include "runtime/Bypass.hpp"
#include "runtime/Decisions.hpp"
#include "text/Json.hpp"

namespace AgentHook {

// The "tool_input" of a Codex or Grok event: five optional texts. A present
// value that is not a text fails the whole record.
struct CommandToolInput {
    std::optional<std::string> command;
    std::optional<std::string> description;
    std::optional<std::string> url;
    std::optional<std::string> query;
    std::optional<std::string> path;
};

std::optional<CommandToolInput> decodeCommandToolInput(const text::Json& value);

struct PermissionDetails {
    std::string summary;
    std::string details;
};

// A tool's own row: the tools it names, its summary, and whether its details
// are the command ("" without one) or the path (the tool name without one).
struct ToolRow {
    std::initializer_list<std::string_view> tools;
    const char* summary;
    enum class Details { command, path } details;
};

// A non-empty description names the call; else the tool's row; else
// "Permission needed for" the tool, with the command or the URL.
PermissionDetails describeToolCall(const std::string& toolName, const std::optional<CommandToolInput>& input,
                                   std::initializer_list<ToolRow> rows);

// {"toolName","summary","details","suggestions":[Yes, Bypass..., No]}, compact.
std::string commandPermissionBody(const std::string& toolName, const PermissionDetails& details);

// "allow", "bypass" (which switches the session's bypass on and logs it with
// `agentWord`), "deny", or a refusal with the reply exactly as received.
PermissionResponse resolveCommandPermissionReply(const std::string& reply, const std::string& sessionId,
                                                 std::string_view agentWord);

// Every permission request, whatever the agent: the session's bypass allows
// at once, then `allowedWithoutAsking` (Claude's stored rules), else the app
// is asked and its reply resolved by the agent's own `resolve`. Nothing when
// the request was withdrawn or the app gave no answer: the agent then asks in
// its own terminal.
template <class AllowedWithoutAsking, class Ask, class Resolve>
std::optional<PermissionResponse> decidePermission(const std::string& sessionId, const std::string& toolName,
                                                   AllowedWithoutAsking allowedWithoutAsking, Ask ask,
                                                   Resolve resolve) {
    if (isBypassActive(sessionId, toolName) || allowedWithoutAsking()) {
        return PermissionResponse{PermissionResponse::Behavior::allow, std::nullopt};
    }
    const WaitResult result = ask();
    switch (result.outcome) {
        case WaitResult::Outcome::withdrawn:
            return std::nullopt;
        case WaitResult::Outcome::unanswered:
            logPermissionDismissed(sessionId);
            return std::nullopt;
        case WaitResult::Outcome::answered:
            break;
    }
    return resolve(result.reply);
}

// The three-choice request of Codex and Grok.
std::optional<PermissionResponse> askCommandPermission(Agent agent, const std::string& sessionId,
                                                       const std::string& cwd, const std::string& toolName,
                                                       const PermissionDetails& details);

}  // namespace AgentHook
