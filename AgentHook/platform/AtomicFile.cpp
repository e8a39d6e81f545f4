#include "platform/AtomicFile.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>
#include <dirent.h>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Files.hpp"
#include "platform/Streams.hpp"

namespace AgentHook::platform {

namespace {

// A temporary older than this is no write in progress: its writer was killed.
constexpr time_t kStaleTemporarySeconds = 300;

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Removes what writers of `path` killed mid-write left beside it: regular
// files of this user's named "<name>.tmp" and six letters or digits, as
// mkstemp names them, untouched for five minutes. A user's folder (a
// project's .claude, which git shows) would otherwise keep them for ever.
void removeStaleTemporaries(const std::string& path) {
    const std::string directory = directoryOf(path);
    const std::string prefix = path.substr(path.rfind('/') + 1) + ".tmp";
    DIR* entries = ::opendir(directory.c_str());
    if (entries == nullptr) return;
    const time_t now = ::time(nullptr);
    while (const dirent* entry = ::readdir(entries)) {
        const std::string_view name = entry->d_name;
        if (name.size() != prefix.size() + 6 || !name.starts_with(prefix)) continue;
        if (!std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                         [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; })) {
            continue;
        }
        const std::string stale = directory + "/" + std::string(name);
        struct stat info;
        if (::lstat(stale.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
            now - info.st_mtime > kStaleTemporarySeconds) {
            ::unlink(stale.c_str());
        }
    }
    ::closedir(entries);
}

}  // namespace

AtomicFile::AtomicFile(std::string path, Mode mode, Temporary temporary) : path_(std::move(path)), mode_(mode) {
    std::string name = path_ + ".tmp";
    if (mode_ == Mode::keepTarget && temporary == Temporary::unpredictable) removeStaleTemporaries(path_);
    if (temporary == Temporary::pathDotTmp) {
        fd_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    } else {
        name += "XXXXXX";
        fd_ = ::mkstemp(name.data());
        if (fd_ >= 0) ::fcntl(fd_, F_SETFD, FD_CLOEXEC);
    }
    if (fd_ < 0) {
        fail("cannot create a temporary file beside " + path_);
        return;
    }
    temporary_ = std::move(name);
    struct stat target;
    const bool replacing = ::stat(path_.c_str(), &target) == 0;
    if (mode_ == Mode::keepTarget) {
        mode_t permissions;
        if (replacing) {
            permissions = target.st_mode & 07777;
        } else {
            const mode_t mask = ::umask(0);
            ::umask(mask);
            permissions = 0666 & ~mask;
        }
        if (::fchmod(fd_, permissions) != 0) fail("cannot set the mode of " + temporary_);
    }
    // Root (sudo) writing into a user's home: a replaced file stays its
    // owner's, and a new one is the owner's of its folder, so the user (and
    // the agents) can still write it.
    if (::geteuid() == 0 && (replacing || ::stat(directoryOf(path_).c_str(), &target) == 0) &&
        ::fchown(fd_, target.st_uid, target.st_gid) != 0) {
        fail("cannot give " + temporary_ + " to its owner");
    }
}

AtomicFile::~AtomicFile() {
    if (fd_ >= 0) ::close(fd_);
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

bool AtomicFile::fail(const std::string& what) {
    if (!failed_) error_ = what + ": " + lastErrorDescription();
    failed_ = true;
    return false;
}

bool AtomicFile::failed(std::string* err) const {
    if (err) *err = error_;
    return false;
}

bool AtomicFile::write(std::string_view bytes, std::string* err) {
    if (!failed_ && !writeAll(fd_, bytes)) fail("cannot write " + temporary_);
    return failed_ ? failed(err) : true;
}

bool AtomicFile::commit(std::string* err) {
    if (failed_ || !renameOverTarget()) return failed(err);
    return true;
}

bool AtomicFile::renameOverTarget() {
    // A user's file must be on disk before the name points at it: a crash
    // right after the rename must not leave it empty. Scratch files need not.
    if (mode_ == Mode::keepTarget && ::fsync(fd_) != 0 && errno != EINVAL) return fail("cannot flush " + temporary_);
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) return fail("cannot close " + temporary_);
    // A FIFO, a device or a link in the target's place is never replaced.
    if (struct stat target; ::lstat(path_.c_str(), &target) == 0 && !S_ISREG(target.st_mode)) {
        error_ = "will not replace " + path_ + ": not a regular file";
        failed_ = true;
        return false;
    }
    if (::rename(temporary_.c_str(), path_.c_str()) != 0) return fail("cannot rename " + temporary_ + " to " + path_);
    temporary_.clear();
    return true;
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, std::string* error, AtomicFile::Mode mode,
                         AtomicFile::Temporary temporary) {
    AtomicFile file(path, mode, temporary);
    return file.write(bytes, error) && file.commit(error);
}

}  // namespace AgentHook::platform
