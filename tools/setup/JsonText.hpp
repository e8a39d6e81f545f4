// Changes made to the text of a JSON document rather than to a parsed tree,
// so that every byte outside the change stays as the user wrote it: escapes,
// spacing, number spellings, line endings.
//
// scanJson finds where each value lies; the edits add, remove or replace one
// member or element and return the whole new text. A new value is written in
// the document's own style: on one line in a one-line document, otherwise one
// member per line, indented like its siblings (or one step deeper than its
// container when it has none). Removing what an insertion added gives back
// the text as it was. The edits fail only when a new value holds text that is
// not valid UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrderedJson.hpp"

namespace AgentHook::Setup {

struct JsonSpan {
    enum class Kind { object, array, scalar };
    Kind kind = Kind::scalar;
    std::size_t begin = 0;  // the value's first byte
    std::size_t end = 0;    // one past its last byte
    std::vector<JsonSpan> children;    // member values or elements, in order
    std::vector<std::string> keys;     // objects: each member's key, decoded
    std::vector<std::size_t> keyBegins;  // objects: each member's opening quote

    std::size_t size() const { return children.size(); }
    // Where child `index` starts: its key for a member.
    std::size_t childBegin(std::size_t index) const {
        return kind == Kind::object ? keyBegins[index] : children[index].begin;
    }
    // The member named `key`; the last of several, whose value is the one a
    // reader keeps.
    std::optional<std::size_t> find(std::string_view key) const;
};

// The spans of `text`, which must hold one valid JSON document (one that
// parseOrderedJson accepts): the document's members, and everything inside
// its "hooks"; the other members' values are mapped to where they end only.
JsonSpan scanJson(std::string_view text);

// The value `span` holds in `text`.
OrderedJson valueAt(std::string_view text, const JsonSpan& span);

// Inserts a child before child `index` (or after the last when `index` is the
// size); `key` names the member of an object.
std::optional<std::string> insertChild(std::string_view text, const JsonSpan& container, std::size_t index,
                                       const std::optional<std::string>& key, const OrderedJson& value);

// Removes child `index`, with the separator that joined it to its siblings.
std::string removeChild(std::string_view text, const JsonSpan& container, std::size_t index);

// Writes `value` in place of the value at `span`.
std::optional<std::string> replaceValue(std::string_view text, const JsonSpan& span, const OrderedJson& value);

}  // namespace AgentHook::Setup
