// Linux: one inotify descriptor for every watch.
#include "platform/FileEvents.hpp"

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace AgentHook::platform {

FileEvents::FileEvents() = default;

FileEvents::~FileEvents() {
    if (fd_ >= 0) ::close(fd_);
}

namespace {

bool addWatch(int& fd, const std::string& path, std::uint32_t mask, std::string* error) {
    if (fd < 0) fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0 || ::inotify_add_watch(fd, path.c_str(), mask) < 0) {
        if (error) *error = std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace

bool FileEvents::addDirectory(const std::string& directory, std::string* error) {
    // Files complete: moved in, or written and closed (not IN_CREATE, which
    // comes before the bytes). Not IN_MODIFY: every line of the debug log
    // would wake every waiting hook.
    return addWatch(fd_, directory, IN_MOVED_TO | IN_CLOSE_WRITE | IN_ONLYDIR | IN_DONT_FOLLOW, error);
}

bool FileEvents::addFile(const std::string& file, std::string* error) {
    return addWatch(fd_, file, IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF, error);
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
