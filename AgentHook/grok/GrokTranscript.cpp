#include "grok/GrokTranscript.hpp"

#include <map>
#include <string_view>
#include <vector>

#include "platform/Clock.hpp"
#include "platform/Environment.hpp"
#include "platform/Files.hpp"
#include "text/Utf8.hpp"

namespace AgentHook::Grok {

using text::Json;

namespace {

std::string sessionsRoot() {
    if (std::optional<std::string> grokHome = platform::environmentValue("GROK_HOME"); grokHome && !grokHome->empty()) {
        return *grokHome + "/sessions";
    }
    const std::string home = platform::homeDirectory();
    if (home.empty()) return {};
    return home + "/.grok/sessions";
}

// The member when it is there and an object.
const Json* objectMember(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_object() ? &*found : nullptr;
}

// The text of a chat-history line when it is a non-empty assistant message.
// The speaker is "type" when that is text, else "role".
std::optional<std::string> assistantText(std::string_view line) {
    const std::optional<Json> entry = text::parseJson(line);
    if (!entry || !entry->is_object()) return std::nullopt;
    std::optional<std::string> role = text::stringMember(*entry, "type");
    if (!role) role = text::stringMember(*entry, "role");
    if (role != "assistant") return std::nullopt;
    const auto content = entry->find("content");
    std::string message = extractText(content != entry->end() ? &*content : nullptr);
    if (message.empty()) return std::nullopt;
    return message;
}

// A line holding the string "agent_message_chunk" spells it literally or with
// a \u escape (the word has no other character JSON escapes), so any other
// line is passed over without parsing it.
bool mayHoldMessageChunk(std::string_view line) {
    return line.find("agent_message_chunk") != std::string_view::npos || line.find("\\u") != std::string_view::npos;
}

struct MessageChunk {
    std::string promptId;
    std::string text;
};

std::optional<MessageChunk> decodeMessageChunk(std::string_view line) {
    if (!mayHoldMessageChunk(line)) return std::nullopt;
    const std::optional<Json> notification = text::parseJson(line);
    if (!notification || !notification->is_object()) return std::nullopt;
    const Json* params = objectMember(*notification, "params");
    const Json* update = params ? objectMember(*params, "update") : nullptr;
    if (!update || text::stringMember(*update, "sessionUpdate") != "agent_message_chunk") return std::nullopt;
    const Json* content = objectMember(*update, "content");
    std::optional<std::string> chunkText = content ? text::stringMember(*content, "text") : std::nullopt;
    if (!chunkText) return std::nullopt;
    // The update's own _meta, when it is an object, decides alone; only
    // without it does the envelope's _meta count.
    const Json* meta = objectMember(*update, "_meta");
    if (!meta) meta = objectMember(*params, "_meta");
    std::optional<std::string> promptId = meta ? text::stringMember(*meta, "promptId") : std::nullopt;
    return MessageChunk{promptId.value_or(std::string()), std::move(*chunkText)};
}

}  // namespace

std::optional<std::string> findSessionFile(const std::string& sessionId, const std::string& name) {
    const std::string root = sessionsRoot();
    if (root.empty()) return std::nullopt;
    const std::optional<std::vector<std::string>> groups = platform::listDirectory(root);
    if (!groups) return std::nullopt;
    for (const std::string& group : *groups) {
        std::string path = root + "/" + group + "/" + sessionId + "/" + name;
        if (platform::fileExists(path)) return path;
    }
    return std::nullopt;
}

std::optional<std::string> readFileTail(const std::string& path, std::size_t maxBytes) {
    std::optional<platform::FileTail> tail = platform::readTail(path, maxBytes);
    if (!tail || !text::isValidUtf8(tail->bytes)) return std::nullopt;
    if (tail->startOffset != 0) {
        if (const std::size_t lineFeed = tail->bytes.find('\n'); lineFeed != std::string::npos) {
            tail->bytes.erase(0, lineFeed + 1);
        }
    }
    return std::move(tail->bytes);
}

std::string extractText(const Json* value) {
    if (value == nullptr) return {};
    if (value->is_string()) return value->get<std::string>();
    if (!value->is_array()) return {};
    std::string joined;
    for (const Json& block : *value) {
        if (!block.is_object()) return {};
        if (std::optional<std::string> blockText = text::stringMember(block, "text")) joined += *blockText;
    }
    return joined;
}

std::optional<std::string> lastFromChatHistory(const std::string& sessionId) {
    const std::optional<std::string> path = findSessionFile(sessionId, "chat_history.jsonl");
    if (!path) return std::nullopt;
    const std::optional<std::string> tail = readFileTail(*path, kChatHistoryTailBytes);
    if (!tail) return std::nullopt;
    return lastFromChatHistoryText(*tail);
}

std::optional<std::string> lastFromChatHistoryText(std::string_view tail) {
    // The last answer wins, so walk from the end and stop at the first one.
    std::string_view rest = tail;
    for (;;) {
        const std::size_t lineFeed = rest.rfind('\n');
        const std::string_view line = lineFeed == std::string_view::npos ? rest : rest.substr(lineFeed + 1);
        if (std::optional<std::string> message = assistantText(line)) return message;
        if (lineFeed == std::string_view::npos) return std::nullopt;
        rest = rest.substr(0, lineFeed);
    }
}

std::string lastFromUpdates(const std::string& sessionId, const std::optional<std::string>& promptId,
                            const std::optional<std::string>& transcriptPath) {
    std::optional<std::string> path;
    if (transcriptPath && platform::fileExists(*transcriptPath)) {
        path = transcriptPath;
    } else {
        path = findSessionFile(sessionId, "updates.jsonl");
    }
    if (!path) return {};
    const std::optional<std::string> tail = readFileTail(*path, kUpdatesTailBytes);
    if (!tail) return {};
    return lastFromUpdatesText(*tail, promptId);
}

std::string lastFromUpdatesText(std::string_view tail, const std::optional<std::string>& promptId) {
    std::map<std::string, std::string, std::less<>> replies;
    std::vector<std::string> promptOrder;  // by first chunk
    std::string_view rest = tail;
    while (!rest.empty()) {
        const std::size_t lineFeed = rest.find('\n');
        const std::string_view line = rest.substr(0, lineFeed);
        rest = lineFeed == std::string_view::npos ? std::string_view() : rest.substr(lineFeed + 1);
        std::optional<MessageChunk> chunk = decodeMessageChunk(line);
        if (!chunk) continue;
        auto [entry, isNew] = replies.try_emplace(chunk->promptId);
        if (isNew) promptOrder.push_back(chunk->promptId);
        entry->second += chunk->text;
    }

    if (promptId) {
        if (const auto found = replies.find(*promptId); found != replies.end() && !found->second.empty()) {
            return found->second;
        }
    }
    if (promptOrder.empty()) return {};
    return replies[promptOrder.back()];
}

std::string lastAssistantMessage(const std::string& sessionId, const std::optional<std::string>& promptId,
                                 const std::optional<std::string>& transcriptPath,
                                 const std::function<void(double seconds)>& pause) {
    if (std::optional<std::string> message = lastFromChatHistory(sessionId)) return std::move(*message);
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (attempt > 0) pause(0.04);
        std::string fromUpdates = lastFromUpdates(sessionId, promptId, transcriptPath);
        if (!fromUpdates.empty()) return fromUpdates;
        if (std::optional<std::string> message = lastFromChatHistory(sessionId)) return std::move(*message);
    }
    return {};
}

std::string lastAssistantMessage(const std::string& sessionId, const std::optional<std::string>& promptId,
                                 const std::optional<std::string>& transcriptPath) {
    return lastAssistantMessage(sessionId, promptId, transcriptPath, platform::sleepSeconds);
}

}  // namespace AgentHook::Grok
