// Wake-ups on file changes, so that a waiting request reacts to the app's
// answer or to the transcript within milliseconds instead of at its next
// look: inotify on Linux, kqueue on macOS. The descriptor is waited on
// together with the signals and standard output (waitForWakeup).
//
// Nothing here is required for correctness: when a watch cannot be set up
// (another file system, a limit reached), add*() returns false with the
// reason, and the caller keeps to its schedule of looks.
#pragma once

#include <string>
#include <vector>

namespace AgentHook::platform {

class FileEvents {
public:
    FileEvents();
    FileEvents(const FileEvents&) = delete;
    FileEvents& operator=(const FileEvents&) = delete;
    ~FileEvents();

    // Entries of `directory` moved in, or written and closed (on macOS also
    // created: its events name no entry); each event names the entry.
    [[nodiscard]] bool addDirectory(const std::string& directory, std::string* error);
    // `file` written to, or removed, renamed or replaced (an event without a name).
    [[nodiscard]] bool addFile(const std::string& file, std::string* error);

    // Readable when events are pending; -1 when nothing is watched.
    int descriptor() const { return fd_; }

    // The events pending now, without blocking: the entry names of directory
    // events, and "" for a watched file's. A queue that overflowed gives ""
    // too, so the caller looks at everything once.
    std::vector<std::string> take();

private:
    int fd_ = -1;
    std::vector<int> watched_;  // the watches (Linux) or the descriptors kqueue watches (macOS)
};

}  // namespace AgentHook::platform
