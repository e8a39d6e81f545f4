#include "bridge/Replies.hpp"

#include "text/Utf8.hpp"

namespace AgentHook {

PermissionReply readPermissionReply(std::string_view reply) {
    PermissionReply read;
    read.normalized = text::lowercased(text::trimmed(reply));
    if (read.normalized == "allow") read.word = PermissionWord::allow;
    else if (read.normalized == "deny") read.word = PermissionWord::deny;
    else if (read.normalized == "bypass") read.word = PermissionWord::bypass;
    else if (read.normalized == "always") read.word = PermissionWord::always;
    return read;
}

}  // namespace AgentHook
