// Claude Code's transcript: one line as an entry and its text, and the whole
// input as a transcript (the session title) and as a sessions index.
#include "FuzzSupport.hpp"
#include "claude/ClaudeHookInput.hpp"
#include "claude/SessionIndex.hpp"
#include "claude/TranscriptLines.hpp"
#include "text/Utf8.hpp"

using namespace AgentHook;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = fuzz::bytesOf(data, size);
    if (const auto entry = Claude::decodeTranscriptEntry(bytes); entry && entry->message && entry->message->content) {
        fuzz::require(text::isValidUtf8(Claude::contentText(*entry->message->content)), "the text is UTF-8");
    }

    const std::optional<std::string> title = Claude::latestCustomTitle(bytes);
    fuzz::require(!title || !title->empty(), "a title is never empty");
    // A whole title line at the end wins, whatever comes before it.
    const std::string renamed = std::string(bytes) + "\n{\"type\":\"custom-title\",\"customTitle\":\"Last\"}";
    fuzz::require(Claude::latestCustomTitle(renamed) == "Last", "the last title line wins");

    const std::optional<std::string> summary = Claude::indexSummary(bytes, "s1");
    fuzz::require(!summary || !summary->empty(), "a summary is never empty");
    return 0;
}
