// macOS: one kqueue; each watched path is held open with O_EVTONLY (which
// does not keep a volume from being unmounted) and reported through
// EVFILT_VNODE. A kqueue names no directory entry, so a directory's events
// come as "" and the caller looks at every file it waits for.
#include "platform/FileEvents.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

namespace AgentHook::platform {

FileEvents::FileEvents() = default;

FileEvents::~FileEvents() {
    for (const int fd : watched_) ::close(fd);
    if (fd_ >= 0) ::close(fd_);
}

namespace {

bool addWatch(int& queue, std::vector<int>& watched, const std::string& path, unsigned flags, int openFlags,
              std::string* error) {
    if (queue < 0) {
        queue = ::kqueue();
        if (queue >= 0) ::fcntl(queue, F_SETFD, FD_CLOEXEC);
    }
    const int fd = queue < 0 ? -1 : ::open(path.c_str(), O_EVTONLY | O_CLOEXEC | O_NOFOLLOW | openFlags);
    if (fd < 0) {
        if (error) *error = std::strerror(errno);
        return false;
    }
    struct kevent change;
    EV_SET(&change, static_cast<uintptr_t>(fd), EVFILT_VNODE, EV_ADD | EV_CLEAR, flags, 0, nullptr);
    if (::kevent(queue, &change, 1, nullptr, 0, nullptr) < 0) {
        if (error) *error = std::strerror(errno);
        ::close(fd);
        return false;
    }
    watched.push_back(fd);
    return true;
}

}  // namespace

bool FileEvents::addDirectory(const std::string& directory, std::string* error) {
    return addWatch(fd_, watched_, directory, NOTE_WRITE, O_DIRECTORY, error);
}

bool FileEvents::addFile(const std::string& file, std::string* error) {
    return addWatch(fd_, watched_, file, NOTE_WRITE | NOTE_EXTEND | NOTE_ATTRIB | NOTE_DELETE | NOTE_RENAME, 0,
                    error);
}

std::vector<std::string> FileEvents::take() {
    std::vector<std::string> names;
    if (fd_ < 0) return names;
    struct kevent events[32];
    const timespec now{0, 0};
    for (;;) {
        const int count = ::kevent(fd_, nullptr, 0, events, 32, &now);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        for (int i = 0; i < count; ++i) names.emplace_back();
        if (count < 32) break;
    }
    return names;
}

}  // namespace AgentHook::platform
