// Reading a Claude Code transcript file: its last assistant message and its
// latest custom title. Only reads; every failure (missing, unreadable, not a
// regular file, not valid UTF-8 throughout) is an absent result, never logged.
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

#include "platform/Files.hpp"

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

// One forward pass over a transcript in one state: the encoding check of
// every byte and the custom titles of its lines. Both lookups below need it,
// and it costs a read of the whole file, so a hook run that wants the message
// and the title hands the pass of the first to the second.
struct TranscriptPass {
    platform::FileIdentity file;  // the file as it was read
    std::size_t longestLine = 0;  // the limit it was read with
    bool validUtf8 = false;
    std::optional<std::string> title;  // the latest non-empty one
};

// The text of the last assistant entry with text; nothing when there is none,
// or the file is missing, unreadable or not valid UTF-8 throughout. The walk
// starts at the end of the file, where the answer usually is. When `pass` is
// given it receives the forward pass made to check the encoding (none when no
// message was found, or the read failed).
std::optional<std::string> extractLastAssistantMessage(const std::string& path, const TranscriptLimits& limits = {},
                                                       std::optional<TranscriptPass>* pass = nullptr);

// The latest non-empty custom title in the transcript at `path`; nothing when
// there is none, or the file cannot be read or is not valid UTF-8 throughout.
// `earlier` is used instead of reading the file again when it was made on the
// same file in the same state (size, inode and times) with the same line
// limit; otherwise it is ignored.
std::optional<std::string> customTitleOfTranscript(const std::string& path, const TranscriptLimits& limits = {},
                                                   const std::optional<TranscriptPass>& earlier = std::nullopt);

}  // namespace AgentHook::Claude
