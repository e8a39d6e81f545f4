// Linux: one inotify instance for the whole process, opened at the first
// watch and never closed. Closing an instance that had watches waits for the
// kernel's grace period (15 to 20 ms, measured): at the end of a wait that
// would come between the answer and the decision. A watch is removed when its
// FileEvents goes (cheap), and the process's exit closes the instance after
// the decision is out.
#include "platform/FileEvents.hpp"

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace AgentHook::platform {

namespace {

int sharedInstance() {
    static const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return fd;
}

// Drops the events queued for watches that are gone.
void drain(int fd) {
    alignas(inotify_event) char buffer[4096];
    while (::read(fd, buffer, sizeof buffer) > 0 || errno == EINTR) {
    }
}

}  // namespace

FileEvents::FileEvents() = default;

FileEvents::~FileEvents() {
    if (fd_ < 0) return;
    for (const int watch : watched_) ::inotify_rm_watch(fd_, watch);
    drain(fd_);
}

namespace {

bool addWatch(int& fd, std::vector<int>& watched, const std::string& path, std::uint32_t mask, std::string* error) {
    if (fd < 0) {
        fd = sharedInstance();
        if (fd >= 0) drain(fd);
    }
    const int watch = fd < 0 ? -1 : ::inotify_add_watch(fd, path.c_str(), mask);
    if (watch < 0) {
        if (error) *error = std::strerror(errno);
        return false;
    }
    watched.push_back(watch);
    return true;
}

}  // namespace

bool FileEvents::addDirectory(const std::string& directory, std::string* error) {
    // Files complete: moved in, or written and closed (not IN_CREATE, which
    // comes before the bytes). Not IN_MODIFY: every line of the debug log
    // would wake every waiting hook.
    return addWatch(fd_, watched_, directory, IN_MOVED_TO | IN_CLOSE_WRITE | IN_ONLYDIR | IN_DONT_FOLLOW, error);
}

bool FileEvents::addFile(const std::string& file, std::string* error) {
    return addWatch(fd_, watched_, file, IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF, error);
}

std::vector<std::string> FileEvents::take() {
    std::vector<std::string> names;
    if (fd_ < 0) return names;
    alignas(inotify_event) char buffer[16384];
    for (;;) {
        const ssize_t length = ::read(fd_, buffer, sizeof buffer);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) break;
        for (ssize_t at = 0; at < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            if (event->mask & IN_Q_OVERFLOW) {
                names.emplace_back();
            } else if (event->len > 0) {
                names.emplace_back(event->name);
            } else if (!(event->mask & IN_IGNORED)) {
                names.emplace_back();
            }
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return names;
}

}  // namespace AgentHook::platform
