#include "OrderedJson.hpp"

#include <vector>

#include "text/Utf8.hpp"

namespace AgentHook::Setup {
namespace {

// Builds the tree as nlohmann's own DOM parser does, keeping the text of
// floating-point numbers as a binary value that the writer puts out verbatim,
// and remembering where a syntax error was found.
class OrderedBuilder : public nlohmann::json_sax<OrderedJson> {
public:
    static constexpr std::size_t kMaxDepth = 512;
    OrderedJson root;
    std::size_t errorOffset = 0;
    std::string problem;

    bool null() override { return add(OrderedJson(nullptr)); }
    bool boolean(bool value) override { return add(OrderedJson(value)); }
    bool number_integer(number_integer_t value) override { return add(OrderedJson(value)); }
    bool number_unsigned(number_unsigned_t value) override { return add(OrderedJson(value)); }
    bool number_float(number_float_t, const string_t& text) override {
        return add(OrderedJson::binary(OrderedJson::binary_t::container_type(text.begin(), text.end())));
    }
    bool string(string_t& value) override { return add(OrderedJson(std::move(value))); }
    bool binary(binary_t& value) override { return add(OrderedJson::binary(std::move(value))); }
    bool start_object(std::size_t) override { return open(OrderedJson::object()); }
    bool key(string_t& name) override {
        key_ = std::move(name);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(OrderedJson::array()); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& error) override {
        errorOffset = position;
        problem = error.what();
        // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ..."
        if (const std::size_t colon = problem.find(": "); colon != std::string::npos) problem.erase(0, colon + 2);
        return false;
    }

private:
    OrderedJson* place(OrderedJson&& value) {
        if (stack_.empty()) {
            root = std::move(value);
            return &root;
        }
        OrderedJson& parent = *stack_.back();
        if (parent.is_array()) {
            parent.push_back(std::move(value));
            return &parent.back();
        }
        OrderedJson& slot = parent[key_];
        slot = std::move(value);
        return &slot;
    }
    bool add(OrderedJson&& value) {
        place(std::move(value));
        return true;
    }
    bool open(OrderedJson&& container) {
        if (stack_.size() >= kMaxDepth) {
            problem = "nested more than 512 levels deep";
            return false;
        }
        stack_.push_back(place(std::move(container)));
        return true;
    }
    bool close() {
        stack_.pop_back();
        return true;
    }

    std::vector<OrderedJson*> stack_;
    std::string key_;
};

// Where byte `offset` lies, 1-based; an offset past the end is the end.
void locate(std::string_view bytes, std::size_t offset, std::size_t& line, std::size_t& column) {
    if (offset > bytes.size()) offset = bytes.size();
    line = 1;
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < offset; ++i) {
        if (bytes[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    }
    column = offset - lineStart + 1;
}

bool appendString(std::string& out, std::string_view text) {
    if (!text::isValidUtf8(text)) return false;
    static constexpr char hex[] = "0123456789abcdef";
    out.push_back('"');
    for (const char c : text) {
        switch (c) {
            case '"': out.append("\\\""); break;
            case '\\': out.append("\\\\"); break;
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

bool writeValue(std::string& out, const OrderedJson& value, const std::string& indent, int depth) {
    auto newline = [&](int level) {
        out.push_back('\n');
        for (int i = 0; i < level; ++i) out.append(indent);
    };
    switch (value.type()) {
        case OrderedJson::value_t::object: {
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
                if (!appendString(out, key)) return false;
                out.append(": ");
                if (!writeValue(out, member, indent, depth + 1)) return false;
            }
            newline(depth);
            out.push_back('}');
            return true;
        }
        case OrderedJson::value_t::array: {
            if (value.empty()) {
                out.append("[]");
                return true;
            }
            out.push_back('[');
            bool first = true;
            for (const OrderedJson& element : value) {
                if (!first) out.push_back(',');
                first = false;
                newline(depth + 1);
                if (!writeValue(out, element, indent, depth + 1)) return false;
            }
            newline(depth);
            out.push_back(']');
            return true;
        }
        case OrderedJson::value_t::string:
            return appendString(out, value.get_ref<const std::string&>());
        case OrderedJson::value_t::binary: {
            const auto& digits = value.get_binary();
            out.append(digits.begin(), digits.end());
            return true;
        }
        case OrderedJson::value_t::discarded:
            return false;
        default:
            out.append(value.dump());
            return true;
    }
}

}  // namespace

ParseResult parseOrderedJson(std::string_view bytes) {
    ParseResult result;
    if (const std::size_t nul = bytes.find('\0'); nul != std::string_view::npos) {
        locate(bytes, nul, result.line, result.column);
        result.problem = "a NUL byte";
        return result;
    }
    OrderedBuilder builder;
    if (OrderedJson::sax_parse(bytes.begin(), bytes.end(), &builder, nlohmann::json::input_format_t::json, true)) {
        result.value = std::move(builder.root);
        return result;
    }
    // The parser counts the offending byte as read: step back onto it.
    locate(bytes, builder.errorOffset > 0 ? builder.errorOffset - 1 : 0, result.line, result.column);
    result.problem = builder.problem.empty() ? "not valid JSON" : builder.problem;
    return result;
}

Layout detectLayout(std::string_view bytes) {
    Layout layout;
    layout.finalLineFeed = bytes.empty() || bytes.back() == '\n';
    for (std::size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n', at + 1)) {
        const std::size_t start = at + 1;
        std::size_t end = start;
        while (end < bytes.size() && (bytes[end] == ' ' || bytes[end] == '\t')) ++end;
        if (end > start && end < bytes.size() && bytes[end] != '\n' && bytes[end] != '\r') {
            layout.indent = std::string(bytes.substr(start, end - start));
            break;
        }
    }
    return layout;
}

std::optional<std::string> writeOrderedJson(const OrderedJson& value, const Layout& layout) {
    std::string out;
    if (!writeValue(out, value, layout.indent, 0)) return std::nullopt;
    if (layout.finalLineFeed) out.push_back('\n');
    return out;
}

}  // namespace AgentHook::Setup
