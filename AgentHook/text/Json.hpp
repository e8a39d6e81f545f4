// The one JSON writer of the program, and the small reading helpers the
// records' decoders share.
//
// Writing: keys in ascending byte order, `"` `\` and `/` escaped (the slash as
// "\/"), \b \f \n \r \t, other control characters as \u00xx, everything else
// as raw UTF-8. A string that is not valid UTF-8 cannot be written: the
// writer then returns nothing and the caller takes its failure path.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace AgentHook::text {

using Json = nlohmann::json;

// No spaces, no line breaks, no trailing line feed.
std::optional<std::string> toCompactJson(const Json& value);

// Two-space indentation and " : " between key and value.
std::optional<std::string> toPrettyJson(const Json& value);

// Appends `text` as a JSON string literal; false when it is not valid UTF-8.
bool appendJsonString(std::string& out, std::string_view text);

// Parses one JSON document; nothing on any syntax error, invalid UTF-8 or an
// unpaired surrogate. Never throws.
std::optional<Json> parseJson(std::string_view bytes);

// Parses like parseJson, but keeps the text of every number that is not an
// integer exactly as written ("1.50", "2E3"), so that a document read and
// written back keeps its numbers. Such a number is held as a binary value
// carrying its text, which the writer puts out verbatim. Nesting deeper than
// 512 levels fails the parse.
std::optional<Json> parseJsonKeepingNumbers(std::string_view bytes);

// Lenient member access: the value when the member is there with that type.
std::optional<std::string> stringMember(const Json& object, const char* key);
std::optional<bool> boolMember(const Json& object, const char* key);

// Strict member access for nested records: a missing or null member leaves
// `out` empty and succeeds; a member of another type fails the record.
bool readOptional(const Json& object, const char* key, std::optional<std::string>& out);
bool readOptional(const Json& object, const char* key, std::optional<bool>& out);

// A strict list: every element must decode, or the list fails.
template <class T, class Decode>
bool readOptionalList(const Json& object, const char* key, std::optional<std::vector<T>>& out, Decode decode) {
    out.reset();
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return true;
    if (!found->is_array()) return false;
    std::vector<T> items;
    items.reserve(found->size());
    for (const Json& element : *found) {
        std::optional<T> item = decode(element);
        if (!item) return false;
        items.push_back(std::move(*item));
    }
    out = std::move(items);
    return true;
}

}  // namespace AgentHook::text
