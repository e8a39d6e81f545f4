// Grok CLI's hook event, with a fixed environment: the decoder, the
// permission request, and Grok's own pre-tool-use decision.
#include "FuzzSupport.hpp"
#include "bridge/CommandPermissions.hpp"
#include "grok/GrokEvents.hpp"
#include "grok/GrokHookInput.hpp"

using namespace AgentHook;

namespace {

std::optional<std::string> environment(const char* name) {
    if (std::string_view(name) == "GROK_SESSION_ID") return "env-session";
    if (std::string_view(name) == "GROK_WORKSPACE_ROOT") return "/home/ann/web";
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = fuzz::bytesOf(data, size);
    const std::optional<Grok::HookInput> input = Grok::decodeHookInput(bytes, environment, 1700000000);
    fuzz::require(input.has_value() == (bytes.empty() || fuzz::isJsonObject(bytes)),
                  "exactly the JSON objects (and no input at all) decode");
    if (!input) return 0;

    const std::string toolName = input->toolName.value_or("unknown");
    const PermissionDetails details = Grok::buildPermissionDetails(toolName, input->toolInput);
    const std::optional<text::Json> body = text::parseJson(commandPermissionBody(toolName, details));
    fuzz::require(body && body->contains("toolName"), "the request body is written whole");

    // A refusal in the user's words, here any text of the event.
    const std::optional<std::string> reason = input->prompt ? input->prompt : input->reason;
    const std::optional<std::string> decision =
        Grok::preToolUseDecisionJson({PermissionResponse::Behavior::deny, reason});
    fuzz::require(decision.has_value(), "a decision with a decoded reason can be written");
    const std::optional<text::Json> read = text::parseJson(*decision);
    fuzz::require(read && text::stringMember(*read, "reason").value_or("") == reason.value_or(""),
                  "the reason reads back as it was");
    return 0;
}
