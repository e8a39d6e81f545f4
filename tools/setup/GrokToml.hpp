// Hooks that a user registered by hand in Grok's config.toml, as
// `[[hooks.<Event>]]` tables, so that status sees them too.
//
// This is not a TOML parser: it reads what hook tables hold, line by line.
// A hook is a `command = "..."` key, in a `[[hooks.<Event>.hooks]]` table or
// in an inline table on one line; its timeout is the `timeout` key of the
// same table, its matcher the `matcher` key of the event's table. Basic and
// literal strings are read; multi-line strings and arrays of tables spread
// over lines in other ways are not recognised.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Registration.hpp"

namespace AgentHook::Setup {

// agent-hook's entries in the text of a config.toml, each with its line.
std::vector<FoundEntry> findTomlRegistration(std::string_view toml, const std::string& hookPath);

}  // namespace AgentHook::Setup
