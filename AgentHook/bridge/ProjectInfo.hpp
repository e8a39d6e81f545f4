// The project name and git branch that every request to the app carries,
// from /usr/bin/git; the directory's own name when it is not in a work tree.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace AgentHook {

struct ProjectInfo {
    std::string projectName;
    std::string gitBranch;
};

// git -C directory arguments...: trimmed standard output, "" on any failure
// (no git, non-zero exit, output that is not UTF-8).
std::string runGit(const std::vector<std::string>& arguments, const std::string& directory);

// The final component, trailing slashes ignored; "/" for the root.
std::string lastPathComponent(std::string_view path);

// ("", "") for an empty cwd, without running git.
ProjectInfo getProjectInfo(const std::string& cwd);

}  // namespace AgentHook
