// The one way the program replaces a file: the bytes go to a temporary file
// created beside the target with mkstemp (an unpredictable name, never
// following a link), and an explicit commit renames it over the target. A
// temporary that is not committed is removed when the object goes away, so
// every failure path leaves the target as it was. Only a regular file (or
// nothing) is ever replaced: never a FIFO, a device or a link.
//
// One exception of name: a reader that skips "<name>.tmp" (the app's inbox)
// gets exactly that temporary, created exclusively and never through a link;
// the target's name must then be unpredictable itself (a random UUID).
#pragma once

#include <string>
#include <string_view>

namespace AgentHook::platform {

class AtomicFile {
public:
    enum class Mode {
        privateToUser,  // 0600: the scratch directory's files
        keepTarget,     // the target's mode, or 0666 less the umask for a new file: the user's own files
    };

    enum class Temporary {
        unpredictable,  // path + ".tmp" + a random suffix (mkstemp)
        pathDotTmp,     // exactly path + ".tmp", O_CREAT|O_EXCL|O_NOFOLLOW
    };

    explicit AtomicFile(std::string path, Mode mode = Mode::privateToUser,
                        Temporary temporary = Temporary::unpredictable);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    ~AtomicFile();

    // Appends to the temporary file; false once anything failed, with the
    // first failure's description in `err`.
    [[nodiscard]] bool write(std::string_view bytes, std::string* err = nullptr);
    // Flushes the temporary to disk and renames it over the target; false and
    // `err` as above.
    [[nodiscard]] bool commit(std::string* err = nullptr);

private:
    bool fail(const std::string& what);
    bool failed(std::string* err) const;
    bool renameOverTarget();

    std::string path_;
    std::string temporary_;
    Mode mode_;
    int fd_ = -1;
    bool failed_ = false;
    std::string error_;
};

// Replaces `path` with `bytes` through an AtomicFile; `error` receives the
// system's description on failure.
[[nodiscard]] bool writeFileAtomically(const std::string& path, std::string_view bytes, std::string* error = nullptr,
                                       AtomicFile::Mode mode = AtomicFile::Mode::privateToUser,
                                       AtomicFile::Temporary temporary = AtomicFile::Temporary::unpredictable);

}  // namespace AgentHook::platform
