// Reading Claude Code's session files: the last assistant message of a
// transcript, and the session title (latest custom title, else the index's
// summary). Only reads; every failure is an absent result, never logged.
//
// Transcripts grow without bound and Claude Code appends to them while they
// are read, so they are read through a descriptor a chunk at a time (never
// mapped: a file cut short under a mapping kills the reader), and only
// regular files are read (a FIFO or device in their place never blocks or
// floods the hook). The results are those of reading the whole file at once.
// Memory stays within the limits below whatever the file's size: a chunk, and
// one line where a line must be held whole.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace AgentHook::Claude {

struct TranscriptLimits {
    // Bytes read at a time.
    std::size_t chunk = 256 * 1024;
    // A line longer than this is passed over as if it held nothing (holding
    // it would cost as much memory as the line), and a sessions index larger
    // than this is not read. Claude Code's longest entries (pasted images,
    // huge tool output) stay far below it.
    std::size_t longestLine = 64 * 1024 * 1024;
};

// The text of the last assistant entry with text; nothing when there is none,
// or the file is missing, unreadable or not valid UTF-8 throughout. The walk
// starts at the end of the file, where the answer usually is.
std::optional<std::string> extractLastAssistantMessage(const std::string& path);
std::optional<std::string> extractLastAssistantMessage(const std::string& path, const TranscriptLimits& limits);

// "~/.claude/projects/" + cwd with every "/" replaced by "-".
std::string projectDirectory(const std::string& home, std::string_view cwd);

// The title of a session. The project folder comes from `cwd`; when that
// folder does not exist, the folder holding the transcript is used instead
// (Claude Code also replaces dots, spaces and other characters in its names).
std::optional<std::string> getSessionTitle(const std::string& sessionId, const std::string& cwd,
                                           const std::optional<std::string>& transcriptPath = std::nullopt);

// The latest non-empty custom title in the transcript at `path`; nothing when
// there is none, or the file cannot be read or is not valid UTF-8 throughout.
//
// A hook run that needs both reads a transcript for its last message and its
// title; each needs one pass over the whole file (the encoding check, the
// search for titles), so the first pass does both and its result is kept for
// that file while it stays unchanged (same size, inode and times).
std::optional<std::string> customTitleOfTranscript(const std::string& path, const TranscriptLimits& limits = {});

// The first non-empty summary of the session in the sessions index at `path`.
std::optional<std::string> indexSummaryOfFile(const std::string& path, const std::string& sessionId,
                                              const TranscriptLimits& limits = {});

// The latest non-empty custom title among the lines of a transcript in memory.
std::optional<std::string> latestCustomTitle(std::string_view transcript);

// The first non-empty summary of the session in a sessions-index.json document.
std::optional<std::string> indexSummary(std::string_view index, const std::string& sessionId);

}  // namespace AgentHook::Claude
