// Codex CLI's hook event: the decoder and the permission request it makes.
#include "FuzzSupport.hpp"
#include "bridge/CommandPermissions.hpp"
#include "codex/CodexEvents.hpp"
#include "codex/CodexHookInput.hpp"

using namespace AgentHook;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = fuzz::bytesOf(data, size);
    const std::optional<Codex::HookInput> input = Codex::decodeHookInput(bytes, 1700000000);
    fuzz::require(input.has_value() == fuzz::isJsonObject(bytes), "exactly the JSON objects decode");
    if (!input) return 0;

    const std::string toolName = input->toolName.value_or("unknown");
    const PermissionDetails details = Codex::buildPermissionDetails(toolName, input->toolInput);
    const std::optional<text::Json> body = text::parseJson(commandPermissionBody(toolName, details));
    fuzz::require(body && body->contains("toolName"), "the request body is written whole");
    return 0;
}
