#include "UnifiedDiff.hpp"

#include <algorithm>
#include <vector>

namespace AgentHook::Setup {
namespace {

constexpr std::size_t kContext = 3;

// Lines with their line feed, so that a missing final one shows as a change.
std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        const std::size_t stop = end == std::string_view::npos ? text.size() : end + 1;
        lines.push_back(text.substr(start, stop - start));
        start = stop;
    }
    return lines;
}

struct Line {
    char kind;  // ' ', '-', '+'
    std::string_view text;
};

// The edit script: the common prefix and suffix taken off first, a longest
// common subsequence of what is left (configuration files are small, and an
// edit touches a few places).
std::vector<Line> editScript(const std::vector<std::string_view>& a, const std::vector<std::string_view>& b) {
    std::size_t prefix = 0;
    while (prefix < a.size() && prefix < b.size() && a[prefix] == b[prefix]) ++prefix;
    std::size_t suffix = 0;
    while (suffix < a.size() - prefix && suffix < b.size() - prefix &&
           a[a.size() - 1 - suffix] == b[b.size() - 1 - suffix]) {
        ++suffix;
    }
    const std::size_t n = a.size() - prefix - suffix, m = b.size() - prefix - suffix;
    std::vector<std::vector<std::uint32_t>> common(n + 1, std::vector<std::uint32_t>(m + 1, 0));
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t j = m; j-- > 0;) {
            common[i][j] = a[prefix + i] == b[prefix + j] ? common[i + 1][j + 1] + 1
                                                          : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    std::vector<Line> script;
    for (std::size_t k = 0; k < prefix; ++k) script.push_back({' ', a[k]});
    std::size_t i = 0, j = 0;
    while (i < n || j < m) {
        if (i < n && j < m && a[prefix + i] == b[prefix + j]) {
            script.push_back({' ', a[prefix + i]});
            ++i, ++j;
        } else if (j < m && (i == n || common[i][j + 1] >= common[i + 1][j])) {
            script.push_back({'+', b[prefix + j++]});
        } else {
            script.push_back({'-', a[prefix + i++]});
        }
    }
    for (std::size_t k = a.size() - suffix; k < a.size(); ++k) script.push_back({' ', a[k]});
    // diff -u lists a change's removed lines before its added ones.
    for (std::size_t start = 0; start < script.size();) {
        std::size_t end = start;
        while (end < script.size() && script[end].kind != ' ') ++end;
        std::stable_partition(script.begin() + static_cast<std::ptrdiff_t>(start),
                              script.begin() + static_cast<std::ptrdiff_t>(end),
                              [](const Line& line) { return line.kind == '-'; });
        start = end + 1;
    }
    return script;
}

std::string range(std::size_t first, std::size_t count) {
    // An empty side is named by the line before it.
    if (count == 0) return std::to_string(first == 0 ? 0 : first - 1) + ",0";
    if (count == 1) return std::to_string(first);
    return std::to_string(first) + "," + std::to_string(count);
}

}  // namespace

std::string unifiedDiff(std::string_view before, std::string_view after, const std::string& beforeName,
                        const std::string& afterName) {
    if (before == after) return {};
    const std::vector<Line> script = editScript(splitLines(before), splitLines(after));
    std::string out = "--- " + beforeName + "\n+++ " + afterName + "\n";
    std::size_t at = 0;
    while (at < script.size()) {
        while (at < script.size() && script[at].kind == ' ') ++at;
        if (at == script.size()) break;
        // A hunk: from kContext lines before this change to kContext lines
        // after the last change that lies within 2 * kContext of the next.
        const std::size_t start = at >= kContext ? at - kContext : 0;
        std::size_t end = at;
        for (;;) {
            while (end < script.size() && script[end].kind != ' ') ++end;
            std::size_t next = end;
            while (next < script.size() && script[next].kind == ' ') ++next;
            if (next == script.size() || next - end > 2 * kContext) break;
            end = next;
        }
        const std::size_t stop = std::min(script.size(), end + kContext);
        std::size_t oldFirst = 1, newFirst = 1;
        for (std::size_t k = 0; k < start; ++k) {
            if (script[k].kind != '+') ++oldFirst;
            if (script[k].kind != '-') ++newFirst;
        }
        std::size_t oldCount = 0, newCount = 0;
        std::string body;
        for (std::size_t k = start; k < stop; ++k) {
            if (script[k].kind != '+') ++oldCount;
            if (script[k].kind != '-') ++newCount;
            body += script[k].kind;
            body += script[k].text;
            if (script[k].text.empty() || script[k].text.back() != '\n') body += "\n\\ No newline at end of file\n";
        }
        out += "@@ -" + range(oldFirst, oldCount) + " +" + range(newFirst, newCount) + " @@\n" + body;
        at = stop;
    }
    return out;
}

}  // namespace AgentHook::Setup
