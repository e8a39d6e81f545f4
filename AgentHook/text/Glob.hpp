// The glob language of path rules, matched like the anchored regular
// expression it stands for (ICU semantics, no options): "**" is ".*" (a "/"
// right after it is absorbed), "*" is "[^/]*", "?" is "." (one code point, as
// the expression sees it), and everything else is literal, compared byte for
// byte. So "**" and "?" never cross a line terminator while "*" does, and the
// path may carry one final line terminator that the pattern does not mention.
// The pattern is read by user-perceived characters: "*" with a combining mark
// is literal text. Matching time is linear in the path; a pattern longer than
// any path (over 4095 bytes) never matches. A pure function.
#pragma once

#include <string_view>

namespace AgentHook::text {

// True when the whole of `path` matches the glob `pattern`.
bool globMatch(std::string_view pattern, std::string_view path);

}  // namespace AgentHook::text
