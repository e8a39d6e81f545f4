// The signals that end the one blocking wait of the program. An agent that
// gives up on a hook sends SIGTERM (Claude Code), a closing terminal SIGHUP,
// a person Ctrl-C; each is only recorded, and wakes the wait at once.
#pragma once

namespace AgentHook::platform {

// From now on SIGINT, SIGTERM and SIGHUP only record their number; none is
// recorded yet.
void catchTerminationSignals();

// The number of the first such signal caught, 0 while none.
int caughtSignal();

// "SIGINT", "SIGTERM", "SIGHUP".
const char* signalName(int signal);

// The three signals get the system's default disposition back.
void restoreDefaultSignals();

// Sleeps up to `seconds`, ending early when a signal is caught, when
// standard output hangs up, or when `descriptor` (unless -1) is readable.
void waitForWakeup(double seconds, int descriptor = -1);

}  // namespace AgentHook::platform
