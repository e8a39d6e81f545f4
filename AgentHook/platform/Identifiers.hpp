// Random UUIDs and MD5 digests.
#pragma once

#include <string>
#include <string_view>

namespace AgentHook::platform {

// A fresh random (version 4) UUID, 36 characters, upper-case hexadecimal.
std::string randomUuid();

// The RFC 1321 digest of `bytes` as 32 lower-case hexadecimal digits.
std::string md5Hex(std::string_view bytes);

}  // namespace AgentHook::platform
