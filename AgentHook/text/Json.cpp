#include "text/Json.hpp"

#include "text/Utf8.hpp"

namespace AgentHook::text {
namespace {

bool writeValue(std::string& out, const Json& value, int indent, int depth) {
    const bool pretty = indent > 0;
    auto newline = [&](int level) {
        if (!pretty) return;
        out.push_back('\n');
        out.append(static_cast<std::size_t>(indent * level), ' ');
    };
    switch (value.type()) {
        case Json::value_t::object: {
            if (value.empty()) {
                out.append("{}");
                return true;
            }
            out.push_back('{');
            bool first = true;
            for (const auto& [key, member] : value.items()) {
                if (!first) out.push_back(',');
                first = false;
                newline(depth + 1);
                if (!appendJsonString(out, key)) return false;
                out.append(pretty ? " : " : ":");
                if (!writeValue(out, member, indent, depth + 1)) return false;
            }
            newline(depth);
            out.push_back('}');
            return true;
        }
        case Json::value_t::array: {
            if (value.empty()) {
                out.append("[]");
                return true;
            }
            out.push_back('[');
            bool first = true;
            for (const Json& element : value) {
                if (!first) out.push_back(',');
                first = false;
                newline(depth + 1);
                if (!writeValue(out, element, indent, depth + 1)) return false;
            }
            newline(depth);
            out.push_back(']');
            return true;
        }
        case Json::value_t::string:
            return appendJsonString(out, value.get_ref<const std::string&>());
        case Json::value_t::discarded:
            return false;
        default:
            // null, booleans and numbers have one spelling.
            out.append(value.dump());
            return true;
    }
}

}  // namespace

bool appendJsonString(std::string& out, std::string_view text) {
    if (!isValidUtf8(text)) return false;
    static constexpr char hex[] = "0123456789abcdef";
    out.push_back('"');
    for (const char c : text) {
        switch (c) {
            case '"': out.append("\\\""); break;
            case '\\': out.append("\\\\"); break;
            case '/': out.append("\\/"); break;
            case '\b': out.append("\\b"); break;
            case '\f': out.append("\\f"); break;
            case '\n': out.append("\\n"); break;
            case '\r': out.append("\\r"); break;
            case '\t': out.append("\\t"); break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    out.append("\\u00");
                    out.push_back(hex[(c >> 4) & 0x0f]);
                    out.push_back(hex[c & 0x0f]);
                } else {
                    out.push_back(c);
                }
        }
    }
    out.push_back('"');
    return true;
}

std::optional<std::string> toCompactJson(const Json& value) {
    std::string out;
    if (!writeValue(out, value, 0, 0)) return std::nullopt;
    return out;
}

std::optional<std::string> toPrettyJson(const Json& value) {
    std::string out;
    if (!writeValue(out, value, 2, 0)) return std::nullopt;
    return out;
}

std::optional<Json> parseJson(std::string_view bytes) {
    Json value = Json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

std::optional<std::string> stringMember(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

std::optional<bool> boolMember(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_boolean()) return std::nullopt;
    return found->get<bool>();
}

bool readOptional(const Json& object, const char* key, std::optional<std::string>& out) {
    out.reset();
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return true;
    if (!found->is_string()) return false;
    out = found->get<std::string>();
    return true;
}

bool readOptional(const Json& object, const char* key, std::optional<bool>& out) {
    out.reset();
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return true;
    if (!found->is_boolean()) return false;
    out = found->get<bool>();
    return true;
}

}  // namespace AgentHook::text
