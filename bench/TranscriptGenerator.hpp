// A synthetic Claude Code transcript shaped like a long real session: user
// prompts, assistant turns with text and Bash tool calls, tool results with
// long output (some with terminal colour escapes, some non-ASCII text), one
// JSON object per line, written the way Claude Code writes it. It never holds
// a custom-title entry. The output is deterministic for a given seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace bench {

struct TranscriptShape {
    std::size_t targetBytes = 100u * 1024u * 1024u;
    std::size_t targetLines = 40000;
    std::string sessionId = "bench-session";
    std::string cwd = "/tmp/project";
    // The text of the last line, an assistant entry.
    std::string finalMessage = "All done: the benchmark transcript ends here.";
    std::uint64_t seed = 0x5eed;
};

struct Transcript {
    std::string text;  // ends with a line feed
    std::size_t bytes = 0;
    std::size_t lines = 0;
    std::size_t linesWithEscapes = 0;
};

Transcript generateTranscript(const TranscriptShape& shape);

// The same transcript handed to `sink` in pieces of about a megabyte, for
// files too large to build in memory; the result's `text` stays empty.
Transcript generateTranscript(const TranscriptShape& shape, const std::function<void(std::string_view)>& sink);

// A JSON string literal the way JavaScript's JSON.stringify writes it.
std::string jsonString(std::string_view text);

}  // namespace bench
