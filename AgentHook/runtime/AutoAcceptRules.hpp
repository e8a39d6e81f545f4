// Auto-accept rules: does a stored rule cover a permission request's target?
// Pure functions: no side effects, no log lines, no failure path (a rule that
// cannot apply simply does not match).
//
// A rule is matched by its form:
//   "*"              every target, even an empty one;
//   "domain:HOST"    a target read as an RFC 3986 URI reference whose host
//                    is exactly HOST ("//HOST/x" has one, "HOST/x" does not),
//                    letter case counting, no subdomains;
//   "//PATTERN"      the glob "/PATTERN" over the whole target (text/Glob.hpp);
//   anything else    a literal prefix of the target, character for character.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace AgentHook {

// True when one of `rules` covers `target`. `toolName` takes no part in the
// decision; the caller passes it for the record.
bool matchesAutoAcceptRules(const std::vector<std::string>& rules, std::string_view target,
                            std::string_view toolName);

}  // namespace AgentHook
