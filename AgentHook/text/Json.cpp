#include "text/Json.hpp"

#include "text/Utf8.hpp"

namespace AgentHook::text {
namespace {

// The parser takes a NUL byte for the end of its input, so "{}" followed by a
// NUL and anything at all would pass for an object. JSON text never holds one.
bool hasNulByte(std::string_view bytes) { return bytes.find('\0') != std::string_view::npos; }

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
        case Json::value_t::binary: {
            // A number's text as it was read (parseJsonKeepingNumbers).
            const auto& digits = value.get_binary();
            out.append(digits.begin(), digits.end());
            return true;
        }
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
    if (hasNulByte(bytes)) return std::nullopt;
    Json value = Json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

namespace {

// Builds the tree as nlohmann's own DOM parser does, keeping the text of
// floating-point numbers.
class KeepingNumbers : public nlohmann::json_sax<Json> {
public:
    static constexpr std::size_t kMaxDepth = 512;
    Json root;

    bool null() override { return add(Json(nullptr)); }
    bool boolean(bool value) override { return add(Json(value)); }
    bool number_integer(number_integer_t value) override { return add(Json(value)); }
    bool number_unsigned(number_unsigned_t value) override { return add(Json(value)); }
    bool number_float(number_float_t, const string_t& text) override {
        return add(Json::binary(Json::binary_t::container_type(text.begin(), text.end())));
    }
    bool string(string_t& value) override { return add(Json(std::move(value))); }
    bool binary(binary_t& value) override { return add(Json::binary(std::move(value))); }
    bool start_object(std::size_t) override { return open(Json::object()); }
    bool key(string_t& name) override {
        key_ = std::move(name);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(Json::array()); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

private:
    // Places a value in the open container (or as the root); the new value's address.
    Json* place(Json&& value) {
        if (stack_.empty()) {
            root = std::move(value);
            return &root;
        }
        Json& parent = *stack_.back();
        if (parent.is_array()) {
            parent.push_back(std::move(value));
            return &parent.back();
        }
        Json& slot = parent[key_];
        slot = std::move(value);
        return &slot;
    }
    bool add(Json&& value) {
        place(std::move(value));
        return true;
    }
    bool open(Json&& container) {
        if (stack_.size() >= kMaxDepth) return false;
        stack_.push_back(place(std::move(container)));
        return true;
    }
    bool close() {
        stack_.pop_back();
        return true;
    }

    std::vector<Json*> stack_;
    std::string key_;
};

}  // namespace

std::optional<Json> parseJsonKeepingNumbers(std::string_view bytes) {
    if (hasNulByte(bytes)) return std::nullopt;
    KeepingNumbers builder;
    if (!Json::sax_parse(bytes.begin(), bytes.end(), &builder, nlohmann::json::input_format_t::json, true)) {
        return std::nullopt;
    }
    return std::move(builder.root);
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
