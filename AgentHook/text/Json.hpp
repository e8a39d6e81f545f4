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
// `escapeSlash` writes "/" as "\/", as every output of the hook does.
bool appendJsonString(std::string& out, std::string_view text, bool escapeSlash = true);

// How a document is laid out. An empty indentation writes it on one line.
struct JsonLayout {
    std::string_view indent;
    std::string_view keySeparator;
    bool escapeSlash = true;
};

// Writes `value` (nlohmann::json or nlohmann::ordered_json, members in the
// value's own order) with `layout`; nothing when a text is not valid UTF-8.
// A binary value is a number's text kept by the reader below, written as is.
template <class J>
std::optional<std::string> writeJson(const J& value, const JsonLayout& layout);

// One document read so that it can be written back as it was: the text of
// every number that is not an integer is kept ("1.50", "2E3"); nesting
// deeper than 512 levels fails. On failure, where (a byte offset) and why.
template <class J>
struct KeptJson {
    std::optional<J> value;
    std::size_t errorOffset = 0;
    std::string problem;
};

template <class J>
KeptJson<J> parseKeepingNumbers(std::string_view bytes);

// Whether parseKeepingNumbers would take the bytes, found without building
// the tree (a check of a large document costs no memory).
bool isKeptJsonDocument(std::string_view bytes);

// Parses one JSON document; nothing on any syntax error, invalid UTF-8 or an
// unpaired surrogate. Never throws.
std::optional<Json> parseJson(std::string_view bytes);

// parseKeepingNumbers for the sorted tree.
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
