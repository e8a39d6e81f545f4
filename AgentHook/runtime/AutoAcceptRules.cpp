#include "runtime/AutoAcceptRules.hpp"

#include <algorithm>
#include <boost/url/parse.hpp>
#include <optional>

#include "text/Glob.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {
namespace {

std::optional<std::string> urlHost(std::string_view text) {
    // A URI reference, as Apple's URL reads a string: "//example.com/x" has
    // a host without a scheme, while "example.com/x" is only a path. The host
    // is percent-decoded, as URL.host reports it ("ex%61mple.com" is
    // "example.com"), and an IPv6 literal comes without its brackets. An
    // empty host is no host.
    const auto url = boost::urls::parse_uri_reference(text);
    if (!url || !url->has_authority()) return std::nullopt;
    std::string host = url->host_address();
    if (host.empty()) return std::nullopt;
    return host;
}

bool ruleMatches(std::string_view rule, std::string_view target) {
    constexpr std::string_view domainPrefix = "domain:";
    if (rule.starts_with(domainPrefix)) {
        const std::optional<std::string> host = urlHost(target);
        return host && *host == rule.substr(domainPrefix.size());
    }
    if (rule.starts_with("//")) return text::globMatch(rule.substr(1), target);
    // Character for character: "cafe" is no prefix of "cafe" + COMBINING ACUTE.
    return target.starts_with(rule) && text::isCharacterBoundary(target, rule.size());
}

}  // namespace

bool matchesAutoAcceptRules(const std::vector<std::string>& rules, std::string_view target,
                            std::string_view /*toolName*/) {
    if (std::find(rules.begin(), rules.end(), "*") != rules.end()) return true;
    if (target.empty()) return false;
    return std::any_of(rules.begin(), rules.end(), [&](const std::string& rule) { return ruleMatches(rule, target); });
}

}  // namespace AgentHook
