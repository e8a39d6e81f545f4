// Cheap tests on the raw lines of a Claude Code transcript, which keep JSON
// parsing off the lines that cannot be the entry sought, and the custom
// titles found with them. Work on bytes in memory; bytes that are not UTF-8
// or not JSON are lines that hold nothing, never an error.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace AgentHook::Claude {

// True when the line may hold the JSON string `word` (ASCII): a string token
// that spells it, literally or with \u escapes. Never false for a line that
// holds it.
bool mayHoldString(std::string_view line, std::string_view word);

// Looks at the lines of `text` (split at line feeds) in order and leaves in
// `title` the last non-empty custom title found, if any; `title` is left as
// it was when there is none. Lines longer than `longestLine` are passed over.
void collectCustomTitles(std::string_view text, std::size_t longestLine, std::optional<std::string>& title);

// The latest non-empty custom title among the lines of a transcript in memory.
std::optional<std::string> latestCustomTitle(std::string_view transcript);

}  // namespace AgentHook::Claude
