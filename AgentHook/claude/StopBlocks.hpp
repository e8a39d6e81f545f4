// Claude Code honours at most eight Stop blocks in a row: on the ninth it
// still runs the hook, but ignores the block and ends the turn, so a ninth
// spoken reply would be lost. The blocks of a session's current run of Stops
// are counted in the scratch directory ("<session>-stop-blocks"), and the
// Stop that could only be ignored steps aside without asking the app.
#pragma once

#include <string>

namespace AgentHook::Claude {

inline constexpr int kMostStopBlocksInARow = 8;

// How many blocks the session's run of Stops has had. A Stop without
// `stop_hook_active` starts a new run (the count is 0, and the file goes);
// a missing or unreadable count is 0.
int stopBlocksInARow(const std::string& directory, const std::string& sessionId, bool stopHookActive);

// Records that this Stop blocked, as block number `count` of the run; a
// failure is logged.
void recordStopBlock(const std::string& directory, const std::string& sessionId, int count);

}  // namespace AgentHook::Claude
