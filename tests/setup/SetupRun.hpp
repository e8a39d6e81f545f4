// Runs the built agent-hook-setup as a child in a fresh HOME, with a fake
// agent-hook to register.
#pragma once

#include <string>
#include <vector>

#include "support/TestSupport.hpp"

namespace setuptest {

struct SetupHome {
    testsupport::TempDir dir;
    std::string home = dir.file("home");
    std::string hook = dir.file("bin/agent-hook");
    std::vector<std::string> extraEnvironment;

    SetupHome() {
        testsupport::makeDirectories(home);
        testsupport::makeDirectories(dir.file("bin"));
        testsupport::makeExecutable(hook, "#!/bin/sh\nexit 0\n");
    }

    testsupport::Finished run(std::vector<std::string> arguments, bool withHook = true) const {
        if (withHook) {
            arguments.push_back("--hook");
            arguments.push_back(hook);
        }
        std::vector<std::string> environment = {"HOME=" + home, "PATH=/usr/bin:/bin"};
        environment.insert(environment.end(), extraEnvironment.begin(), extraEnvironment.end());
        testsupport::RunningProcess process = testsupport::start(AGENT_HOOK_SETUP_PROGRAM, arguments, environment);
        return testsupport::finish(process);
    }
};

// `text` with every "@HOOK@" replaced by `hook`.
inline std::string withHook(std::string text, const std::string& hook) {
    for (std::size_t at = text.find("@HOOK@"); at != std::string::npos; at = text.find("@HOOK@", at + hook.size())) {
        text.replace(at, 6, hook);
    }
    return text;
}

}  // namespace setuptest
