// Finding the text of the session's implementation plan: the plan file of
// the slug that the transcript names last, else the most recently modified
// plan file in ~/.claude/plans. Only reads; every failure is an absent plan.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace AgentHook::Claude {

// A slug's plan file older than this is stale when the caller asks for a fresh plan.
inline constexpr double kPlanStalenessSeconds = 15.0;

// The slug of the last `"slug"\s*:\s*"([a-z0-9-]+)"` in the text.
std::optional<std::string> lastPlanSlug(std::string_view transcript);

// The same for a transcript file; nothing when it cannot be read as UTF-8.
std::optional<std::string> extractPlanSlug(const std::string& transcriptPath);

// The plan text, trimmed. `cwd` takes no part: plans live under the home
// directory. With `skipStalenessCheck` false, a slug's plan file modified
// more than 15 seconds ago is not taken.
std::optional<std::string> findMostRecentPlanContent(const std::string& cwd,
                                                     const std::optional<std::string>& transcriptPath,
                                                     bool skipStalenessCheck);

}  // namespace AgentHook::Claude
