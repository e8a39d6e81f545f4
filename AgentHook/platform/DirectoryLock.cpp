#include "platform/DirectoryLock.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "platform/Clock.hpp"

namespace AgentHook::platform {

namespace {
constexpr double kPauseSeconds = 0.005;
}  // namespace

DirectoryLock::DirectoryLock(const std::string& directory, double seconds) {
    fd_ = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ < 0) return;
    const int attempts = static_cast<int>(seconds / kPauseSeconds);
    for (int attempt = 0; attempt <= attempts; ++attempt) {
        if (::flock(fd_, LOCK_EX | LOCK_NB) == 0) {
            locked_ = true;
            return;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) return;
        sleepSeconds(kPauseSeconds);
    }
}

DirectoryLock::~DirectoryLock() {
    // Closing the descriptor releases the lock.
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace AgentHook::platform
