// The reader of hand-written hook tables in Grok's config.toml: any text, no
// crash, and every entry it finds names agent-hook and a line of the text.
#include <algorithm>

#include "FuzzSupport.hpp"
#include "GrokToml.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::bytesOf(data, size);
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    for (const AgentHook::Setup::FoundEntry& entry : AgentHook::Setup::findTomlRegistration(text, "/opt/agent-hook")) {
        fuzz::require(AgentHook::Setup::isOwnCommand(entry.command, "/opt/agent-hook"), "an entry runs agent-hook");
        fuzz::require(entry.line >= 1 && entry.line <= lines, "an entry's line is in the text");
    }
    return 0;
}
