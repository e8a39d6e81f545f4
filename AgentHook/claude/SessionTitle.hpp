// The title of a Claude Code session: the latest custom title in its
// transcript, else the summary in the project's sessions index. Only reads;
// a title that cannot be found or read is absent, never an error.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "claude/TranscriptFile.hpp"

namespace AgentHook::Claude {

// "~/.claude/projects/" + cwd with every "/" replaced by "-".
std::string projectDirectory(const std::string& home, std::string_view cwd);

// The title of a session. The project folder comes from `cwd`; when that
// folder does not exist, the folder holding the transcript is used instead
// (Claude Code also replaces dots, spaces and other characters in its names).
// `earlier` is a pass over the transcript already made this run (see
// customTitleOfTranscript), which spares a second read of it.
std::optional<std::string> getSessionTitle(const std::string& sessionId, const std::string& cwd,
                                           const std::optional<std::string>& transcriptPath = std::nullopt,
                                           const std::optional<TranscriptPass>& earlier = std::nullopt);

}  // namespace AgentHook::Claude
