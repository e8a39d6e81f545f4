// A Claude Code permission request: allowed at once by the session bypass or
// a stored rule, else put to the app with four choices; no answer leaves the
// decision to Claude Code's own prompt.
#include "bridge/Asking.hpp"
#include "bridge/CommandPermissions.hpp"
#include "bridge/Replies.hpp"
#include "claude/AlwaysAllow.hpp"
#include "claude/ClaudeEvents.hpp"
#include "claude/Permissions.hpp"
#include "claude/TranscriptFile.hpp"
#include "platform/Files.hpp"
#include "runtime/Bypass.hpp"
#include "runtime/Decisions.hpp"
#include "runtime/AutoAcceptRules.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {

namespace {

// The session's stored rules for the tool, one per non-empty line, untrimmed.
std::optional<std::vector<std::string>> storedRules(const std::string& sessionId, const std::string& toolName) {
    const std::optional<std::string> contents = platform::readFile(autoAcceptFilePath(sessionId, toolName));
    if (!contents || !text::isValidUtf8(*contents)) return std::nullopt;
    std::vector<std::string> rules;
    std::size_t start = 0;
    while (start <= contents->size()) {
        const std::size_t end = std::min(contents->find('\n', start), contents->size());
        if (end > start) rules.emplace_back(*contents, start, end - start);
        start = end + 1;
    }
    return rules;
}

// `pass` receives the transcript pass made for the context, for the title lookup.
std::string requestBody(const HookInput& input, const PermissionDetails& details,
                        std::optional<TranscriptPass>& pass) {
    text::Json body = {{"toolName", input.toolName},
                       {"summary", details.summary},
                       {"details", details.details},
                       {"suggestions", permissionPayloadSuggestions(input.permissionSuggestions, input.toolName)}};
    if (input.transcriptPath) {
        const std::optional<std::string> context = extractLastAssistantMessage(*input.transcriptPath, {}, &pass);
        if (context && !context->empty()) body["context"] = *context;
    }
    return text::toCompactJson(body).value_or("{}");
}

}  // namespace

int handlePermissionRequestEvent(const HookInput& input) {
    const auto allowedByStoredRule = [&] {
        const auto rules = storedRules(input.sessionId, input.toolName);
        if (!rules) return false;
        const std::string target = autoAcceptTarget(input.toolInput);
        if (!matchesAutoAcceptRules(*rules, target, input.toolName)) return false;
        log("Auto-accept matched for " + input.toolName + " target=" + target + " session=" + input.sessionId);
        return true;
    };
    const auto ask = [&] {
        PermissionDetails details = buildPermissionDetails(input.toolName, input.toolInput);
        std::optional<TranscriptPass> pass;
        std::string body = requestBody(input, details, pass);
        return askVoxtrel(input, RequestStatus::permission, std::move(details.summary), std::move(body),
                          Watch::toolCall, pass);
    };
    const auto resolve = [&](const std::string& reply) {
        return resolvePermissionDecisionFromResponse(reply, input.sessionId, input.toolName,
                                                     input.permissionSuggestions, input.cwd);
    };
    if (const auto decision = decidePermission(input.sessionId, input.toolName, allowedByStoredRule, ask, resolve)) {
        emitPermissionDecision(*decision);
    }
    return 0;
}

}  // namespace AgentHook::Claude
