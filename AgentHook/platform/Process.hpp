// Child processes, started from an argument list (never a shell string) with
// standard input on the null device and no descriptor but the standard ones.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace AgentHook::platform {

struct CapturedRun {
    int exitStatus = -1;  // the exit code; -1 when the child was killed by a signal
    std::string standardOutput;
};

// Runs `executable` (an absolute path) with `arguments`, standard error on the
// null device, in a process group of its own, and collects its standard
// output. Nothing when it cannot start or be waited for, or when it has not
// both closed its output and exited within `limit` (measured on a steady
// clock) or writes more than a mebibyte: then the whole group is killed and
// the child reaped before this returns. Waits interrupted by a signal are
// resumed within the same limit.
std::optional<CapturedRun> runCapturingOutput(const std::string& executable,
                                              const std::vector<std::string>& arguments,
                                              std::chrono::milliseconds limit = std::chrono::seconds(2));

// Runs `executable` (an absolute path) with its output on the null device and
// waits for it, at most `limit`; a child still running then is left to run.
// False when it cannot be started; its exit status is not kept.
[[nodiscard]] bool runAndWait(const std::string& executable, const std::vector<std::string>& arguments,
                std::chrono::milliseconds limit = std::chrono::seconds(5));

// Starts `program` (looked up on PATH) in a session of its own with all three
// standard streams on the null device, and does not wait for it.
[[nodiscard]] bool startDetached(const std::string& program, const std::vector<std::string>& arguments);

// Collects children that have exited, so a detached child leaves no zombie.
void reapExitedChildren();

// The absolute path of the running program; "" when the system cannot tell.
std::string runningExecutablePath();

}  // namespace AgentHook::platform
