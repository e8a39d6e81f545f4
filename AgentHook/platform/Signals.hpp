// Interrupt (SIGINT) handling for the one blocking wait of the program.
#pragma once

#include <csignal>

namespace AgentHook::platform {

// From now on SIGINT only stores 1 into `*flag`.
void catchInterrupts(volatile std::sig_atomic_t* flag);

// SIGINT gets the system's default disposition back.
void restoreDefaultInterrupts();

}  // namespace AgentHook::platform
