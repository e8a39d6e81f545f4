// Watching Claude Code's transcript while a request waits in the app, for
// the signs that the session moved on without it: a result for the pending
// tool call (the user answered Claude Code's own permission dialog), or a
// queued prompt while a finished turn waits (the user typed into Claude Code).
//
// Only what is appended after the request went out is read, in bounded
// pieces; lines that mean nothing here (other hooks' attachments, results of
// other calls, cut lines still being written) are passed over.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "text/Json.hpp"

namespace AgentHook::Claude {

// The tool call a permission request is about: its tool, and its input as
// the event carried it (which tells parallel calls of one tool apart).
// call.input must be an object when present.
struct PendingCall {
    std::string toolName;
    std::optional<text::Json> input;
};

struct TranscriptWatch {
    std::string path;
    std::uint64_t offset = 0;           // how far the file has been read
    std::string partial;                // the start of a line not yet complete
    std::optional<PendingCall> call;    // absent: a finished turn waits
    std::vector<std::string> callIds;   // the transcript's ids for the pending call
};

// Starts at the transcript's current end. For a call, the ids it already has
// in the transcript are taken from the lines just before (Claude Code often
// writes the call before it asks, and sometimes only after).
TranscriptWatch startTranscriptWatch(const std::string& path, std::optional<PendingCall> call);

// Reads what was appended since the last look: why the request is moot, or nothing.
std::optional<std::string> sessionMovedOn(TranscriptWatch& watch);

// One whole line of the transcript (without its line break).
std::optional<std::string> movedOnByLine(TranscriptWatch& watch, std::string_view line);

}  // namespace AgentHook::Claude
