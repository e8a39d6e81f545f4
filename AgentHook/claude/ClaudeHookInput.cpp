#include "claude/ClaudeHookInput.hpp"

namespace AgentHook::Claude {

using text::Json;
using text::readOptional;
using text::readOptionalList;

std::optional<ElicitationOption> decodeElicitationOption(const Json& value) {
    if (!value.is_object()) return std::nullopt;
    ElicitationOption option;
    std::optional<std::string> label;
    if (!readOptional(value, "label", label) || !label) return std::nullopt;
    option.label = std::move(*label);
    if (!readOptional(value, "description", option.description)) return std::nullopt;
    return option;
}

std::optional<ElicitationQuestion> decodeElicitationQuestion(const Json& value) {
    if (!value.is_object()) return std::nullopt;
    ElicitationQuestion question;
    std::optional<std::string> text;
    std::optional<std::vector<ElicitationOption>> options;
    if (!readOptional(value, "question", text) || !text) return std::nullopt;
    if (!readOptionalList(value, "options", options, decodeElicitationOption) || !options) return std::nullopt;
    if (!readOptional(value, "header", question.header)) return std::nullopt;
    if (!readOptional(value, "multiSelect", question.multiSelect)) return std::nullopt;
    question.question = std::move(*text);
    question.options = std::move(*options);
    return question;
}

namespace {

// A map whose every value is a string; any other value fails it.
std::optional<std::map<std::string, std::string>> decodeStringMap(const Json& value) {
    if (!value.is_object()) return std::nullopt;
    std::map<std::string, std::string> map;
    for (const auto& [key, member] : value.items()) {
        if (!member.is_string()) return std::nullopt;
        map.emplace(key, member.get<std::string>());
    }
    return map;
}

}  // namespace

std::optional<ToolInputData> decodeToolInput(const Json& value) {
    if (!value.is_object()) return std::nullopt;
    ToolInputData input;
    const bool valid =
        readOptionalList(value, "questions", input.questions, decodeElicitationQuestion) &&
        readOptional(value, "question", input.question) && readOptional(value, "header", input.header) &&
        readOptionalList(value, "options", input.options, decodeElicitationOption) &&
        readOptional(value, "multiSelect", input.multiSelect) && readOptional(value, "command", input.command) &&
        readOptional(value, "description", input.description) &&
        readOptional(value, "file_path", input.filePath) && readOptional(value, "old_string", input.oldString) &&
        readOptional(value, "new_string", input.newString) && readOptional(value, "content", input.content) &&
        readOptional(value, "pattern", input.pattern) && readOptional(value, "path", input.path) &&
        readOptional(value, "url", input.url) && readOptional(value, "query", input.query);
    if (!valid) return std::nullopt;
    if (const auto answers = value.find("answers"); answers != value.end() && !answers->is_null()) {
        input.answers = decodeStringMap(*answers);
        if (!input.answers) return std::nullopt;
    }
    return input;
}

std::optional<PermissionSuggestion> decodePermissionSuggestion(const Json& value) {
    if (!value.is_object()) return std::nullopt;
    PermissionSuggestion suggestion;
    const bool valid = readOptional(value, "type", suggestion.type) &&
                       readOptionalList(value, "rules", suggestion.rules, decodeStringMap) &&
                       readOptional(value, "behavior", suggestion.behavior) &&
                       readOptional(value, "tool", suggestion.tool);
    if (!valid) return std::nullopt;
    return suggestion;
}

std::optional<std::vector<ElicitationQuestion>> ToolInputData::elicitationQuestions() const {
    if (questions && !questions->empty()) return questions;
    if (question && !question->empty()) {
        ElicitationQuestion single;
        single.question = *question;
        single.header = header;
        single.options = options.value_or(std::vector<ElicitationOption>{});
        single.multiSelect = multiSelect;
        return std::vector<ElicitationQuestion>{std::move(single)};
    }
    return std::nullopt;
}

std::optional<HookInput> decodeHookInput(std::string_view bytes, std::int64_t now) {
    const std::optional<Json> parsed = text::parseJson(bytes);
    if (!parsed || !parsed->is_object()) return std::nullopt;
    const Json& object = *parsed;
    using text::boolMember;
    using text::stringMember;

    HookInput input;
    input.sessionId = stringMember(object, "session_id").value_or("claude_" + std::to_string(now));
    input.transcriptPath = stringMember(object, "transcript_path");
    input.cwd = stringMember(object, "cwd").value_or(std::string());
    input.stopHookActive = boolMember(object, "stop_hook_active");
    input.hookEventName = stringMember(object, "hook_event_name");
    input.message = stringMember(object, "message");
    input.notificationType = stringMember(object, "notification_type");
    input.toolName = stringMember(object, "tool_name").value_or("unknown");
    if (const auto tool = object.find("tool_input"); tool != object.end()) {
        input.toolInput = decodeToolInput(*tool);
        if (tool->is_object()) input.toolInputJson = *tool;
    }
    std::optional<std::vector<PermissionSuggestion>> suggestions;
    if (readOptionalList(object, "permission_suggestions", suggestions, decodePermissionSuggestion)) {
        input.permissionSuggestions = std::move(suggestions);
    }
    input.permissionMode = stringMember(object, "permission_mode");
    input.lastAssistantMessage = stringMember(object, "last_assistant_message");
    return input;
}

Json toJson(const ElicitationOption& option) {
    Json object = {{"label", option.label}};
    if (option.description) object["description"] = *option.description;
    return object;
}

Json toJson(const ElicitationQuestion& question) {
    Json options = Json::array();
    for (const ElicitationOption& option : question.options) options.push_back(toJson(option));
    Json object = {{"question", question.question}, {"options", std::move(options)}};
    if (question.header) object["header"] = *question.header;
    if (question.multiSelect) object["multiSelect"] = *question.multiSelect;
    return object;
}

namespace {

std::optional<TranscriptEntry::ContentBlock> decodeContentBlock(const Json& value) {
    if (!value.is_object()) return std::nullopt;
    TranscriptEntry::ContentBlock block;
    if (!readOptional(value, "type", block.type) || !readOptional(value, "text", block.text) ||
        !readOptional(value, "name", block.name)) {
        return std::nullopt;
    }
    if (const auto input = value.find("input"); input != value.end() && !input->is_null()) {
        if (!input->is_object()) return std::nullopt;
        TranscriptEntry::ToolInput toolInput;
        if (!readOptionalList(*input, "questions", toolInput.questions, decodeElicitationQuestion)) {
            return std::nullopt;
        }
        block.input = std::move(toolInput);
    }
    return block;
}

TranscriptEntry::ContentValue decodeContentValue(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_array()) {
        std::vector<TranscriptEntry::ContentBlock> blocks;
        blocks.reserve(value.size());
        for (const Json& element : value) {
            std::optional<TranscriptEntry::ContentBlock> block = decodeContentBlock(element);
            if (!block) return std::string();
            blocks.push_back(std::move(*block));
        }
        return blocks;
    }
    return std::string();
}

}  // namespace

std::optional<TranscriptEntry> decodeTranscriptEntry(std::string_view line) {
    const std::optional<Json> parsed = text::parseJson(line);
    if (!parsed || !parsed->is_object()) return std::nullopt;
    TranscriptEntry entry;
    if (!readOptional(*parsed, "type", entry.type) || !readOptional(*parsed, "slug", entry.slug)) {
        return std::nullopt;
    }
    if (const auto message = parsed->find("message"); message != parsed->end() && !message->is_null()) {
        if (!message->is_object()) return std::nullopt;
        TranscriptEntry::Message decoded;
        if (const auto content = message->find("content"); content != message->end() && !content->is_null()) {
            decoded.content = decodeContentValue(*content);
        }
        entry.message = std::move(decoded);
    }
    return entry;
}

std::string contentText(const TranscriptEntry::ContentValue& content) {
    if (const auto* text = std::get_if<std::string>(&content)) return *text;
    std::string joined;
    bool first = true;
    for (const TranscriptEntry::ContentBlock& block : std::get<std::vector<TranscriptEntry::ContentBlock>>(content)) {
        if (block.type != "text" || !block.text) continue;
        if (!first) joined.push_back('\n');
        joined.append(*block.text);
        first = false;
    }
    return joined;
}

}  // namespace AgentHook::Claude
