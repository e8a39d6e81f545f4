// Reading the app's answers. An absent or empty response text is no answer
// at all, everywhere; a text of blanks only is an answer. A permission answer
// is one word, compared trimmed and lower-cased; any other text is a refusal
// in the user's own words.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "bridge/Polling.hpp"

namespace AgentHook {

enum class PermissionWord { allow, deny, bypass, always, other };

struct PermissionReply {
    PermissionWord word = PermissionWord::other;
    // Trimmed of Unicode white space and newlines, lower-cased.
    std::string normalized;
};

PermissionReply readPermissionReply(std::string_view reply);

}  // namespace AgentHook
