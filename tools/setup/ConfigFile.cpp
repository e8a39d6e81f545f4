#include "ConfigFile.hpp"

#include "UnifiedDiff.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/Lock.hpp"
#include "platform/Files.hpp"
#include "text/Json.hpp"

namespace AgentHook::Setup {
namespace {

// A stuck holder of the lock gets this many of the lock's own two-second waits.
constexpr int kLockAttempts = 15;

bool isBlank(const std::string& bytes) { return bytes.find_first_not_of(" \t\r\n") == std::string::npos; }

// The document of `bytes` read from `path` (blank is an empty object).
bool parseDocument(const std::string& path, const std::string& bytes, OrderedJson* document, std::string* err) {
    if (isBlank(bytes)) {
        *document = OrderedJson::object();
        return true;
    }
    std::string where;
    if (parseOrderedJson(bytes, document, &where)) return true;
    *err = path + ":" + where + "; left untouched";
    return false;
}

struct Snapshot {
    bool exists = false;
    std::string bytes;
};

bool snapshot(const std::string& target, Snapshot* out, std::string* err) {
    out->exists = platform::fileExists(target);
    if (!out->exists) return true;
    if (std::string why; !platform::readRegularFile(target, &out->bytes, &why)) {
        *err = "cannot read " + target + ": " + why;
        return false;
    }
    return true;
}

// The new bytes (nothing: remove the file), or the outcome that ends the edit.
struct Planned {
    EditOutcome outcome = EditOutcome::failed;
    std::optional<std::string> after;
};

// The backup's bytes when they can stand for `changed`.
std::optional<std::string> restorableBackup(const EditRequest& request, const OrderedJson& changed) {
    if (!request.restoresBackup) return std::nullopt;
    // A backup that cannot be read or parsed is simply not used.
    std::string ignored;
    Snapshot backup;
    OrderedJson document;
    if (!snapshot(request.path + ".agent-hook.bak", &backup, &ignored) || !backup.exists ||
        !parseDocument(request.path, backup.bytes, &document, &ignored) || !request.restoresBackup(document, changed)) {
        return std::nullopt;
    }
    return std::move(backup.bytes);
}

Planned plan(const EditRequest& request, const Snapshot& old, const TextChange& change, std::string* err) {
    // At most two trees of the file at a time: a large file is edited in a
    // small multiple of its size.
    if (!text::isKeptJsonDocument(old.bytes) && !isBlank(old.bytes)) {
        OrderedJson ignored;
        static_cast<void>(parseDocument(request.path, old.bytes, &ignored, err));  // says where it fails
        return {};
    }
    std::string text = isBlank(old.bytes) ? std::string("{}\n") : old.bytes;
    if (std::string problem; !change(text, &problem)) {
        *err = request.path + ": " + problem + "; left untouched";
        return {};
    }
    OrderedJson changed;
    if (!parseOrderedJson(text, &changed)) {
        *err = request.path + ": the change would not give valid JSON (a fault of agent-hook-setup); left untouched";
        return {};
    }
    if (text == old.bytes) return {EditOutcome::unchanged, std::nullopt};
    {
        OrderedJson document;
        if (!parseDocument(request.path, old.bytes, &document, err)) return {};
        if (changed == document) return {EditOutcome::unchanged, std::nullopt};
    }
    if (std::optional<std::string> backup = restorableBackup(request, changed)) {
        if (*backup == old.bytes) return {EditOutcome::unchanged, std::nullopt};
        return {EditOutcome::changed, std::move(backup)};
    }
    if (request.restoresBackup && changed.is_object() && changed.empty()) {
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

EditOutcome editConfiguration(const EditRequest& request, const TextChange& change, std::string* diff,
                              std::string* err) {
    const std::string target = platform::followLinks(request.path);
    const std::string directory = directoryOf(target);
    const bool directoryExists = platform::fileExists(directory);
    if (!request.dryRun && !directoryExists) {
        // Nothing to lock yet: make the directory only when there is something to write.
        const Planned planned = plan(request, Snapshot{}, change, err);
        if (planned.outcome != EditOutcome::changed) return planned.outcome;
        if (std::string why; !platform::createDirectories(directory, &why)) {
            *err = "cannot create " + directory + ": " + why;
            return EditOutcome::failed;
        }
    }
    std::optional<platform::Lock> lock;
    if (!request.dryRun) {
        for (int attempt = 0; attempt < kLockAttempts && !(lock && lock->locked()); ++attempt) lock.emplace(directory);
        if (!lock->locked()) {
            *err = "cannot lock " + directory + " (another program holds its lock)";
            return EditOutcome::failed;
        }
    }
    Snapshot old;
    if (!snapshot(target, &old, err)) return EditOutcome::failed;
    const Planned planned = plan(request, old, change, err);
    if (planned.outcome != EditOutcome::changed) return planned.outcome;
    *diff = unifiedDiff(old.bytes, planned.after.value_or(""), old.exists ? request.path : "/dev/null",
                        planned.after ? request.path : "/dev/null");
    if (request.dryRun) return EditOutcome::changed;

    std::string why;
    if (old.exists && !platform::writeFileAtomically(request.path + ".agent-hook.bak", old.bytes, &why)) {
        *err = "cannot back up " + request.path + ": " + why + "; left untouched";
        return EditOutcome::failed;
    }
    if (!planned.after) {
        platform::removeFile(target);
    } else if (!platform::writeFileAtomically(target, *planned.after, &why, platform::AtomicFile::Mode::keepTarget)) {
        *err = "cannot write " + request.path + ": " + why;
        return EditOutcome::failed;
    }
    return EditOutcome::changed;
}

bool readConfiguration(const std::string& path, OrderedJson* document, bool* exists, std::string* err) {
    Snapshot old;
    if (!snapshot(platform::followLinks(path), &old, err)) return false;
    *exists = old.exists;
    return parseDocument(path, old.bytes, document, err);
}

}  // namespace AgentHook::Setup
