// The app's replies, read as the answer to a permission request, as the
// answers to two questions, and as the verdict on a plan.
#include "FuzzSupport.hpp"
#include "bridge/Replies.hpp"
#include "claude/Questions.hpp"
#include "runtime/Decisions.hpp"
#include "text/Utf8.hpp"

using namespace AgentHook;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view reply = fuzz::bytesOf(data, size);
    const bool isText = text::isValidUtf8(reply);

    const PermissionReply permission = readPermissionReply(reply);
    if (isText) fuzz::require(text::isValidUtf8(permission.normalized), "a normalised text reply is UTF-8");
    const bool isWord = permission.normalized == "allow" || permission.normalized == "deny" ||
                        permission.normalized == "bypass" || permission.normalized == "always";
    fuzz::require((permission.word != PermissionWord::other) == isWord, "the word is read exactly");
    fuzz::require(readPermissionReply(permission.normalized).normalized == permission.normalized,
                  "normalising twice changes nothing");

    static const std::vector<Claude::ElicitationQuestion> questions = {
        {"Which database?", "Storage", {{"SQLite", "One file"}, {"Postgres", std::nullopt}}, false},
        {"Deploy where?", std::nullopt, {{"Staging", std::nullopt}, {"Production", "Live"}}, true},
    };
    const text::Json answered = Claude::answeredToolInput(questions, reply);
    const text::Json& answers = answered.at("answers");
    fuzz::require(answers.is_object() && answers.size() <= questions.size(), "at most one answer per question");
    for (const auto& [question, answer] : answers.items()) {
        fuzz::require(question == questions[0].question || question == questions[1].question, "answers name a question");
        fuzz::require(answer.is_string(), "an answer is a text");
    }
    if (isText) fuzz::requireRoundTrip(answered, "the answered input can be written");

    const PermissionResponse verdict = Claude::resolveExitPlanModeResponse(reply);
    fuzz::require(verdict.behavior == PermissionResponse::Behavior::deny || !verdict.message,
                  "an approval carries no reason");
    fuzz::require(permissionDecisionJson(verdict).has_value(), "the verdict can be written");
    return 0;
}
