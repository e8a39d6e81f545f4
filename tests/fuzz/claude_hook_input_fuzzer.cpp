// Claude Code's hook event: the decoder, the questions of an AskUserQuestion
// call, and what a permission request shows the app. Whatever decodes must
// give texts and choices the JSON writer can write.
#include "FuzzSupport.hpp"
#include "claude/ClaudeHookInput.hpp"
#include "claude/Permissions.hpp"
#include "text/Utf8.hpp"

using namespace AgentHook;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = fuzz::bytesOf(data, size);
    const std::optional<Claude::HookInput> input = Claude::decodeHookInput(bytes, 1700000000);
    fuzz::require(input.has_value() == fuzz::isJsonObject(bytes), "exactly the JSON objects decode");
    if (!input) return 0;

    if (input->toolInput) {
        if (const auto questions = input->toolInput->elicitationQuestions()) {
            for (const Claude::ElicitationQuestion& question : *questions) {
                fuzz::requireRoundTrip(Claude::toJson(question), "a decoded question can be written");
            }
        }
    }
    const PermissionDetails details = Claude::buildPermissionDetails(input->toolName, input->toolInput);
    fuzz::require(text::isValidUtf8(details.summary) && text::isValidUtf8(details.details),
                  "the summary and details are UTF-8");
    fuzz::requireRoundTrip(Claude::permissionPayloadSuggestions(input->permissionSuggestions, input->toolName),
                           "the choices can be written");
    Claude::hasSetModeSuggestion(input->permissionSuggestions);
    fuzz::require(text::isValidUtf8(Claude::autoAcceptTarget(input->toolInput)), "the rule target is UTF-8");
    return 0;
}
