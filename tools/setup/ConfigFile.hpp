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

// Changes the document's text in place; what is wrong with it when it cannot.
using TextChange = std::function<std::optional<std::string>(std::string&)>;

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

struct EditResult {
    EditOutcome outcome = EditOutcome::failed;
    std::string diff;   // the change as a unified diff
    std::string error;  // what failed, naming the file
};

EditResult editConfiguration(const EditRequest& request, const TextChange& change);

// A configuration read for a report: its document (an empty or missing file
// is an empty object), or the error that editConfiguration would give.
struct ReadResult {
    bool exists = false;
    std::optional<OrderedJson> document;
    std::string error;
};
ReadResult readConfiguration(const std::string& path);

// The directory part of a path ("." when it has none).
std::string directoryOf(const std::string& path);

}  // namespace AgentHook::Setup
