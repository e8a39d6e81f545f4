#include "claude/SessionTitle.hpp"

#include "claude/SessionIndex.hpp"
#include "platform/Environment.hpp"
#include "platform/Files.hpp"

namespace AgentHook::Claude {

std::string projectDirectory(const std::string& home, std::string_view cwd) {
    std::string folder(cwd);
    for (char& c : folder) {
        if (c == '/') c = '-';
    }
    std::string base = home;
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    if (base != "/") base.push_back('/');
    return base + ".claude/projects/" + folder;
}

std::optional<std::string> getSessionTitle(const std::string& sessionId, const std::string& cwd,
                                           const std::optional<std::string>& transcriptPath,
                                           const std::optional<TranscriptPass>& earlier) {
    if (cwd.empty() || sessionId.empty()) return std::nullopt;
    const std::string home = platform::homeDirectory();
    if (home.empty()) return std::nullopt;
    std::string directory = projectDirectory(home, cwd);
    if (transcriptPath && !platform::fileExists(directory)) {
        const std::size_t slash = transcriptPath->rfind('/');
        if (slash != std::string::npos && slash > 0) directory = transcriptPath->substr(0, slash);
    }
    const std::string transcript = directory + "/" + sessionId + ".jsonl";
    if (std::optional<std::string> title = customTitleOfTranscript(transcript, {}, earlier)) return title;
    return indexSummaryOfFile(directory + "/sessions-index.json", sessionId);
}

}  // namespace AgentHook::Claude
