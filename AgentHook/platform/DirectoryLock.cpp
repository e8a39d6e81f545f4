#include "platform/DirectoryLock.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "platform/Clock.hpp"

namespace AgentHook::platform {

namespace {
constexpr double kPauseSeconds = 0.005;

bool lockWithin(int fd, double seconds) {
    if (fd < 0) return false;
    const int attempts = static_cast<int>(seconds / kPauseSeconds);
    for (int attempt = 0; attempt <= attempts; ++attempt) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
        sleepSeconds(kPauseSeconds);
    }
    return false;
}
}  // namespace

DirectoryLock::DirectoryLock(const std::string& directory, double seconds)
    : fd_(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), locked_(lockWithin(fd_, seconds)) {}

// Closing the descriptor releases the lock.
DirectoryLock::~DirectoryLock() {
    if (fd_ >= 0) ::close(fd_);
}

FileLock::FileLock(const std::string& path, double seconds)
    : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)), locked_(lockWithin(fd_, seconds)) {}

FileLock::~FileLock() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace AgentHook::platform
