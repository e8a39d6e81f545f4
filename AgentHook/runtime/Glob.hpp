// Auto-accept rules: does a stored rule cover a permission request's target?
// Pure functions: no side effects, no log lines, no failure path (a rule that
// cannot apply simply does not match).
//
// A rule is matched by its form:
//   "*"              every target, even an empty one;
//   "domain:HOST"    a target read as an RFC 3986 URI reference whose host
//                    is exactly HOST ("//HOST/x" has one, "HOST/x" does not),
//                    letter case counting, no subdomains;
//   "//PATTERN"      the glob "/PATTERN" over the whole target;
//   anything else    a literal prefix of the target.
//
// Globs behave like the anchored regular expression they stand for (ICU
// semantics, no options): "**" is ".*" (a "/" right after it is absorbed),
// "*" is "[^/]*", "?" is "." (one code point, as the expression sees it), and
// everything else is literal, compared byte for byte. So "**" and "?" never
// cross a line terminator while "*" does, and the target may carry one final
// line terminator that the pattern does not mention. The pattern is read by
// user-perceived characters: "*" with a combining mark is literal text.
// Matching time is linear in the target; a pattern longer than any path
// (over 4095 bytes) never matches.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace AgentHook {

// True when one of `rules` covers `target`. `toolName` takes no part in the
// decision; the caller passes it for the record.
bool matchesAutoAcceptRules(const std::vector<std::string>& rules, std::string_view target,
                            std::string_view toolName);

// True when the whole of `path` matches the glob `pattern`.
bool globMatch(std::string_view pattern, std::string_view path);

}  // namespace AgentHook
