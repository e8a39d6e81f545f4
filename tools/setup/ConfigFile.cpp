#include "ConfigFile.hpp"

#include "UnifiedDiff.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/DirectoryLock.hpp"
#include "platform/Files.hpp"

namespace AgentHook::Setup {
namespace {

// A stuck holder of the lock gets this many of the lock's own two-second waits.
constexpr int kLockAttempts = 15;

bool isBlank(const std::string& bytes) { return bytes.find_first_not_of(" \t\r\n") == std::string::npos; }

// The document of `bytes` read from `path` (blank is an empty object).
std::optional<OrderedJson> parseDocument(const std::string& path, const std::string& bytes, std::string& error) {
    if (isBlank(bytes)) return OrderedJson::object();
    ParseResult parsed = parseOrderedJson(bytes);
    if (!parsed.value) {
        error = path + ":" + std::to_string(parsed.line) + ":" + std::to_string(parsed.column) +
                ": not valid JSON (" + parsed.problem + "); left untouched";
    }
    return std::move(parsed.value);
}

struct Snapshot {
    bool exists = false;
    std::string bytes;
};

std::optional<Snapshot> snapshot(const std::string& target, std::string& error) {
    Snapshot result;
    result.exists = platform::fileExists(target);
    if (!result.exists) return result;
    std::optional<std::string> bytes = platform::readFile(target);
    if (!bytes) {
        error = "cannot read " + target + ": " + platform::lastErrorDescription();
        return std::nullopt;
    }
    result.bytes = std::move(*bytes);
    return result;
}

// The new bytes (nothing: remove the file), or the outcome that ends the edit.
struct Planned {
    EditOutcome outcome = EditOutcome::failed;
    std::optional<std::string> after;
};

// The backup's bytes when they can stand for `changed`.
std::optional<std::string> restorableBackup(const EditRequest& request, const OrderedJson& changed) {
    if (!request.restoresBackup) return std::nullopt;
    std::string ignored;
    std::optional<Snapshot> backup = snapshot(request.path + ".agent-hook.bak", ignored);
    if (!backup || !backup->exists) return std::nullopt;
    const std::optional<OrderedJson> document = parseDocument(request.path, backup->bytes, ignored);
    if (!document || !request.restoresBackup(*document, changed)) return std::nullopt;
    return std::move(backup->bytes);
}

Planned plan(const EditRequest& request, const Snapshot& old, const TextChange& change, std::string& error) {
    const std::optional<OrderedJson> document = parseDocument(request.path, old.bytes, error);
    if (!document) return {};
    std::string text = isBlank(old.bytes) ? std::string("{}\n") : old.bytes;
    if (std::optional<std::string> problem = change(text)) {
        error = request.path + ": " + *problem + "; left untouched";
        return {};
    }
    const std::optional<OrderedJson> changed = parseOrderedJson(text).value;
    if (!changed) {
        error = request.path + ": the change would not give valid JSON (a fault of agent-hook-setup); left untouched";
        return {};
    }
    if (text == old.bytes || *changed == *document) return {EditOutcome::unchanged, std::nullopt};
    if (std::optional<std::string> backup = restorableBackup(request, *changed)) {
        if (*backup == old.bytes) return {EditOutcome::unchanged, std::nullopt};
        return {EditOutcome::changed, std::move(backup)};
    }
    if (request.restoresBackup && changed->is_object() && changed->empty()) {
        return {old.exists ? EditOutcome::changed : EditOutcome::unchanged, std::nullopt};
    }
    return {EditOutcome::changed, std::move(text)};
}

}  // namespace

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

EditResult editConfiguration(const EditRequest& request, const TextChange& change) {
    EditResult result;
    const std::string target = platform::followLinks(request.path);
    const std::string directory = directoryOf(target);
    const bool directoryExists = platform::fileExists(directory);
    if (!request.dryRun && !directoryExists) {
        // Nothing to lock yet: make the directory only when there is something to write.
        const Planned planned = plan(request, Snapshot{}, change, result.error);
        if (planned.outcome != EditOutcome::changed) {
            result.outcome = planned.outcome;
            return result;
        }
        if (!platform::createDirectories(directory, &result.error)) {
            result.error = "cannot create " + directory + ": " + result.error;
            return result;
        }
    }
    std::optional<platform::DirectoryLock> lock;
    if (!request.dryRun) {
        for (int attempt = 0; attempt < kLockAttempts && !(lock && lock->locked()); ++attempt) lock.emplace(directory);
        if (!lock->locked()) {
            result.error = "cannot lock " + directory + " (another program holds its lock)";
            return result;
        }
    }
    const std::optional<Snapshot> old = snapshot(target, result.error);
    if (!old) return result;
    const Planned planned = plan(request, *old, change, result.error);
    result.outcome = planned.outcome;
    if (planned.outcome != EditOutcome::changed) return result;
    result.diff = unifiedDiff(old->bytes, planned.after.value_or(""), old->exists ? request.path : "/dev/null",
                              planned.after ? request.path : "/dev/null");
    if (request.dryRun) return result;

    result.outcome = EditOutcome::failed;
    std::string error;
    if (old->exists && !platform::writeFileAtomically(request.path + ".agent-hook.bak", old->bytes, &error)) {
        result.error = "cannot back up " + request.path + ": " + error + "; left untouched";
        return result;
    }
    if (!planned.after) {
        platform::removeFile(target);
    } else if (!platform::writeFileAtomically(target, *planned.after, &error, platform::AtomicFile::Mode::keepTarget)) {
        result.error = "cannot write " + request.path + ": " + error;
        return result;
    }
    result.outcome = EditOutcome::changed;
    return result;
}

ReadResult readConfiguration(const std::string& path) {
    ReadResult result;
    std::optional<Snapshot> old = snapshot(platform::followLinks(path), result.error);
    if (!old) return result;
    result.exists = old->exists;
    result.document = parseDocument(path, old->bytes, result.error);
    return result;
}

}  // namespace AgentHook::Setup
