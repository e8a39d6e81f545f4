#include "platform/Lock.hpp"

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

int openFor(const std::string& path, Lock::On on) {
    if (on == Lock::On::directory) return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
}
}  // namespace

Lock::Lock(const std::string& path, double seconds, On on)
    : fd_(openFor(path, on)), locked_(lockWithin(fd_, seconds)) {}

// Closing the descriptor releases the lock.
Lock::~Lock() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace AgentHook::platform
