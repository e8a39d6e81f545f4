// The summary of a session in Claude Code's sessions-index.json, the title a
// session has when its transcript holds no custom title. Read as the JSON
// parser hands over its parts, so only the summary sought is kept. Only
// reads; a missing, unreadable, oversized or malformed index is an absent
// result, never logged.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "claude/TranscriptFile.hpp"

namespace AgentHook::Claude {

// The first non-empty summary of the session in a sessions-index.json
// document. The document must be an object whose "entries" (the last member
// of that name) is an array of objects only; within an entry, too, the last
// member of a name counts.
std::optional<std::string> indexSummary(std::string_view index, const std::string& sessionId);

// The same for the index at `path`, read a chunk at a time; an index larger
// than the longest line allowed is not read.
std::optional<std::string> indexSummaryOfFile(const std::string& path, const std::string& sessionId,
                                              const TranscriptLimits& limits = {});

}  // namespace AgentHook::Claude
