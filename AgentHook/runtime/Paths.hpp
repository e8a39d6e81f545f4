// The scratch directory that the hook and the app share. The app reads and
// writes files there by absolute path, so it is the same on every platform;
// components take it as a parameter only so that tests can point them elsewhere.
#pragma once

#include <string>
#include <string_view>

namespace AgentHook {

inline constexpr std::string_view kScratchDirectory = "/tmp/voxtrel-agent";

// The path of `name` in the scratch directory.
inline std::string scratchPath(std::string_view name) {
    std::string path(kScratchDirectory);
    path.push_back('/');
    path.append(name);
    return path;
}

}  // namespace AgentHook
