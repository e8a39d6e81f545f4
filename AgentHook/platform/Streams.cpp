#include "platform/Streams.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace AgentHook::platform {

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

std::optional<std::string> readAll(int fd, std::size_t limit) {
    std::string bytes;
    struct stat info;
    // Size the buffer once for regular files; large transcripts are read whole.
    std::size_t chunk = 64 * 1024;
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
        chunk = std::min(static_cast<std::size_t>(info.st_size), limit) + 1;
    }
    std::size_t used = 0;
    for (;;) {
        if (used == bytes.size()) bytes.resize(used + chunk);
        const ssize_t n = ::read(fd, bytes.data() + used, bytes.size() - used);
        if (n < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
        if (used > limit) {
            errno = EFBIG;
            return std::nullopt;
        }
        chunk = std::max<std::size_t>(chunk, 64 * 1024);
    }
    bytes.resize(used);
    return bytes;
}

bool waitUntilReady(int fd, short events, std::chrono::steady_clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd watched{fd, events, 0};
        const int ready = ::poll(&watched, 1, static_cast<int>(std::min<std::chrono::milliseconds::rep>(left.count(), 60'000)));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

std::string readStandardInput() { return readAll(STDIN_FILENO).value_or(std::string()); }

bool writeStandardOutput(std::string_view bytes) { return writeAll(STDOUT_FILENO, bytes); }

// Standard error that refuses a line leaves nowhere to say so: the line is also in the log file.
void writeStandardError(std::string_view bytes) { static_cast<void>(writeAll(STDERR_FILENO, bytes)); }

void keepStandardStreamsOpen() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
        // open() takes the lowest free number: this one.
        const int opened = ::open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY);
        if (opened != fd && opened >= 0) ::close(opened);
    }
}

bool standardOutputCanHangUp() {
    struct stat info;
    return ::fstat(STDOUT_FILENO, &info) == 0 && (S_ISSOCK(info.st_mode) || S_ISFIFO(info.st_mode));
}

bool standardOutputGone() {
    if (!standardOutputCanHangUp()) return false;
    pollfd output{STDOUT_FILENO, 0, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & (POLLHUP | POLLERR)) != 0;
}

}  // namespace AgentHook::platform
