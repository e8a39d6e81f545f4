// Child processes, started from an argument list (never a shell string) with
// standard input on the null device and no descriptor but the standard ones.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace AgentHook::platform {

struct CapturedRun {
    int exitStatus = -1;  // the exit code; -1 when the child was killed by a signal
    std::string standardOutput;
};

// Runs `executable` (an absolute path) with `arguments`, standard error on the
// null device, and collects its standard output. Nothing when it cannot start.
std::optional<CapturedRun> runCapturingOutput(const std::string& executable,
                                              const std::vector<std::string>& arguments);

// Runs `executable` (an absolute path) with its output on the null device and
// waits for it. False when it cannot be started; its exit status is not kept.
bool runAndWait(const std::string& executable, const std::vector<std::string>& arguments);

// Starts `program` (looked up on PATH) in a session of its own with all three
// standard streams on the null device, and does not wait for it.
bool startDetached(const std::string& program, const std::vector<std::string>& arguments);

// Collects children that have exited, so a detached child leaves no zombie.
void reapExitedChildren();

}  // namespace AgentHook::platform
