// What the fuzz targets share: a check that stops the run the way a crash
// does (libFuzzer then keeps the input), and the splitting of one input into
// several arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "text/Json.hpp"

namespace fuzz {

inline std::string_view bytesOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

inline void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

// The pieces between NUL bytes (one piece when there is none).
inline std::vector<std::string_view> splitAtNul(std::string_view bytes) {
    std::vector<std::string_view> pieces;
    for (;;) {
        const std::size_t nul = bytes.find('\0');
        pieces.push_back(bytes.substr(0, nul));
        if (nul == std::string_view::npos) return pieces;
        bytes.remove_prefix(nul + 1);
    }
}

// Whether the bytes are one JSON object, as every decoder of an event reads it.
inline bool isJsonObject(std::string_view bytes) {
    const std::optional<AgentHook::text::Json> parsed = AgentHook::text::parseJson(bytes);
    return parsed && parsed->is_object();
}

// A tree built from decoded input can be written, and reads back the same.
inline void requireRoundTrip(const AgentHook::text::Json& value, const char* what) {
    const std::optional<std::string> bytes = AgentHook::text::toCompactJson(value);
    require(bytes.has_value(), what);
    const std::optional<AgentHook::text::Json> back = AgentHook::text::parseJson(*bytes);
    require(back && *back == value, what);
}

}  // namespace fuzz
