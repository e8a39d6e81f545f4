#include "platform/Signals.hpp"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "platform/Clock.hpp"
#include "platform/Streams.hpp"

namespace AgentHook::platform {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t caught = 0;
// The handler writes a byte here, so a wait in poll() ends at once: one
// wake-up for signals and standard output alike.
int wakePipe[2] = {-1, -1};

extern "C" void onTerminationSignal(int signal) {
    if (caught == 0) caught = signal;
    const int saved = errno;
    if (wakePipe[1] >= 0) {
        const char byte = 0;
        [[maybe_unused]] const ssize_t written = ::write(wakePipe[1], &byte, 1);
    }
    errno = saved;
}

bool makeWakePipe() {
    if (wakePipe[0] >= 0) return true;
    if (::pipe(wakePipe) != 0) return false;
    for (const int fd : wakePipe) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    return true;
}

}  // namespace

void catchTerminationSignals() {
    if (makeWakePipe()) {
        char stale[64];
        while (::read(wakePipe[0], stale, sizeof stale) > 0) {
        }
    }
    caught = 0;
    struct sigaction action{};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: a wait must end at once
    for (const int signal : kSignals) ::sigaction(signal, &action, nullptr);
}

int caughtSignal() { return caught; }

const char* signalName(int signal) {
    switch (signal) {
        case SIGINT: return "SIGINT";
        case SIGTERM: return "SIGTERM";
        case SIGHUP: return "SIGHUP";
        default: return "signal";
    }
}

void restoreDefaultSignals() {
    for (const int signal : kSignals) std::signal(signal, SIG_DFL);
}

void waitForWakeup(double seconds, int descriptor) {
    if (caught != 0) return;
    pollfd watched[3] = {{wakePipe[0], POLLIN, 0}, {-1, 0, 0}, {descriptor, POLLIN, 0}};
    // Only a socket or a pipe can hang up; a terminal or a file never means the agent left.
    if (standardOutputCanHangUp()) watched[1].fd = STDOUT_FILENO;
    const double deadline = steadySeconds() + seconds;
    for (;;) {
        const double left = deadline - steadySeconds();
        if (left <= 0) return;
        const int ready = ::poll(watched, 3, static_cast<int>(left * 1000) + 1);
        if (ready != 0 && !(ready < 0 && errno == EINTR)) return;
        if (caught != 0) return;
    }
}

}  // namespace AgentHook::platform
