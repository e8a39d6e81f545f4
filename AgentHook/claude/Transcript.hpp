// Reading Claude Code's session files: the last assistant message of a
// transcript, and the session title (latest custom title, else the index's
// summary). Only reads; every failure is an absent result, never logged.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace AgentHook::Claude {

std::optional<std::string> extractLastAssistantMessage(const std::string& path);

// "~/.claude/projects/" + cwd with every "/" replaced by "-".
std::string projectDirectory(const std::string& home, std::string_view cwd);

// The title of a session. The project folder comes from `cwd`; when that
// folder does not exist, the folder holding the transcript is used instead
// (Claude Code also replaces dots, spaces and other characters in its names).
std::optional<std::string> getSessionTitle(const std::string& sessionId, const std::string& cwd,
                                           const std::optional<std::string>& transcriptPath = std::nullopt);

// The latest non-empty custom title among the transcript's lines.
std::optional<std::string> latestCustomTitle(std::string_view transcript);

// The first non-empty summary of the session in a sessions-index.json document.
std::optional<std::string> indexSummary(std::string_view index, const std::string& sessionId);

}  // namespace AgentHook::Claude
