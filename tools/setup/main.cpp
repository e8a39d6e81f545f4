#include <cstdio>
#include <exception>
#include <string>
#include <unistd.h>
#include <vector>

#include "Commands.hpp"
#include "Options.hpp"
#include "Status.hpp"
#include "platform/Files.hpp"

using namespace AgentHook::Setup;

namespace {

constexpr int kUsageStatus = 64;

std::string workingDirectory() {
    std::vector<char> buffer(4096);
    while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
        if (buffer.size() > (1u << 20)) return ".";
        buffer.resize(buffer.size() * 2);
    }
    return buffer.data();
}

int run(int argc, char** argv) {
    const ParsedOptions parsed = parseOptions(std::vector<std::string>(argv + 1, argv + argc), workingDirectory());
    if (!parsed.options) {
        std::fprintf(stderr, "agent-hook-setup: %s\n%s", parsed.error.c_str(), kUsage);
        return kUsageStatus;
    }
    const Options& options = *parsed.options;
    switch (options.command) {
        case Command::help:
            std::printf("%s\n%s", kUsage, kHelp);
            return 0;
        case Command::version:
            std::printf("agent-hook-setup %s\n", AGENT_HOOK_VERSION);
            return 0;
        default:
            break;
    }
    if (options.project && !AgentHook::platform::fileExists(*options.project + "/.")) {
        std::fprintf(stderr, "agent-hook-setup: %s is not a directory\n", options.project->c_str());
        return 1;
    }
    const std::string hookPath = options.hookPath.value_or(defaultHookPath());
    if (hookPath.empty()) {
        std::fprintf(stderr, "agent-hook-setup: cannot tell where agent-hook is; give --hook PATH\n");
        return 1;
    }
    if (options.command == Command::status) return runStatus(options, hookPath);
    return options.command == Command::install ? runInstall(options, hookPath) : runUninstall(options, hookPath);
}

}  // namespace

// Whatever escapes (memory running out, a library's exception) ends with a
// clear line and status 1, never with an abort that leaves a half-done edit
// unexplained: every file is replaced atomically, so nothing is half-written.
int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "agent-hook-setup: unexpected failure: %s\n", error.what());
    } catch (...) {
        std::fprintf(stderr, "agent-hook-setup: unexpected failure\n");
    }
    return 1;
}
