#include "runtime/Dispatch.hpp"

#include <string>

#include "claude/ClaudeEvents.hpp"
#include "platform/Streams.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

int dispatch(int argc, const char* const* argv) {
    const std::string agent = argc < 2 ? std::string() : text::lowercased(argv[1]);
    if (agent == "claude") return Claude::run();
    // The Codex and Grok adapters are not built yet; until they are, their
    // events end without a decision and the agent goes on as without a hook.
    if (agent == "codex" || agent == "grok") return 0;
    // Standard input stays unread and the log untouched on this path.
    platform::writeStandardError("usage: agent-hook <claude|codex|grok>\n");
    return 64;
}

}  // namespace AgentHook
