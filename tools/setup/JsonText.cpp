#include "JsonText.hpp"

#include "text/Json.hpp"

namespace AgentHook::Setup {
namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::size_t skipSpace(std::string_view text, std::size_t at) {
    while (at < text.size() && isSpace(text[at])) ++at;
    return at;
}

// `at` is an opening quote; returns one past the closing one.
std::size_t skipString(std::string_view text, std::size_t at) {
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\') ++at;
    }
    return at + 1;
}

std::string decodeKey(std::string_view literal) {
    if (literal.find('\\') == std::string_view::npos) return std::string(literal.substr(1, literal.size() - 2));
    const std::optional<text::Json> decoded = text::parseJson(literal);
    return decoded && decoded->is_string() ? decoded->get<std::string>() : std::string();
}

// How much of a value to map: every child, or (for what the edits never
// enter: every member of the document but "hooks") only where it ends.
// Mapping all of a large settings file would cost many times its size.
enum class Detail { all, outline, documentRoot };

// Past the container that opens at `at`, strings included.
std::size_t skipContainer(std::string_view text, std::size_t at) {
    int depth = 0;
    while (at < text.size()) {
        const char c = text[at];
        if (c == '"') {
            at = skipString(text, at);
            continue;
        }
        if (c == '{' || c == '[') ++depth;
        if ((c == '}' || c == ']') && --depth == 0) return at + 1;
        ++at;
    }
    return at;
}

JsonSpan scanValue(std::string_view text, std::size_t at, Detail detail) {
    JsonSpan span;
    span.begin = at;
    const char open = at < text.size() ? text[at] : '\0';
    if (open != '{' && open != '[') {
        span.end = open == '"' ? skipString(text, at) : at;
        if (open != '"') {
            while (span.end < text.size() && !isSpace(text[span.end]) && text[span.end] != ',' &&
                   text[span.end] != ']' && text[span.end] != '}') {
                ++span.end;
            }
        }
        return span;
    }
    span.kind = open == '{' ? JsonSpan::Kind::object : JsonSpan::Kind::array;
    if (detail == Detail::outline) {
        span.end = skipContainer(text, at);
        return span;
    }
    const char close = open == '{' ? '}' : ']';
    at = skipSpace(text, at + 1);
    while (at < text.size() && text[at] != close) {
        Detail childDetail = detail == Detail::all ? Detail::all : Detail::outline;
        if (span.kind == JsonSpan::Kind::object) {
            const std::size_t keyEnd = skipString(text, at);
            span.keyBegins.push_back(at);
            span.keys.push_back(decodeKey(text.substr(at, keyEnd - at)));
            if (detail == Detail::documentRoot && span.keys.back() == "hooks") childDetail = Detail::all;
            at = skipSpace(text, skipSpace(text, keyEnd) + 1);  // past the colon
        }
        span.children.push_back(scanValue(text, at, childDetail));
        at = skipSpace(text, span.children.back().end);
        if (at < text.size() && text[at] == ',') at = skipSpace(text, at + 1);
    }
    span.end = at + 1;
    return span;
}

// The spaces and tabs that start the line holding byte `at`.
std::string_view lineIndent(std::string_view text, std::size_t at) {
    const std::size_t lineStart = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;  // npos + 1 is 0
    std::size_t end = lineStart;
    while (end < text.size() && (text[end] == ' ' || text[end] == '\t')) ++end;
    return text.substr(lineStart, end - lineStart);
}

// The white space between child `index` and whatever precedes it.
std::string_view spaceBefore(std::string_view text, const JsonSpan& container, std::size_t index) {
    const std::size_t begin = container.childBegin(index);
    std::size_t from = begin;
    while (from > 0 && isSpace(text[from - 1])) --from;
    return text.substr(from, begin - from);
}

// How the document writes what it holds.
struct Style {
    std::string lineEnd = "\n";
    std::string indent = "  ";      // one level
    std::string keySeparator = ": ";
    bool oneLine = false;           // a document with content on a single line
};

// The text between the first member's key and its value, anywhere in the document.
std::optional<std::string> firstKeySeparator(std::string_view text, const JsonSpan& span) {
    if (span.kind == JsonSpan::Kind::object && span.size() > 0) {
        const std::size_t keyEnd = skipString(text, span.keyBegins[0]);
        return std::string(text.substr(keyEnd, span.children[0].begin - keyEnd));
    }
    for (const JsonSpan& child : span.children) {
        if (std::optional<std::string> separator = firstKeySeparator(text, child)) return separator;
    }
    return std::nullopt;
}

Style styleOf(std::string_view text) {
    Style style;
    const JsonSpan root = scanJson(text);
    if (text.find("\r\n") != std::string_view::npos) style.lineEnd = "\r\n";
    style.indent = detectLayout(text).indent;
    style.oneLine = root.size() > 0 && text.substr(root.begin, root.end - root.begin).find('\n') == std::string_view::npos;
    style.keySeparator = firstKeySeparator(text, root).value_or(style.oneLine ? ":" : ": ");
    return style;
}

// `value` written to follow `space` (the white space before it): on its own
// lines at that indentation when `space` breaks the line, else on one line.
std::optional<std::string> written(const OrderedJson& value, const Style& style, std::string_view space) {
    const std::size_t lineBreak = space.rfind('\n');
    const bool ownLines = lineBreak != std::string_view::npos;
    const std::optional<std::string> plain = text::writeJson(
        value, text::JsonLayout{ownLines ? std::string_view(style.indent) : std::string_view(), style.keySeparator, false});
    if (!plain || !ownLines) return plain;
    const std::string continuation = style.lineEnd + std::string(space.substr(lineBreak + 1));
    std::string out;
    for (const char c : *plain) {
        if (c == '\n') {
            out += continuation;
        } else {
            out += c;
        }
    }
    return out;
}

std::string spliced(std::string_view text, std::size_t from, std::size_t to, std::string_view replacement) {
    std::string out;
    out.reserve(text.size() - (to - from) + replacement.size());
    out.append(text.substr(0, from)).append(replacement).append(text.substr(to));
    return out;
}

}  // namespace

std::optional<std::size_t> JsonSpan::find(std::string_view key) const {
    for (std::size_t i = keys.size(); i-- > 0;) {
        if (keys[i] == key) return i;
    }
    return std::nullopt;
}

JsonSpan scanJson(std::string_view text) {
    // A byte order mark, which readers pass over, stays where it is.
    const std::size_t start = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
    return scanValue(text, skipSpace(text, start), Detail::documentRoot);
}

OrderedJson valueAt(std::string_view text, const JsonSpan& span) {
    OrderedJson value;
    if (!parseOrderedJson(text.substr(span.begin, span.end - span.begin), &value)) return OrderedJson();
    return value;
}

std::optional<std::string> insertChild(std::string_view text, const JsonSpan& container, std::size_t index,
                                       const std::optional<std::string>& key, const OrderedJson& value) {
    const Style style = styleOf(text);
    const std::size_t count = container.size();
    std::string space;
    if (count > 0) {
        space = spaceBefore(text, container, index < count ? index : count - 1);
    } else if (!style.oneLine) {
        space = style.lineEnd + std::string(lineIndent(text, container.begin)) + style.indent;
    }
    std::string child;
    if (key) {
        if (!text::appendJsonString(child, *key, false)) return std::nullopt;
        child += style.keySeparator;
    }
    const std::optional<std::string> valueText = written(value, style, space);
    if (!valueText) return std::nullopt;
    child += *valueText;
    if (count == 0) {
        const std::string closing =
            style.oneLine ? std::string() : style.lineEnd + std::string(lineIndent(text, container.begin));
        return spliced(text, container.begin + 1, container.end - 1, space + child + closing);
    }
    if (index < count) {
        const std::size_t at = container.childBegin(index);
        return spliced(text, at, at, child + "," + space);
    }
    const std::size_t at = container.children.back().end;
    return spliced(text, at, at, "," + space + child);
}

std::string removeChild(std::string_view text, const JsonSpan& container, std::size_t index) {
    if (container.size() == 1) return spliced(text, container.begin + 1, container.end - 1, "");
    if (index > 0) return spliced(text, container.children[index - 1].end, container.children[index].end, "");
    return spliced(text, container.childBegin(0), container.childBegin(1), "");
}

std::optional<std::string> replaceValue(std::string_view text, const JsonSpan& span, const OrderedJson& value) {
    const Style style = styleOf(text);
    std::string space;
    if (!style.oneLine) space.append("\n").append(lineIndent(text, span.begin));
    const std::optional<std::string> valueText = written(value, style, space);
    if (!valueText) return std::nullopt;
    return spliced(text, span.begin, span.end, *valueText);
}

}  // namespace AgentHook::Setup
