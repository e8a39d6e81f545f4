// Picks the adapter named by the first argument and hands the process to it.
#pragma once

namespace AgentHook {

// The exit status of the whole program: 64 for a name it does not serve.
int dispatch(int argc, const char* const* argv);

}  // namespace AgentHook
