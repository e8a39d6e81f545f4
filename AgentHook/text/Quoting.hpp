// Small text helpers that know nothing of agents: hex digits, and a list of
// texts quoted the way Swift prints an array of strings (the log's form).
#pragma once

#include <string>
#include <vector>

namespace AgentHook::text {

// Appends the two lower-case hex digits of `byte`.
inline void appendHexByte(std::string& out, unsigned char byte) {
    static constexpr char kDigits[] = "0123456789abcdef";
    out.push_back(kDigits[byte >> 4]);
    out.push_back(kDigits[byte & 0x0f]);
}

// ["a", "b\"c"]: each text quoted, with \" \\ \n \r \t \0 escaped and other
// control characters as \u{X}.
std::string describeList(const std::vector<std::string>& texts);

}  // namespace AgentHook::text
