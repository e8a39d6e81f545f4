// The edits of a configuration's text that add or remove agent-hook's
// registration. Only agent-hook's own entries change; every other byte stays
// as it was written.
#pragma once

#include <optional>
#include <string>

#include "Registration.hpp"

namespace AgentHook::Setup {

// Adds the agent's registration to the text of a document (an object): an
// event's group takes the place of the first group that held only agent-hook,
// else goes after the first group that shared a hook of ours with the user's,
// else last; every other agent-hook entry goes. Only those parts of the text
// change. False, with what is wrong with the document in `err`, when it has
// no room for it (`text` is then unchanged).
[[nodiscard]] bool addRegistration(std::string& text, Agent agent, const std::string& hookPath, std::string* err);

// Removes every agent-hook entry, and the groups, events and "hooks" member
// that this leaves empty; false and `err` as above.
[[nodiscard]] bool removeRegistration(std::string& text, const std::string& hookPath, std::string* err);

// Whether two documents without agent-hook's entries differ in nothing but
// empty event lists or an empty "hooks" member: then the earlier file's bytes
// can stand for the later document.
bool sameApartFromRegistration(const OrderedJson& earlier, const OrderedJson& now, const std::string& hookPath);

}  // namespace AgentHook::Setup
