// Claude Code's hook event and transcript records, with their decoders.
//
// The event decodes leniently at the top level (a missing, null or mistyped
// member takes its default) and strictly inside nested records (one mistyped
// value fails the record, which then takes its top-level default). Only input
// that is not a JSON object fails as a whole.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "text/Json.hpp"

namespace AgentHook::Claude {

struct ElicitationOption {
    std::string label;
    std::optional<std::string> description;
};

struct ElicitationQuestion {
    std::string question;
    std::optional<std::string> header;
    std::vector<ElicitationOption> options;
    std::optional<bool> multiSelect;
};

struct ToolInputData {
    std::optional<std::vector<ElicitationQuestion>> questions;
    std::optional<std::string> question;
    std::optional<std::string> header;
    std::optional<std::vector<ElicitationOption>> options;
    std::optional<bool> multiSelect;
    std::optional<std::string> command;
    std::optional<std::string> description;
    std::optional<std::string> filePath;
    std::optional<std::string> oldString;
    std::optional<std::string> newString;
    std::optional<std::string> content;
    std::optional<std::string> pattern;
    std::optional<std::string> path;
    std::optional<std::string> url;
    std::optional<std::string> query;
    std::optional<std::map<std::string, std::string>> answers;

    // The questions of an AskUserQuestion call: the list, else one question
    // built from the single-question fields, else nothing.
    std::optional<std::vector<ElicitationQuestion>> elicitationQuestions() const;
};

struct PermissionSuggestion {
    std::optional<std::string> type;
    std::optional<std::vector<std::map<std::string, std::string>>> rules;
    std::optional<std::string> behavior;
    std::optional<std::string> tool;
};

struct HookInput {
    std::string sessionId;
    std::optional<std::string> transcriptPath;
    std::string cwd;
    std::optional<bool> stopHookActive;
    std::optional<std::string> hookEventName;
    std::optional<std::string> message;
    std::optional<std::string> notificationType;
    std::string toolName = "unknown";
    std::optional<ToolInputData> toolInput;
    // "tool_input" as sent, to find the same call in the transcript.
    std::optional<text::Json> toolInputJson;
    std::optional<std::vector<PermissionSuggestion>> permissionSuggestions;
    std::optional<std::string> permissionMode;
    std::optional<std::string> lastAssistantMessage;
};

// Nothing when the bytes are not a JSON object. `now` is the Unix time used
// for a missing session id ("claude_" + seconds).
std::optional<HookInput> decodeHookInput(std::string_view bytes, std::int64_t now);

std::optional<ElicitationOption> decodeElicitationOption(const text::Json& value);
std::optional<ElicitationQuestion> decodeElicitationQuestion(const text::Json& value);
std::optional<ToolInputData> decodeToolInput(const text::Json& value);
std::optional<PermissionSuggestion> decodePermissionSuggestion(const text::Json& value);

text::Json toJson(const ElicitationOption& option);
text::Json toJson(const ElicitationQuestion& question);

// One line of a session transcript.
struct TranscriptEntry {
    struct ToolInput {
        std::optional<std::vector<ElicitationQuestion>> questions;
    };
    struct ContentBlock {
        std::optional<std::string> type;
        std::optional<std::string> text;
        std::optional<std::string> name;
        std::optional<ToolInput> input;
    };
    // A string, or a list of blocks; anything else decodes as the empty string.
    using ContentValue = std::variant<std::string, std::vector<ContentBlock>>;
    struct Message {
        std::optional<ContentValue> content;
    };

    std::optional<std::string> type;
    std::optional<Message> message;
    std::optional<std::string> slug;
};

std::optional<TranscriptEntry> decodeTranscriptEntry(std::string_view line);

// The string itself, or the texts of the "text" blocks joined by line feeds.
std::string contentText(const TranscriptEntry::ContentValue& content);

}  // namespace AgentHook::Claude
