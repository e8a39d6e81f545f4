// Reading and writing a user's JSON configuration so that it comes back as it
// was read: members in their order, every value, the text of every
// non-integer number, and all Unicode.
//
// The writer uses the agents' own formatting (JSON.stringify with an indent):
// one member or element per line, `"key": value`, `{}` and `[]` when empty,
// only `"`, `\` and control characters escaped, everything else raw UTF-8.
// A file in that formatting, parsed and written with its own indentation and
// final line feed, comes back byte for byte.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace AgentHook::Setup {

using OrderedJson = nlohmann::ordered_json;

// Parses one JSON document into `out`, keeping member order and the text of
// every number that is not an integer. On failure `err` (when given) receives
// "<line>:<column>: not valid JSON (<what is wrong>)", 1-based, at the
// offending byte. Never throws.
[[nodiscard]] bool parseOrderedJson(std::string_view bytes, OrderedJson* out, std::string* err = nullptr);

// How a file is laid out, so that a rewrite keeps it.
struct Layout {
    std::string indent = "  ";     // one level of indentation
    bool finalLineFeed = true;
};

// The indentation of the first indented line (two spaces when none), and
// whether the text ends with a line feed (true for an empty text).
Layout detectLayout(std::string_view bytes);

// The document in the agents' formatting; nothing when a string is not valid UTF-8.
std::optional<std::string> writeOrderedJson(const OrderedJson& value, const Layout& layout);

}  // namespace AgentHook::Setup
