#include "claude/TranscriptWatch.hpp"

#include <algorithm>

#include "platform/Clock.hpp"
#include "platform/Files.hpp"

namespace AgentHook::Claude {

using text::Json;

namespace {

constexpr std::size_t kReadPerLook = 1 << 20;
constexpr double kReadBudgetPerSecond = 0.25;
constexpr std::size_t kHistoryBytes = 1 << 20;
// A longer line (a large file's contents in a tool result) is passed over.
constexpr std::size_t kLongestLine = 16 << 20;

const Json* contentBlocks(const Json& entry) {
    const auto message = entry.find("message");
    if (message == entry.end() || !message->is_object()) return nullptr;
    const auto content = message->find("content");
    return content != message->end() && content->is_array() ? &*content : nullptr;
}

// The same tool, and every member of the call's input as the event has it:
// Claude Code adds members for its hooks (a plan review's plan), never drops one.
bool isPendingCall(const Json& block, const PendingCall& call) {
    const auto name = block.find("name");
    if (name == block.end() || *name != call.toolName) return false;
    if (!call.input) return true;
    const auto input = block.find("input");
    if (input == block.end() || !input->is_object()) return false;
    for (const auto& [key, value] : input->items()) {
        const auto same = call.input->find(key);
        if (same == call.input->end() || *same != value) return false;
    }
    return true;
}

// Calls each line of `text` that is complete; returns the length consumed.
template <class OnLine>
std::size_t forEachLine(std::string_view text, OnLine onLine) {
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string_view::npos; start = end + 1) {
        std::string_view line = text.substr(start, end - start);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (onLine(line)) return end + 1;
    }
    return start;
}

void rememberCallIds(TranscriptWatch& watch, const Json& entry) {
    const Json* blocks = contentBlocks(entry);
    if (blocks == nullptr) return;
    for (const Json& block : *blocks) {
        if (!block.is_object() || text::stringMember(block, "type") != "tool_use" || !isPendingCall(block, *watch.call)) continue;
        const auto id = block.find("id");
        if (id != block.end() && id->is_string()) watch.callIds.push_back(id->get<std::string>());
    }
}

}  // namespace

std::optional<std::string> movedOnByLine(TranscriptWatch& watch, std::string_view line) {
    // Most lines cannot matter; only those that can are parsed.
    const bool mayMatter = watch.call ? line.find("\"tool_") != std::string_view::npos
                                      : line.find("queue-operation") != std::string_view::npos;
    if (!mayMatter) return std::nullopt;
    const std::optional<Json> entry = text::parseJson(line);
    if (!entry || !entry->is_object()) return std::nullopt;
    if (!watch.call) {
        if (text::stringMember(*entry, "type") != "queue-operation") return std::nullopt;
        const std::optional<std::string> operation = text::stringMember(*entry, "operation");
        if (operation == "enqueue") {
            ++watch.queued;
        } else if (operation == "popAll") {
            watch.queued = 0;
        } else if (operation == "dequeue" || operation == "popOne" || operation == "remove") {
            // A prompt queued before the watch started may leave too: never below empty.
            watch.queued = std::max(0, watch.queued - 1);
        }
        return std::nullopt;
    }
    rememberCallIds(watch, *entry);
    if (const Json* blocks = contentBlocks(*entry)) {
        for (const Json& block : *blocks) {
            if (!block.is_object() || text::stringMember(block, "type") != "tool_result") continue;
            const std::optional<std::string> id = text::stringMember(block, "tool_use_id");
            if (id && std::find(watch.callIds.begin(), watch.callIds.end(), *id) != watch.callIds.end()) {
                return "The call was answered in Claude Code (" + *id + ")";
            }
        }
    }
    return std::nullopt;
}

TranscriptWatch startTranscriptWatch(const std::string& path, std::optional<PendingCall> call) {
    TranscriptWatch watch;
    watch.path = path;
    if (const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(path)) {
        watch.device = file->identity().device;
        watch.inode = file->identity().inode;
        watch.offset = file->size();
    }
    watch.call = std::move(call);
    if (watch.call && watch.offset > 0) {
        const std::uint64_t from = watch.offset > kHistoryBytes ? watch.offset - kHistoryBytes : 0;
        if (const auto history = platform::readRange(path, from, static_cast<std::size_t>(watch.offset - from))) {
            std::string_view text = *history;
            // The first line may be cut by the window; the last may still be written.
            if (from > 0) text.remove_prefix(std::min(text.size(), text.find('\n') + 1));
            forEachLine(text, [&](std::string_view line) {
                if (line.find("\"tool_use\"") != std::string_view::npos) {
                    if (const auto entry = text::parseJson(line); entry && entry->is_object()) rememberCallIds(watch, *entry);
                }
                return false;
            });
        }
    }
    return watch;
}

std::optional<std::string> sessionMovedOn(TranscriptWatch& watch, double now) {
    if (const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(watch.path)) {
        const platform::FileIdentity& identity = file->identity();
        // Another file in its place, or the same cut shorter: what was read is gone.
        if (identity.device != watch.device || identity.inode != watch.inode || identity.size < watch.offset) {
            watch.device = identity.device;
            watch.inode = identity.inode;
            watch.offset = identity.size;
            watch.partial.clear();
        }
        if (now - watch.budgetSince >= 1) {
            watch.budgetSince = now;
            watch.budgetUsed = 0;
        }
        std::string piece;
        while (watch.offset < file->size() && watch.budgetUsed < kReadBudgetPerSecond) {
            const double started = platform::processCpuSeconds();
            piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kReadPerLook, file->size() - watch.offset)));
            const std::optional<std::size_t> read = file->readAt(watch.offset, piece.data(), piece.size());
            if (!read || *read == 0) break;
            watch.offset += *read;
            watch.partial.append(piece, 0, *read);
            std::optional<std::string> reason;
            const std::size_t consumed = forEachLine(watch.partial, [&](std::string_view line) {
                reason = movedOnByLine(watch, line);
                return reason.has_value();
            });
            watch.partial.erase(0, consumed);
            if (watch.partial.size() > kLongestLine) watch.partial.clear();
            watch.budgetUsed += platform::processCpuSeconds() - started;
            if (reason) return reason;
        }
    }
    if (watch.queued == 0) {
        watch.queuedSince.reset();
        return std::nullopt;
    }
    if (!watch.queuedSince) watch.queuedSince = now;
    if (now - *watch.queuedSince < kQueueSettleSeconds) return std::nullopt;
    return "A prompt was typed into Claude Code";
}

std::optional<std::string> sessionMovedOn(TranscriptWatch& watch) {
    return sessionMovedOn(watch, platform::steadySeconds());
}

}  // namespace AgentHook::Claude
