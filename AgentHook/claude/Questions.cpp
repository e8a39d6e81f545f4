#include "claude/Questions.hpp"

#include "text/Utf8.hpp"

namespace AgentHook::Claude {

using text::Json;

namespace {

// The "answers" of a reply when it is an array of arrays of texts.
std::optional<Json> answerLists(std::string_view reply) {
    const std::optional<Json> parsed = text::parseJson(reply);
    if (!parsed || !parsed->is_object() || parsed->empty()) return std::nullopt;
    const auto answers = parsed->find("answers");
    if (answers == parsed->end() || !answers->is_array()) return std::nullopt;
    for (const Json& list : *answers) {
        if (!list.is_array()) return std::nullopt;
        for (const Json& answer : list) {
            if (!answer.is_string()) return std::nullopt;
        }
    }
    return *answers;
}

}  // namespace

Json toJson(const ElicitationData& data) {
    Json questions = Json::array();
    for (const ElicitationQuestion& question : data.questions) questions.push_back(toJson(question));
    Json object = {{"questions", std::move(questions)}};
    if (data.context) object["context"] = *data.context;
    return object;
}

std::optional<std::string> preToolUseDecisionJson(PreToolUseDecision decision,
                                                  const std::optional<Json>& updatedInput) {
    Json inner = {{"hookEventName", "PreToolUse"},
                  {"permissionDecision", decision == PreToolUseDecision::allow ? "allow" : "ask"}};
    if (decision == PreToolUseDecision::allow && updatedInput) inner["updatedInput"] = *updatedInput;
    return text::toCompactJson(Json{{"hookSpecificOutput", std::move(inner)}});
}

void emitPreToolUseDecision(PreToolUseDecision decision, const std::optional<Json>& updatedInput) {
    emitDecision(preToolUseDecisionJson(decision, updatedInput));
}

Json answeredToolInput(const std::vector<ElicitationQuestion>& questions, std::string_view reply) {
    Json answers = Json::object();
    if (const std::optional<Json> lists = answerLists(reply)) {
        for (std::size_t i = 0; i < questions.size() && i < lists->size(); ++i) {
            const Json& labels = (*lists)[i];
            std::string joined;
            for (std::size_t k = 0; k < labels.size(); ++k) {
                if (k > 0) joined += ", ";
                joined += labels[k].get_ref<const std::string&>();
            }
            answers[questions[i].question] = std::move(joined);
        }
    } else if (!questions.empty()) {
        answers[questions.front().question] = std::string(text::trimmedNewlines(reply));
    }
    Json input = {{"answers", std::move(answers)}};
    Json list = Json::array();
    for (const ElicitationQuestion& question : questions) list.push_back(toJson(question));
    input["questions"] = std::move(list);
    return input;
}

ElicitationData planReview(const std::optional<std::string>& plan) {
    ElicitationQuestion question;
    question.question = "Approve this implementation plan?";
    question.header = "Plan";
    question.options = {{"Approve", "Start implementing the plan"}, {"Reject", "Go back and revise the plan"}};
    question.multiSelect = false;
    return ElicitationData{{std::move(question)}, plan};
}

PermissionResponse resolveExitPlanModeResponse(std::string_view reply) {
    using Behavior = PermissionResponse::Behavior;
    const PermissionResponse refused{Behavior::deny, std::nullopt};
    const std::optional<Json> lists = answerLists(text::trimmed(reply));
    if (!lists || lists->empty() || lists->front().empty()) return refused;
    const std::string& answer = lists->front().front().get_ref<const std::string&>();
    const std::string word = text::lowercased(answer);
    if (word == "allow") return {Behavior::allow, std::nullopt};
    if (word == "deny") return refused;
    return {Behavior::deny, answer};
}

}  // namespace AgentHook::Claude
