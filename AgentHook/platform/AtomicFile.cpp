#include "platform/AtomicFile.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Files.hpp"
#include "platform/Streams.hpp"

namespace AgentHook::platform {

AtomicFile::AtomicFile(std::string path, Mode mode, Temporary temporary) : path_(std::move(path)), mode_(mode) {
    std::string name = path_ + ".tmp";
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
    if (mode_ == Mode::keepTarget) {
        struct stat target;
        mode_t permissions;
        if (::stat(path_.c_str(), &target) == 0) {
            permissions = target.st_mode & 07777;
        } else {
            const mode_t mask = ::umask(0);
            ::umask(mask);
            permissions = 0666 & ~mask;
        }
        if (::fchmod(fd_, permissions) != 0) fail("cannot set the mode of " + temporary_);
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
