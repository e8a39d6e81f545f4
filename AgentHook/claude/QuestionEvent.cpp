// AskUserQuestion: the questions go to the app before the tool runs, and the
// answers come back as a PreToolUse allow whose input carries them, so Claude
// Code shows no prompt of its own. In plan mode the current plan goes along.
#include "bridge/Replies.hpp"
#include "claude/ClaudeEvents.hpp"
#include "claude/PlanFiles.hpp"
#include "claude/Questions.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {

int handlePreAskUserQuestionToolUseEvent(const HookInput& input) {
    if (input.toolName != "AskUserQuestion" || !input.toolInput) return 0;
    std::optional<std::vector<ElicitationQuestion>> questions = input.toolInput->elicitationQuestions();
    if (!questions || questions->empty()) return 0;

    ElicitationData data{std::move(*questions), std::nullopt};
    if (input.permissionMode == "plan") {
        data.context = findMostRecentPlanContent(input.cwd, input.transcriptPath, false);
        if (data.context) {
            log("PreToolUse AskUserQuestion: found plan context (" +
                std::to_string(text::characterCount(*data.context)) + " chars)");
        }
    }
    std::optional<std::string> body = text::toCompactJson(toJson(data));
    if (!body) return 0;
    log("PreToolUse AskUserQuestion: " + std::to_string(data.questions.size()) + " question(s)");

    const WaitResult result =
        askVoxtrel(input, RequestStatus::question, data.questions.front().question, std::move(*body), Watch::nothing);
    switch (result.outcome) {
        case WaitResult::Outcome::withdrawn:
            return 0;
        case WaitResult::Outcome::unanswered:
            emitPreToolUseDecision(PreToolUseDecision::ask, std::nullopt);
            return 0;
        case WaitResult::Outcome::answered:
            break;
    }
    emitPreToolUseDecision(PreToolUseDecision::allow, answeredToolInput(data.questions, result.reply));
    return 0;
}

}  // namespace AgentHook::Claude
