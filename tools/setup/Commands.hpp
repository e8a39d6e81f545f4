// install and uninstall, for one agent after another; messages go to
// standard output, errors to standard error. The exit status: 0 when every
// agent's file is as asked (changed or already so), 1 otherwise.
#pragma once

#include <string>

#include "Options.hpp"

namespace AgentHook::Setup {

// agent-hook in the directory of the running program; "" when that is unknown.
std::string defaultHookPath();

int runInstall(const Options& options, const std::string& hookPath);
int runUninstall(const Options& options, const std::string& hookPath);

}  // namespace AgentHook::Setup
