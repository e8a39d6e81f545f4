#include "platform/Files.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Streams.hpp"

namespace AgentHook::platform {

bool fileExists(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

std::string lastErrorDescription() { return std::strerror(errno); }

bool createDirectories(const std::string& path, std::string* error) {
    struct stat info;
    if (::stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode)) return true;
        if (error) *error = "\"" + path + "\" exists and is not a directory";
        return false;
    }
    // Create each missing component from the top down. Root (sudo) making
    // folders in a user's home gives each to the owner of the one above it.
    struct stat parent {};
    for (std::size_t i = 1; i <= path.size(); ++i) {
        if (i != path.size() && path[i] != '/') continue;
        const std::string part = path.substr(0, i);
        if (::mkdir(part.c_str(), 0777) == 0) {
            if (::geteuid() == 0 && i > 1 && ::chown(part.c_str(), parent.st_uid, parent.st_gid) != 0) {
                if (error) *error = lastErrorDescription() + " (giving " + part + " to its owner)";
                return false;
            }
            continue;
        }
        if (errno == EEXIST && ::stat(part.c_str(), &parent) == 0) continue;
        if (error) *error = lastErrorDescription() + " (" + part + ")";
        return false;
    }
    if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return true;
    if (error) *error = "\"" + path + "\" is not a directory";
    return false;
}

bool makePrivateDirectory(const std::string& path, std::string* err) {
    const auto fail = [&](std::string what) {
        *err = path + " " + std::move(what);
        return false;
    };
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0) {
        if (errno != ENOENT) return fail("cannot be examined: " + lastErrorDescription());
        if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return fail("cannot be created: " + lastErrorDescription());
        if (::lstat(path.c_str(), &info) != 0) return fail("cannot be examined: " + lastErrorDescription());
    }
    if (S_ISLNK(info.st_mode)) return fail("is a symbolic link");
    if (!S_ISDIR(info.st_mode)) return fail("is not a directory");
    if (info.st_uid != ::geteuid()) return fail("belongs to another user (uid " + std::to_string(info.st_uid) + ")");
    if ((info.st_mode & 07777) != 0700 && ::chmod(path.c_str(), 0700) != 0) {
        return fail("cannot be made private: " + lastErrorDescription());
    }
    return true;
}

namespace {

// Reads an open descriptor on the terms of readRegularFile; `owner` (when not
// negative) must own the file.
bool readOpened(int fd, std::string* contents, std::string* err, std::size_t limit, int owner) {
    struct stat info;
    bool taken = false;
    const std::string tooLarge = std::string(kLargerThan) + std::to_string(limit >> 20) + " MiB";
    if (::fstat(fd, &info) != 0) {
        *err = lastErrorDescription();
    } else if (!S_ISREG(info.st_mode)) {
        *err = "not a regular file";
    } else if (owner >= 0 && info.st_uid != static_cast<uid_t>(owner)) {
        *err = "another user's (uid " + std::to_string(info.st_uid) + ")";
    } else if (static_cast<std::uint64_t>(info.st_size) > limit) {
        *err = tooLarge;
    } else if (std::optional<std::string> bytes = readAll(fd, limit)) {
        *contents = std::move(*bytes);
        taken = true;
    } else {
        *err = errno == EFBIG ? tooLarge : lastErrorDescription();
    }
    ::close(fd);
    return taken;
}

}  // namespace

bool readRegularFile(const std::string& path, std::string* contents, std::string* err, std::size_t limit) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        *err = lastErrorDescription();
        return false;
    }
    return readOpened(fd, contents, err, limit, -1);
}

bool readOwnFile(const std::string& path, std::string* contents, std::string* refusal, std::size_t limit) {
    refusal->clear();
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ELOOP) *refusal = "a symbolic link";
        return false;
    }
    return readOpened(fd, contents, refusal, limit, static_cast<int>(::geteuid()));
}

std::optional<std::string> readFile(const std::string& path) {
    std::string contents;
    std::string ignored;
    if (!readRegularFile(path, &contents, &ignored)) return std::nullopt;
    return contents;
}

bool writeFile(const std::string& path, std::string_view bytes, std::string* error) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (error) *error = lastErrorDescription();
        return false;
    }
    const bool written = writeAll(fd, bytes);
    if (!written && error) *error = lastErrorDescription();
    if (::close(fd) != 0 && written) {
        if (error) *error = lastErrorDescription();
        return false;
    }
    return written;
}

bool moveFile(const std::string& from, const std::string& to, std::string* error) {
    if (::rename(from.c_str(), to.c_str()) == 0) return true;
    if (error) *error = lastErrorDescription();
    return false;
}

void removeFile(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno == EISDIR) ::rmdir(path.c_str());
}

Removal removeFileReporting(const std::string& path, std::string* err) {
    if (::unlink(path.c_str()) == 0) return Removal::removed;
    if (errno == ENOENT) return Removal::absent;
    *err = "cannot remove " + path + ": " + lastErrorDescription();
    return Removal::failed;
}

bool appendToFile(const std::string& path, std::string_view bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    const bool written = writeAll(fd, bytes);
    ::close(fd);
    return written;
}

std::optional<std::string> linkTarget(const std::string& path) {
    std::string target(4096, '\0');
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    if (length < 0 || static_cast<std::size_t>(length) >= target.size()) return std::nullopt;
    target.resize(static_cast<std::size_t>(length));
    return target;
}

std::string followLinks(const std::string& path) {
    std::string resolved = path;
    for (int hops = 0; hops < 40; ++hops) {
        const std::optional<std::string> target = linkTarget(resolved);
        if (!target) break;
        resolved = !target->empty() && target->front() == '/' ? *target
                                                                : resolved.substr(0, resolved.rfind('/') + 1) + *target;
    }
    return resolved;
}

std::optional<std::string> realPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) return std::nullopt;
    std::string result(resolved);
    std::free(resolved);
    return result;
}

bool ensurePlainSubdirectory(const std::string& parent, const std::string& name, std::string* err) {
    const std::string path = parent + "/" + name;
    const int parentFd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parentFd < 0) {
        *err = "cannot open " + parent + ": " + lastErrorDescription();
        return false;
    }
    struct stat info;
    bool fit = false;
    if (::fstatat(parentFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
        if (::mkdirat(parentFd, name.c_str(), 0777) != 0 && errno != EEXIST) {
            *err = "cannot create " + path + ": " + lastErrorDescription();
            ::close(parentFd);
            return false;
        }
    }
    // Looked at again after the creation: what is there now is what counts.
    if (::fstatat(parentFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        *err = "cannot examine " + path + ": " + lastErrorDescription();
    } else if (S_ISLNK(info.st_mode)) {
        *err = path + " is a link to " + linkTarget(path).value_or("?");
    } else if (!S_ISDIR(info.st_mode)) {
        *err = path + " is not a directory";
    } else {
        fit = true;
    }
    ::close(parentFd);
    return fit;
}

bool isExecutableFile(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::optional<std::vector<std::string>> listDirectory(const std::string& path) {
    DIR* directory = ::opendir(path.c_str());
    if (directory == nullptr) return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    ::closedir(directory);
    return names;
}

std::optional<double> modificationTime(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
#if defined(__APPLE__)
    const timespec& modified = info.st_mtimespec;
#else
    const timespec& modified = info.st_mtim;
#endif
    return static_cast<double>(modified.tv_sec) + static_cast<double>(modified.tv_nsec) / 1e9;
}

namespace {

// Up to `length` bytes from `offset` into `into`; fewer when the file ends
// (or was cut) first.
std::optional<std::size_t> readInto(int fd, std::uint64_t offset, char* into, std::size_t length) {
    std::size_t used = 0;
    while (used < length) {
        const ssize_t n = ::pread(fd, into + used, length - used, static_cast<off_t>(offset + used));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    return used;
}

std::int64_t nanoseconds(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + static_cast<std::int64_t>(time.tv_nsec);
}

// Up to `length` bytes of `file` from `offset`.
std::optional<std::string> readString(const ReadOnlyFile& file, std::uint64_t offset, std::size_t length) {
    std::string bytes(length, '\0');
    const std::optional<std::size_t> used = file.readAt(offset, bytes.data(), length);
    if (!used) return std::nullopt;
    bytes.resize(*used);
    return bytes;
}

}  // namespace

std::optional<ReadOnlyFile> ReadOnlyFile::open(const std::string& path) {
    // Opening never blocks, so a FIFO in the file's place is not waited on.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return std::nullopt;
    }
#if defined(__APPLE__)
    const timespec& modified = info.st_mtimespec;
    const timespec& changed = info.st_ctimespec;
#else
    const timespec& modified = info.st_mtim;
    const timespec& changed = info.st_ctim;
#endif
    const FileIdentity identity{static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino),
                                static_cast<std::uint64_t>(info.st_size), nanoseconds(modified), nanoseconds(changed)};
    return ReadOnlyFile(fd, identity);
}

ReadOnlyFile::ReadOnlyFile(ReadOnlyFile&& other) noexcept : fd_(other.fd_), identity_(other.identity_) {
    other.fd_ = -1;
}

ReadOnlyFile::~ReadOnlyFile() {
    if (fd_ >= 0) ::close(fd_);
}

std::optional<std::size_t> ReadOnlyFile::readAt(std::uint64_t offset, char* into, std::size_t length) const {
    if (offset >= identity_.size) return 0;
    return readInto(fd_, offset, into, static_cast<std::size_t>(std::min<std::uint64_t>(length, identity_.size - offset)));
}

std::optional<FileTail> readTail(const std::string& path, std::size_t maxBytes) {
    const std::optional<ReadOnlyFile> file = ReadOnlyFile::open(path);
    if (!file) return std::nullopt;
    const std::uint64_t size = file->size();
    const std::size_t length = size > maxBytes ? maxBytes : static_cast<std::size_t>(size);
    std::optional<std::string> bytes = readString(*file, size - length, length);
    if (!bytes) return std::nullopt;
    return FileTail{std::move(*bytes), size - length};
}

std::optional<std::string> readRange(const std::string& path, std::uint64_t offset, std::size_t maxBytes) {
    const std::optional<ReadOnlyFile> file = ReadOnlyFile::open(path);
    if (!file) return std::nullopt;
    return readString(*file, offset, offset >= file->size() ? 0 : std::min<std::uint64_t>(maxBytes, file->size() - offset));
}

std::optional<std::uint64_t> regularFileSize(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    return static_cast<std::uint64_t>(info.st_size);
}

}  // namespace AgentHook::platform
