#include "text/Json.hpp"

#include <type_traits>
#include <unordered_map>

#include "text/Utf8.hpp"

namespace AgentHook::text {
namespace {

// The parser takes a NUL byte for the end of its input, so "{}" followed by a
// NUL and anything at all would pass for an object. JSON text never holds one.
bool hasNulByte(std::string_view bytes) { return bytes.find('\0') != std::string_view::npos; }

template <class J>
bool writeValue(std::string& out, const J& value, const JsonLayout& layout, int depth) {
    const bool pretty = !layout.indent.empty();
    auto newline = [&](int level) {
        if (!pretty) return;
        out.push_back('\n');
        for (int i = 0; i < level; ++i) out.append(layout.indent);
    };
    switch (value.type()) {
        case J::value_t::object:
        case J::value_t::array: {
            const bool object = value.is_object();
            if (value.empty()) {
                out.append(object ? "{}" : "[]");
                return true;
            }
            out.push_back(object ? '{' : '[');
            bool first = true;
            for (const auto& [key, member] : value.items()) {
                if (!first) out.push_back(',');
                first = false;
                newline(depth + 1);
                if (object) {
                    if (!appendJsonString(out, key, layout.escapeSlash)) return false;
                    out.append(layout.keySeparator);
                }
                if (!writeValue(out, member, layout, depth + 1)) return false;
            }
            newline(depth);
            out.push_back(object ? '}' : ']');
            return true;
        }
        case J::value_t::string:
            return appendJsonString(out, value.template get_ref<const std::string&>(), layout.escapeSlash);
        case J::value_t::binary: {
            const auto& digits = value.get_binary();
            out.append(digits.begin(), digits.end());
            return true;
        }
        case J::value_t::discarded:
            return false;
        default:
            // null, booleans and numbers have one spelling.
            out.append(value.dump());
            return true;
    }
}

}  // namespace

bool appendJsonString(std::string& out, std::string_view text, bool escapeSlash) {
    if (!isValidUtf8(text)) return false;
    static constexpr char hex[] = "0123456789abcdef";
    out.push_back('"');
    for (const char c : text) {
        switch (c) {
            case '"': out.append("\\\""); break;
            case '\\': out.append("\\\\"); break;
            case '/': out.append(escapeSlash ? "\\/" : "/"); break;
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

template <class J>
std::optional<std::string> writeJson(const J& value, const JsonLayout& layout) {
    std::string out;
    if (!writeValue(out, value, layout, 0)) return std::nullopt;
    return out;
}

template std::optional<std::string> writeJson(const Json&, const JsonLayout&);
template std::optional<std::string> writeJson(const nlohmann::ordered_json&, const JsonLayout&);

std::optional<std::string> toCompactJson(const Json& value) { return writeJson(value, JsonLayout{"", ":"}); }

std::optional<std::string> toPrettyJson(const Json& value) { return writeJson(value, JsonLayout{"  ", " : "}); }

std::optional<Json> parseJson(std::string_view bytes) {
    if (hasNulByte(bytes)) return std::nullopt;
    Json value = Json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

namespace {

// Builds the tree as nlohmann's own DOM parser does, keeping the text of
// floating-point numbers, and remembering where a syntax error was found.
template <class J>
class KeepingNumbers : public nlohmann::json_sax<J> {
    using Base = nlohmann::json_sax<J>;

public:
    static constexpr std::size_t kMaxDepth = 512;
    J root;
    std::size_t errorOffset = 0;
    std::string problem;

    bool null() override { return add(J(nullptr)); }
    bool boolean(bool value) override { return add(J(value)); }
    bool number_integer(typename Base::number_integer_t value) override { return add(J(value)); }
    bool number_unsigned(typename Base::number_unsigned_t value) override { return add(J(value)); }
    bool number_float(typename Base::number_float_t, const typename Base::string_t& text) override {
        return add(J::binary(typename J::binary_t::container_type(text.begin(), text.end())));
    }
    bool string(typename Base::string_t& value) override { return add(J(std::move(value))); }
    bool binary(typename Base::binary_t& value) override { return add(J::binary(std::move(value))); }
    bool start_object(std::size_t) override { return open(J::object()); }
    bool key(typename Base::string_t& name) override {
        key_ = std::move(name);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(J::array()); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& error) override {
        errorOffset = position;
        problem = error.what();
        // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ..."
        if (const std::size_t colon = problem.find(": "); colon != std::string::npos) problem.erase(0, colon + 2);
        return false;
    }

private:
    // Places a value in the open container (or as the root); the new value's address.
    J* place(J&& value) {
        if (stack_.empty()) {
            root = std::move(value);
            return &root;
        }
        J& parent = *stack_.back();
        if (parent.is_array()) {
            parent.push_back(std::move(value));
            return &parent.back();
        }
        if constexpr (kOrdered) {
            // An ordered object looks a key up from its start: with the
            // object's own index the whole parse stays linear in the input.
            auto& members = static_cast<OrderedMembers&>(parent.template get_ref<typename J::object_t&>());
            auto& index = indexes_.back();
            if (const auto found = index.find(key_); found != index.end()) {
                members[found->second].second = std::move(value);
                return &members[found->second].second;
            }
            index.emplace(key_, members.size());
            members.emplace_back(std::move(key_), std::move(value));
            return &members.back().second;
        } else {
            J& slot = parent[key_];
            slot = std::move(value);
            return &slot;
        }
    }
    bool add(J&& value) {
        place(std::move(value));
        return true;
    }
    bool open(J&& container) {
        if (stack_.size() >= kMaxDepth) {
            problem = "nested more than 512 levels deep";
            return false;
        }
        stack_.push_back(place(std::move(container)));
        if constexpr (kOrdered) indexes_.emplace_back();  // an array's stays empty
        return true;
    }
    bool close() {
        stack_.pop_back();
        if constexpr (kOrdered) indexes_.pop_back();
        return true;
    }

    using OrderedMembers = std::vector<std::pair<const typename J::object_t::key_type, J>>;
    static constexpr bool kOrdered = std::is_base_of_v<OrderedMembers, typename J::object_t>;

    std::vector<J*> stack_;
    std::vector<std::unordered_map<std::string, std::size_t>> indexes_;
    std::string key_;
};

}  // namespace

namespace {

// Counts the nesting, as KeepingNumbers limits it, and keeps nothing.
class DepthOnly : public nlohmann::json_sax<nlohmann::ordered_json> {
    using Base = nlohmann::json_sax<nlohmann::ordered_json>;

public:
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(Base::number_integer_t) override { return true; }
    bool number_unsigned(Base::number_unsigned_t) override { return true; }
    bool number_float(Base::number_float_t, const Base::string_t&) override { return true; }
    bool string(Base::string_t&) override { return true; }
    bool binary(Base::binary_t&) override { return true; }
    bool start_object(std::size_t) override { return ++depth_ <= KeepingNumbers<nlohmann::ordered_json>::kMaxDepth; }
    bool key(Base::string_t&) override { return true; }
    bool end_object() override { return --depth_, true; }
    bool start_array(std::size_t) override { return ++depth_ <= KeepingNumbers<nlohmann::ordered_json>::kMaxDepth; }
    bool end_array() override { return --depth_, true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

private:
    std::size_t depth_ = 0;
};

}  // namespace

bool isKeptJsonDocument(std::string_view bytes) {
    if (hasNulByte(bytes)) return false;
    DepthOnly counter;
    return nlohmann::ordered_json::sax_parse(bytes.begin(), bytes.end(), &counter, nlohmann::json::input_format_t::json,
                                             true);
}

template <class J>
KeptJson<J> parseKeepingNumbers(std::string_view bytes) {
    KeptJson<J> result;
    if (const std::size_t nul = bytes.find('\0'); nul != std::string_view::npos) {
        result.errorOffset = nul;
        result.problem = "a NUL byte";
        return result;
    }
    KeepingNumbers<J> builder;
    if (J::sax_parse(bytes.begin(), bytes.end(), &builder, nlohmann::json::input_format_t::json, true)) {
        result.value = std::move(builder.root);
        return result;
    }
    // The parser counts the offending byte as read: step back onto it.
    result.errorOffset = builder.errorOffset > 0 ? builder.errorOffset - 1 : 0;
    result.problem = builder.problem.empty() ? "not valid JSON" : builder.problem;
    return result;
}

template KeptJson<Json> parseKeepingNumbers(std::string_view);
template KeptJson<nlohmann::ordered_json> parseKeepingNumbers(std::string_view);

std::optional<Json> parseJsonKeepingNumbers(std::string_view bytes) { return parseKeepingNumbers<Json>(bytes).value; }

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
