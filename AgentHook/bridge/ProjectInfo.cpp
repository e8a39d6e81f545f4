#include "bridge/ProjectInfo.hpp"

#include "platform/Process.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

std::string runGit(const std::vector<std::string>& arguments, const std::string& directory) {
    std::vector<std::string> all{"-C", directory};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const std::optional<platform::CapturedRun> run = platform::runCapturingOutput("/usr/bin/git", all);
    if (!run || run->exitStatus != 0 || !text::isValidUtf8(run->standardOutput)) return {};
    return std::string(text::trimmed(run->standardOutput));
}

std::string lastPathComponent(std::string_view path) {
    if (path.empty()) return {};
    std::size_t end = path.size();
    while (end > 0 && path[end - 1] == '/') --end;
    if (end == 0) return "/";
    const std::size_t slash = path.rfind('/', end - 1);
    return std::string(path.substr(slash == std::string_view::npos ? 0 : slash + 1,
                                   slash == std::string_view::npos ? end : end - slash - 1));
}

ProjectInfo getProjectInfo(const std::string& cwd) {
    if (cwd.empty()) return {};
    const std::string top = runGit({"rev-parse", "--show-toplevel"}, cwd);
    if (top.empty()) return {lastPathComponent(cwd), ""};
    return {lastPathComponent(top), runGit({"branch", "--show-current"}, top)};
}

}  // namespace AgentHook
