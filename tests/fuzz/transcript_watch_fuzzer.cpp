// The transcript watch: every line of the input, in order, to a watch for a
// pending Bash call and to one for a finished turn.
#include "FuzzSupport.hpp"
#include "claude/TranscriptWatch.hpp"

using namespace AgentHook;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest = fuzz::bytesOf(data, size);
    Claude::TranscriptWatch call;
    call.call = Claude::PendingCall{"Bash", text::Json{{"command", "npm test"}, {"description", "Run the tests"}}};
    Claude::TranscriptWatch turn;
    for (;;) {
        const std::size_t lineFeed = rest.find('\n');
        const std::string_view line = rest.substr(0, lineFeed);
        for (Claude::TranscriptWatch* watch : {&call, &turn}) {
            const std::optional<std::string> reason = Claude::movedOnByLine(*watch, line);
            fuzz::require(!reason || !reason->empty(), "a reason is never empty");
        }
        if (lineFeed == std::string_view::npos) return 0;
        rest.remove_prefix(lineFeed + 1);
    }
}
