// One safe change of a user's JSON configuration file.
//
// A symbolic link is followed (a dotfiles repository): its target is
// replaced and the link stays. The read, change and write happen under an
// advisory lock on the target's directory, so two runs at once lose nothing.
// A file that does not parse, or has no room for the change, is left
// untouched and the error names it (with line and column for a syntax
// error). A blank file is read as "{}". Before a change the old bytes are
// copied to PATH.agent-hook.bak; the new file replaces the old one
// atomically, with its mode.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "OrderedJson.hpp"

namespace AgentHook::Setup {

// Changes the document's text in place; false, with what is wrong with it in
// `err`, when it cannot.
using TextChange = std::function<bool(std::string& text, std::string* err)>;

// Whether the backup's bytes can stand for the changed document.
using BackupCheck = std::function<bool(const OrderedJson& backup, const OrderedJson& changed)>;

struct EditRequest {
    std::string path;
    bool dryRun = false;
    // Undoing an earlier change: when the backup passes this check, its bytes
    // come back as they were (a blank file, the user's own spacing, empty
    // lists); otherwise a document left empty removes the file.
    BackupCheck restoresBackup;
};

enum class EditOutcome { unchanged, changed, failed };

// `diff` receives the change as a unified diff; `err` what failed, naming the file.
[[nodiscard]] EditOutcome editConfiguration(const EditRequest& request, const TextChange& change,
                                            std::string* diff, std::string* err);

// A configuration read for a report: its document (an empty or missing file
// is an empty object) and whether the file exists; false with the error that
// editConfiguration would give.
[[nodiscard]] bool readConfiguration(const std::string& path, OrderedJson* document, bool* exists, std::string* err);

// The directory part of a path ("." when it has none).
std::string directoryOf(const std::string& path);

}  // namespace AgentHook::Setup
