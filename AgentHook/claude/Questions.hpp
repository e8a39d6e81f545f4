// Questions put to the user through the app (AskUserQuestion and the plan
// review) and the PreToolUse output that carries the answers back: the
// request body, the two reply forms, and the decisions they give.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "claude/ClaudeHookInput.hpp"
#include "runtime/Decisions.hpp"
#include "text/Json.hpp"

namespace AgentHook::Claude {

struct ElicitationData {
    std::vector<ElicitationQuestion> questions;
    std::optional<std::string> context;
};

text::Json toJson(const ElicitationData& data);

enum class PreToolUseDecision { allow, ask };

// {"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":...}},
// with "updatedInput" for an allow that carries one.
std::optional<std::string> preToolUseDecisionJson(PreToolUseDecision decision,
                                                  const std::optional<text::Json>& updatedInput);
void emitPreToolUseDecision(PreToolUseDecision decision, const std::optional<text::Json>& updatedInput);

// The tool input that answers the questions: {"answers": {question: answer},
// "questions": [...]}. A reply {"answers": [[labels], ...]} answers the
// questions in order (several labels joined by ", "); any other reply is the
// answer to the first question.
text::Json answeredToolInput(const std::vector<ElicitationQuestion>& questions, std::string_view reply);

// The one-question review of a plan, with the plan as context when there is one.
ElicitationData planReview(const std::optional<std::string>& plan);

// The first answer of {"answers": [[answer]]}: "allow" approves, "deny"
// refuses, other words refuse with themselves as the reason; a reply of
// another shape refuses without a reason.
PermissionResponse resolveExitPlanModeResponse(std::string_view reply);

}  // namespace AgentHook::Claude
