#include "claude/PlanFiles.hpp"

#include <cstring>
#include <vector>

#include "platform/Clock.hpp"
#include "platform/Environment.hpp"
#include "platform/Files.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Claude {

namespace {

constexpr std::string_view kSlugKey = "\"slug\"";

// Past white space (any Unicode white space, as "\s" means) from `index`.
std::size_t skipWhiteSpace(std::string_view text, std::size_t index) {
    while (index < text.size()) {
        std::size_t next = index;
        if (!text::isWhitespaceOrNewline(text::decodeCodePoint(text, next))) break;
        index = next;
    }
    return index;
}

bool isSlugCharacter(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; }

// The slug of a match that starts at `start` ("slug" in quotes), and where the match ends.
std::optional<std::pair<std::string_view, std::size_t>> slugAt(std::string_view text, std::size_t start) {
    std::size_t i = skipWhiteSpace(text, start + kSlugKey.size());
    if (i >= text.size() || text[i] != ':') return std::nullopt;
    i = skipWhiteSpace(text, i + 1);
    if (i >= text.size() || text[i] != '"') return std::nullopt;
    const std::size_t begin = ++i;
    while (i < text.size() && isSlugCharacter(text[i])) ++i;
    if (i == begin || i >= text.size() || text[i] != '"') return std::nullopt;
    return std::make_pair(text.substr(begin, i - begin), i + 1);
}

std::string plansDirectory() { return platform::homeDirectory() + "/.claude/plans"; }

std::optional<std::string> readTrimmed(const std::string& path) {
    const std::optional<std::string> contents = platform::readFile(path);
    if (!contents || !text::isValidUtf8(*contents)) return std::nullopt;
    const std::string_view plan = text::trimmed(*contents);
    if (plan.empty()) return std::nullopt;
    return std::string(plan);
}

std::optional<std::string> planOfSlug(const std::string& slug, bool skipStalenessCheck) {
    const std::string path = plansDirectory() + "/" + slug + ".md";
    std::optional<std::string> plan = readTrimmed(path);
    if (!plan) {
        log("findPlanContent: transcript slug '" + slug + "' but file not found at " + path);
        return std::nullopt;
    }
    if (!skipStalenessCheck) {
        if (const std::optional<double> modified = platform::modificationTime(path)) {
            const double age = platform::nowSeconds() - *modified;
            if (age > kPlanStalenessSeconds) {
                log("findPlanContent: plan file '" + slug + "' is stale (" +
                    std::to_string(static_cast<long long>(age)) + "s old), skipping");
                return std::nullopt;
            }
        }
    }
    log("findPlanContent: matched plan via transcript slug '" + slug + "'");
    return plan;
}

std::optional<std::string> newestPlan() {
    const std::string directory = plansDirectory();
    const std::optional<std::vector<std::string>> names = platform::listDirectory(directory);
    if (!names) return std::nullopt;
    std::optional<std::string> newest;
    double newestTime = 0;
    for (const std::string& name : *names) {
        if (!name.ends_with(".md")) continue;
        const std::string path = directory + "/" + name;
        const std::optional<double> modified = platform::modificationTime(path);
        // Among equal times the first listed stays.
        if (!modified || (newest && *modified <= newestTime)) continue;
        newest = path;
        newestTime = *modified;
    }
    if (!newest) return std::nullopt;
    std::optional<std::string> plan = readTrimmed(*newest);
    if (plan) log("findPlanContent: fell back to most recent plan file: " + *newest);
    return plan;
}

}  // namespace

std::optional<std::string> lastPlanSlug(std::string_view text) {
    // Matches are found left to right, each search going on after the last
    // match, as a regular-expression engine finds them.
    std::optional<std::string_view> last;
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t start = text.find(kSlugKey, from);
        if (start == std::string_view::npos) break;
        if (const auto match = slugAt(text, start)) {
            last = match->first;
            from = match->second;
        } else {
            from = start + 1;
        }
    }
    if (!last) return std::nullopt;
    return std::string(*last);
}

std::optional<std::string> extractPlanSlug(const std::string& transcriptPath) {
    // Read, never mapped (a file cut while mapped kills the reader), and only
    // a regular file. Only a plan review reads the whole transcript here.
    const std::optional<std::uint64_t> size = platform::regularFileSize(transcriptPath);
    if (!size) return std::nullopt;
    const std::optional<std::string> transcript =
        platform::readRange(transcriptPath, 0, static_cast<std::size_t>(*size));
    if (!transcript || !text::isValidUtf8(*transcript)) return std::nullopt;
    return lastPlanSlug(*transcript);
}

std::optional<std::string> findMostRecentPlanContent(const std::string& /*cwd*/,
                                                     const std::optional<std::string>& transcriptPath,
                                                     bool skipStalenessCheck) {
    if (transcriptPath) {
        if (const std::optional<std::string> slug = extractPlanSlug(*transcriptPath)) {
            return planOfSlug(*slug, skipStalenessCheck);
        }
    }
    return newestPlan();
}

}  // namespace AgentHook::Claude
