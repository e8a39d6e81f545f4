// The change of a file as a unified diff (as `diff -u` prints it): three
// lines of context, "--- " and "+++ " headers, "\ No newline at end of file"
// where a side ends without a line feed.
#pragma once

#include <string>
#include <string_view>

namespace AgentHook::Setup {

// "" when the texts are equal.
std::string unifiedDiff(std::string_view before, std::string_view after, const std::string& beforeName,
                        const std::string& afterName);

}  // namespace AgentHook::Setup
