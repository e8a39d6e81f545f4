// The user's .claude/settings.local.json: the input as the file's old bytes,
// merged with two rules. A merged file must read back as what it was plus the
// rules, and merging it again must change nothing.
#include <algorithm>
#include <string>
#include <vector>

#include "FuzzSupport.hpp"
#include "claude/AlwaysAllow.hpp"

using namespace AgentHook;

namespace {

bool holds(const text::Json& allow, const std::string& rule) {
    return std::find(allow.begin(), allow.end(), text::Json(rule)) != allow.end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = fuzz::bytesOf(data, size);
    const std::vector<std::string> rules = {"Bash(npm test:*)", "Edit"};
    const Claude::SettingsMerge merge = Claude::mergeAllowRules(bytes, rules);
    if (!merge.bytes) {
        fuzz::require(merge.unserializable || !merge.problem.empty(), "a file left alone has a reason");
        return 0;
    }

    const std::optional<text::Json> merged = text::parseJson(*merge.bytes);
    fuzz::require(merged && merged->is_object(), "the merged file is a JSON object");
    const text::Json& allow = merged->at("permissions").at("allow");
    fuzz::require(holds(allow, rules[0]) && holds(allow, rules[1]), "the rules are in the list");
    if (const std::optional<text::Json> old = text::parseJson(bytes); old && old->is_object()) {
        for (const auto& [key, value] : old->items()) {
            if (key != "permissions") fuzz::require(merged->contains(key) && merged->at(key) == value, "other members stay");
        }
        if (const auto permissions = old->find("permissions"); permissions != old->end() && permissions->is_object()) {
            for (const auto& [key, value] : permissions->items()) {
                if (key != "allow") fuzz::require(merged->at("permissions").at(key) == value, "other permissions stay");
            }
        }
    }

    const Claude::SettingsMerge again = Claude::mergeAllowRules(*merge.bytes, rules);
    fuzz::require(again.bytes == merge.bytes, "merging the merged file again changes nothing");
    return 0;
}
