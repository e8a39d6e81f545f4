// File-system facilities. Every failure is reported through the return value
// (and, where callers log it, an error text); nothing throws.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace AgentHook::platform {

// True when anything (file, directory, link target) exists at `path`.
bool fileExists(const std::string& path);

// Creates `path` and every missing parent. An existing directory is success;
// on failure `error` (when given) receives the system's description.
[[nodiscard]] bool createDirectories(const std::string& path, std::string* error = nullptr);

// Creates `path` (its parent must exist) as a directory that only this user
// can enter, or checks the one there: it must be a directory, not a symbolic
// link, and this user's; a looser mode is tightened to 0700. False, with
// what is wrong with it in `err`, when it is not fit to use.
[[nodiscard]] bool makePrivateDirectory(const std::string& path, std::string* err);

// The most a settings or configuration file may hold: far beyond any real
// one, and a link to /dev/zero or a huge file never exhausts the memory.
inline constexpr std::size_t kUserFileLimit = 16u << 20;

// How a refusal for size begins: "larger than 16 MiB".
inline constexpr std::string_view kLargerThan = "larger than ";

// The one way both programs read a file that someone may have put anything in
// place of (a FIFO, a device, a link to either): opened without blocking and
// without taking a terminal, and taken only when it is a regular file of at
// most `limit` bytes. False with `err`: "not a regular file", "larger than N
// MiB", or the system's reason (errno is ENOENT when there is no file).
[[nodiscard]] bool readRegularFile(const std::string& path, std::string* contents, std::string* err,
                                   std::size_t limit = kUserFileLimit);

// A file another program left for this user to read, on the same terms, but
// never through a link, and only when it is this user's. False when there is
// none to take: `refusal` then says why a file that is there was not taken,
// and is empty when there is no file or it cannot be read.
[[nodiscard]] bool readOwnFile(const std::string& path, std::string* contents, std::string* refusal,
                               std::size_t limit = kUserFileLimit);

// The whole file as readRegularFile takes it, or nothing.
std::optional<std::string> readFile(const std::string& path);

// Creates (or truncates) `path`, mode 0600 and never through a symbolic
// link, and writes `bytes` to it.
[[nodiscard]] bool writeFile(const std::string& path, std::string_view bytes, std::string* error = nullptr);

// rename(2); `error` receives the system's description on failure.
[[nodiscard]] bool moveFile(const std::string& from, const std::string& to, std::string* error = nullptr);

// Removes a file (or an empty directory); errors are ignored.
void removeFile(const std::string& path);

// Removes a file, telling whether it was there; `err` says why it could not be.
enum class Removal { removed, absent, failed };
[[nodiscard]] Removal removeFileReporting(const std::string& path, std::string* err);

// Appends `bytes` to `path` (created when missing, mode 0600; never through a
// symbolic link) with a single write on a descriptor opened for appending, so
// concurrent writers never interleave.
[[nodiscard]] bool appendToFile(const std::string& path, std::string_view bytes);

// The target of a symbolic link, as stored; nothing when `path` is not a link.
std::optional<std::string> linkTarget(const std::string& path);

// Where `path` really leads, every symbolic link in its last component
// followed (a settings file kept in a dotfiles repository), so that a writer
// replaces the target and the link stays. A loop ends after 40 links.
std::string followLinks(const std::string& path);

// The absolute path with every link resolved, or nothing when a part of it
// does not exist.
std::optional<std::string> realPath(const std::string& path);

// The folder `name` right inside `parent`, reached without following a link
// and created when missing (mode 0777 less the umask): never a directory made
// or entered through a link. False with `err` when `name` is a link (`err`
// names its target) or not a directory, or it cannot be created.
[[nodiscard]] bool ensurePlainSubdirectory(const std::string& parent, const std::string& name, std::string* err);

// Whether `path` is a regular file this user may execute.
bool isExecutableFile(const std::string& path);

// The entries of a directory (without "." and ".."), in the order the system
// lists them; nothing when it cannot be read.
std::optional<std::vector<std::string>> listDirectory(const std::string& path);

// The last modification time in seconds since 1970, with its fraction.
std::optional<double> modificationTime(const std::string& path);

// The description of the current errno.
std::string lastErrorDescription();

// The end of a regular file: at most `maxBytes` bytes, read from the size the
// file had when it was opened, so a file that grows meanwhile still gives no
// more. `startOffset` is where the bytes begin (0 when the file was short
// enough to read whole). Nothing when the path cannot be opened, is not a
// regular file (a FIFO or device is never read, and opening one never blocks)
// or a read fails.
struct FileTail {
    std::string bytes;
    std::uint64_t startOffset = 0;
};
std::optional<FileTail> readTail(const std::string& path, std::size_t maxBytes);

// At most `maxBytes` bytes of a regular file from `offset` (fewer at its end),
// on the same terms as readTail.
std::optional<std::string> readRange(const std::string& path, std::uint64_t offset, std::size_t maxBytes);

// The size of a regular file; nothing for anything else.
std::optional<std::uint64_t> regularFileSize(const std::string& path);

// What tells one state of a file from another: a file rewritten or appended
// to gets a new size or new times, a replaced one a new inode.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedNanoseconds = 0;
    std::int64_t changedNanoseconds = 0;
    bool operator==(const FileIdentity&) const = default;
};

// A regular file opened for reading piece by piece, for files other programs
// may change meanwhile (nothing is mapped, so a file cut short never faults).
// Opening never blocks and refuses anything but a regular file: a FIFO, a
// device or a directory is never read.
class ReadOnlyFile {
public:
    static std::optional<ReadOnlyFile> open(const std::string& path);
    ReadOnlyFile(ReadOnlyFile&& other) noexcept;
    ReadOnlyFile& operator=(ReadOnlyFile&&) = delete;
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;
    ~ReadOnlyFile();

    // As the file was when opened; readers stop at this size even if it grows.
    const FileIdentity& identity() const { return identity_; }
    std::uint64_t size() const { return identity_.size; }

    // Reads up to `length` bytes from `offset` into `into`, fewer only where
    // the file ends (or was cut); interrupted reads are resumed. Nothing when
    // a read fails.
    std::optional<std::size_t> readAt(std::uint64_t offset, char* into, std::size_t length) const;

private:
    ReadOnlyFile(int fd, const FileIdentity& identity) : fd_(fd), identity_(identity) {}
    int fd_ = -1;
    FileIdentity identity_;
};

}  // namespace AgentHook::platform
