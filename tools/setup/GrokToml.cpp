#include "GrokToml.hpp"

#include <cstdlib>
#include <optional>

namespace AgentHook::Setup {
namespace {

bool isKeyCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

// One past the string that starts at `at` (a quote).
std::size_t skipString(std::string_view text, std::size_t at) {
    const char quote = text[at];
    for (++at; at < text.size() && text[at] != quote; ++at) {
        if (quote == '"' && text[at] == '\\') ++at;
    }
    return at + 1;
}

// The line without its comment.
std::string_view withoutComment(std::string_view line) {
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '"' || line[at] == '\'') {
            at = skipString(line, at) - 1;
        } else if (line[at] == '#') {
            return line.substr(0, at);
        }
    }
    return line;
}

std::optional<std::string> stringAt(std::string_view text, std::size_t at) {
    if (at >= text.size() || (text[at] != '"' && text[at] != '\'')) return std::nullopt;
    const std::size_t end = skipString(text, at);
    if (end > text.size()) return std::nullopt;
    std::string value;
    for (std::size_t i = at + 1; i + 1 < end; ++i) {
        if (text[at] == '"' && text[i] == '\\' && i + 2 < end) {
            const char escaped = text[++i];
            value += escaped == 'n' ? '\n' : escaped == 't' ? '\t' : escaped;
        } else {
            value += text[i];
        }
    }
    return value;
}

// Where the value of `key = value` starts in `text`, outside strings.
std::optional<std::size_t> valueOf(std::string_view text, std::string_view key) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '"' || text[at] == '\'') {
            at = skipString(text, at) - 1;
            continue;
        }
        if (text.substr(at, key.size()) != key || (at > 0 && isKeyCharacter(text[at - 1]))) continue;
        std::size_t after = at + key.size();
        while (after < text.size() && (text[after] == ' ' || text[after] == '\t')) ++after;
        if (after >= text.size() || text[after] != '=') continue;
        ++after;
        while (after < text.size() && (text[after] == ' ' || text[after] == '\t')) ++after;
        return after;
    }
    return std::nullopt;
}

std::optional<std::string> stringValue(std::string_view text, std::string_view key) {
    const std::optional<std::size_t> at = valueOf(text, key);
    return at ? stringAt(text, *at) : std::nullopt;
}

std::optional<double> numberValue(std::string_view text, std::string_view key) {
    const std::optional<std::size_t> at = valueOf(text, key);
    if (!at) return std::nullopt;
    std::string digits;
    for (std::size_t i = *at; i < text.size() && std::string_view("0123456789+-._eE").find(text[i]) != std::string_view::npos; ++i) {
        if (text[i] != '_') digits += text[i];
    }
    char* end = nullptr;
    const double value = std::strtod(digits.c_str(), &end);
    return !digits.empty() && end == digits.c_str() + digits.size() ? std::optional(value) : std::nullopt;
}

// The inline tables `{ ... }` of a line.
std::vector<std::string_view> inlineTables(std::string_view line) {
    std::vector<std::string_view> tables;
    std::size_t open = std::string_view::npos;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '"' || line[at] == '\'') {
            at = skipString(line, at) - 1;
        } else if (line[at] == '{') {
            open = at;
        } else if (line[at] == '}' && open != std::string_view::npos) {
            tables.push_back(line.substr(open, at - open + 1));
            open = std::string_view::npos;
        }
    }
    return tables;
}

struct HookTable {
    std::string event;
    bool hooks = false;  // [[hooks.<Event>.hooks]], else the event's own table
    std::optional<std::string> matcher;
    std::optional<std::string> command;
    std::size_t commandLine = 0;
    std::optional<double> timeout;
};

void addIfOwn(std::vector<FoundEntry>& found, const HookTable& table, const std::string& command, std::size_t line,
              std::optional<double> timeout, const std::string& hookPath) {
    if (!isOwnCommand(command, hookPath)) return;
    FoundEntry entry;
    entry.event = table.event;
    entry.matcher = table.matcher;
    entry.command = command;
    entry.timeout = timeout;
    entry.line = line;
    found.push_back(std::move(entry));
}

}  // namespace

std::vector<FoundEntry> findTomlRegistration(std::string_view toml, const std::string& hookPath) {
    std::vector<FoundEntry> found;
    std::optional<HookTable> table;
    const auto closeTable = [&] {
        if (table && table->hooks && table->command) {
            addIfOwn(found, *table, *table->command, table->commandLine, table->timeout, hookPath);
        }
    };
    std::size_t lineNumber = 0;
    for (std::size_t start = 0; start <= toml.size();) {
        std::size_t end = toml.find('\n', start);
        if (end == std::string_view::npos) end = toml.size();
        const std::string_view line = trimmed(withoutComment(toml.substr(start, end - start)));
        start = end + 1;
        ++lineNumber;
        if (line.starts_with("[")) {
            closeTable();
            std::string name;
            for (const char c : line) {
                if (c != '[' && c != ']' && c != ' ' && c != '"' && c != '\'') name += c;
            }
            const std::optional<std::string> matcher = table ? table->matcher : std::nullopt;
            const std::string previousEvent = table ? table->event : std::string();
            table.reset();
            if (!line.starts_with("[[") || !name.starts_with("hooks.")) continue;
            const std::string rest = name.substr(6);
            const std::size_t dot = rest.find('.');
            table.emplace();
            table->event = rest.substr(0, dot);
            table->hooks = dot != std::string::npos && rest.substr(dot + 1) == "hooks";
            // A hook table belongs to the event table above it, and takes its matcher.
            if (table->hooks && table->event == previousEvent) table->matcher = matcher;
            continue;
        }
        if (!table) continue;
        if (!table->hooks) {
            if (std::optional<std::string> matcher = stringValue(line, "matcher")) table->matcher = matcher;
            for (const std::string_view inlineTable : inlineTables(line)) {
                if (std::optional<std::string> command = stringValue(inlineTable, "command")) {
                    addIfOwn(found, *table, *command, lineNumber, numberValue(inlineTable, "timeout"), hookPath);
                }
            }
        } else if (std::optional<std::string> command = stringValue(line, "command")) {
            table->command = command;
            table->commandLine = lineNumber;
        } else if (std::optional<double> timeout = numberValue(line, "timeout")) {
            table->timeout = timeout;
        }
    }
    closeTable();
    return found;
}

}  // namespace AgentHook::Setup
