#include "entry/Dispatch.hpp"

#include <csignal>
#include <exception>
#include <optional>
#include <string>

#include "claude/ClaudeEvents.hpp"
#include "codex/CodexEvents.hpp"
#include "grok/GrokEvents.hpp"
#include "platform/Files.hpp"
#include "platform/Streams.hpp"
#include "runtime/Logging.hpp"
#include "runtime/Paths.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

namespace {

int runAgent(Agent agent) {
    // Files there are created by name; a directory another user made first,
    // or a link to elsewhere, would hand them our requests and answers.
    if (std::string problem; !platform::makePrivateDirectory(std::string(kScratchDirectory), &problem)) {
        platform::writeStandardError("agent-hook: " + problem + "; leaving the decision to the agent\n");
        return 0;
    }
    // Every agent of the table has its adapter: a new one fails to compile here (-Wswitch).
    switch (agent) {
        case Agent::claude: return Claude::run();
        case Agent::codex: return Codex::run();
        case Agent::grok: return Grok::run();
    }
    return 0;
}

}  // namespace

int dispatch(int argc, const char* const* argv) {
    const std::optional<Agent> agent = argc < 2 ? std::nullopt : agentForCommandWord(text::lowercased(argv[1]));
    if (agent) {
        // A reader that went away must not kill the hook in the middle of a write.
        std::signal(SIGPIPE, SIG_IGN);
        platform::keepStandardStreamsOpen();
        try {
            return runAgent(*agent);
        } catch (const std::exception& error) {
            log(std::string("Internal error, leaving the decision to the agent: ") + error.what());
        } catch (...) {
            log("Internal error, leaving the decision to the agent");
        }
        return 0;
    }
    // Standard input stays unread and the log untouched on this path.
    platform::writeStandardError("usage: agent-hook <claude|codex|grok>\n");
    return 64;
}

}  // namespace AgentHook
