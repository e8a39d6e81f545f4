// ExitPlanMode: the plan is put to the user as a one-question review. An
// approval lets Claude start implementing; any other answer keeps it in plan
// mode with the user's words as the reason.
#include "bridge/Replies.hpp"
#include "claude/ClaudeEvents.hpp"
#include "claude/PlanFiles.hpp"
#include "claude/Questions.hpp"
#include "runtime/Decisions.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {

int handleExitPlanModePermission(const HookInput& input) {
    log("ExitPlanMode: looking for plan content");
    const ElicitationData review = planReview(findMostRecentPlanContent(input.cwd, input.transcriptPath, true));
    if (review.context) {
        log("ExitPlanMode: found plan (" + std::to_string(text::characterCount(*review.context)) + " chars)");
    } else {
        log("ExitPlanMode: no plan file found");
    }
    std::optional<std::string> body = text::toCompactJson(toJson(review));
    if (!body) {
        log("ExitPlanMode: failed to encode elicitation JSON");
        return 0;
    }

    const WaitResult result = askVoxtrel(input, RequestStatus::question, "Review implementation plan", std::move(*body),
                                         Watch::toolCall);
    switch (result.outcome) {
        case WaitResult::Outcome::withdrawn:
            return 0;
        case WaitResult::Outcome::unanswered:
            log("ExitPlanMode: no response, yielding to TUI");
            return 0;
        case WaitResult::Outcome::answered:
            break;
    }
    emitPermissionDecision(resolveExitPlanModeResponse(result.reply));
    return 0;
}

}  // namespace AgentHook::Claude
