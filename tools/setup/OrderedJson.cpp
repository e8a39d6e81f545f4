#include "OrderedJson.hpp"

#include "text/Json.hpp"

namespace AgentHook::Setup {
namespace {

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

}  // namespace

bool parseOrderedJson(std::string_view bytes, OrderedJson* out, std::string* err) {
    text::KeptJson<OrderedJson> kept = text::parseKeepingNumbers<OrderedJson>(bytes);
    if (kept.value) {
        *out = std::move(*kept.value);
        return true;
    }
    if (err) {
        std::size_t line = 0;
        std::size_t column = 0;
        locate(bytes, kept.errorOffset, line, column);
        *err = std::to_string(line) + ":" + std::to_string(column) + ": not valid JSON (" + kept.problem + ")";
    }
    return false;
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
    // The agents' own spelling: `"key": value`, and "/" left as it is.
    std::optional<std::string> out = text::writeJson(value, text::JsonLayout{layout.indent, ": ", false});
    if (out && layout.finalLineFeed) out->push_back('\n');
    return out;
}

}  // namespace AgentHook::Setup
