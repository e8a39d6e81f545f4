#include "runtime/Dispatch.hpp"

#include <string>

#include "claude/ClaudeEvents.hpp"
#include "codex/CodexEvents.hpp"
#include "grok/GrokEvents.hpp"
#include "platform/Streams.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

int dispatch(int argc, const char* const* argv) {
    const std::string agent = argc < 2 ? std::string() : text::lowercased(argv[1]);
    if (agent == "claude") return Claude::run();
    if (agent == "codex") return Codex::run();
    if (agent == "grok") return Grok::run();
    // Standard input stays unread and the log untouched on this path.
    platform::writeStandardError("usage: agent-hook <claude|codex|grok>\n");
    return 64;
}

}  // namespace AgentHook
