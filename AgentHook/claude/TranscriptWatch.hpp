// Watching Claude Code's transcript while a request waits in the app, for
// the signs that the session moved on without it: a result for the pending
// tool call (the user answered Claude Code's own permission dialog), or a
// queued prompt while a finished turn waits (the user typed into Claude Code).
//
// The prompt queue is judged as a whole: Claude Code writes a prompt it holds
// back as an "enqueue" and its sending as a "dequeue" (or "popOne", "popAll",
// "remove"). A `claude -p` run writes its own prompt as an enqueue followed at
// once by its dequeue, and those lines may reach the file just after the hook
// started; a prompt typed while a finished turn waits stays queued until the
// hook has ended. So a prompt counts as typed once the queue has held it for
// a moment (kQueueSettleSeconds), never on the enqueue line alone.
//
// Only what is appended after the request went out is read, in pieces of
// 1 MiB until caught up, but for at most a quarter second of CPU time in any
// second (a burst of hundreds of megabytes is caught up over a few looks);
// lines that mean nothing here (other hooks' attachments, results of other
// calls, cut lines still being written) are passed over. A transcript cut
// shorter or replaced by another file is followed from the new file's end.
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

inline constexpr double kQueueSettleSeconds = 0.1;

struct TranscriptWatch {
    std::string path;
    std::uint64_t device = 0;           // the file being read: another one
    std::uint64_t inode = 0;            //   in its place is read from its end
    std::uint64_t offset = 0;           // how far the file has been read
    double budgetSince = -1;            // the second the reading time is counted in (steady clock)
    double budgetUsed = 0;              // CPU seconds spent reading in it
    std::string partial;                // the start of a line not yet complete
    std::optional<PendingCall> call;    // absent: a finished turn waits
    std::vector<std::string> callIds;   // the transcript's ids for the pending call
    int queued = 0;                     // prompts enqueued since the start and not yet taken out
    std::optional<double> queuedSince;  // when the queue last became non-empty (steady clock)
};

// Starts at the transcript's current end. For a call, the ids it already has
// in the transcript are taken from the lines just before (Claude Code often
// writes the call before it asks, and sometimes only after).
TranscriptWatch startTranscriptWatch(const std::string& path, std::optional<PendingCall> call);

// Reads what was appended since the last look: why the request is moot, or
// nothing. `now` is a steady clock's reading in seconds.
std::optional<std::string> sessionMovedOn(TranscriptWatch& watch, double now);
std::optional<std::string> sessionMovedOn(TranscriptWatch& watch);

// One whole line of the transcript (without its line break): why the request
// is moot, or nothing; queue operations only update the watch's queue.
std::optional<std::string> movedOnByLine(TranscriptWatch& watch, std::string_view line);

}  // namespace AgentHook::Claude
