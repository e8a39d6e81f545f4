#include "platform/Process.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <climits>
#include <unistd.h>

#include "platform/Streams.hpp"

extern char** environ;

namespace AgentHook::platform {
namespace {

std::vector<char*> argumentVector(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 2);
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    return argv;
}

// File actions for a child: stdin from the null device, stdout to `outputFd`
// (or the null device when negative), stderr to the null device, every other
// descriptor closed.
void prepareStreams(posix_spawn_file_actions_t& actions, int outputFd) {
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (outputFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, outputFd, STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
#endif
}

void prepareAttributes(posix_spawnattr_t& attributes, short extraFlags) {
    posix_spawnattr_init(&attributes);
    short flags = extraFlags;
#if defined(__APPLE__)
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
    posix_spawnattr_setflags(&attributes, flags);
}

using SteadyClock = std::chrono::steady_clock;

// More output than any git question here gets; a child that writes more is not git.
constexpr std::size_t kMaximumCapturedOutput = 1 << 20;

int exitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

// Blocks until `pid` has exited; only for a child that is sure to end (one
// just killed).
int waitForExit(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return exitCodeOf(status);
}

enum class Waited { exited, stillRunning, lost };

// Reaps `pid` once it exits, until `deadline`. A process cannot be polled
// portably, so this checks back in growing steps, from a tenth of a
// millisecond (a child that has just closed its output is about to exit) to ten.
Waited waitForExitUntil(pid_t pid, SteadyClock::time_point deadline, int& exitCode) {
    std::chrono::nanoseconds step = std::chrono::microseconds(100);
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            exitCode = exitCodeOf(status);
            return Waited::exited;
        }
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) return Waited::lost;
        const std::chrono::nanoseconds left = deadline - SteadyClock::now();
        if (left.count() <= 0) return Waited::stillRunning;
        const std::chrono::nanoseconds pause = std::min(step, left);
        const timespec request{static_cast<std::time_t>(pause.count() / 1'000'000'000),
                               static_cast<long>(pause.count() % 1'000'000'000)};
        ::nanosleep(&request, nullptr);  // a signal only shortens one step
        step = std::min<std::chrono::nanoseconds>(step * 2, std::chrono::milliseconds(10));
    }
}

// Reads the non-blocking `fd` to end of file. Nothing when a read fails, the
// output grows past kMaximumCapturedOutput, or `deadline` passes first
// (checked on every read, so an endless stream is cut off too).
std::optional<std::string> readUntil(int fd, SteadyClock::time_point deadline) {
    std::string output;
    char chunk[4096];
    for (;;) {
        if (SteadyClock::now() >= deadline || output.size() > kMaximumCapturedOutput) return std::nullopt;
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            output.append(chunk, static_cast<std::size_t>(n));
            continue;
        }
        if (n == 0) return output;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return std::nullopt;
        if (!waitUntilReady(fd, POLLIN, deadline)) return std::nullopt;
    }
}

pid_t spawn(const std::string& program, const std::vector<std::string>& arguments, int outputFd,
            short extraFlags, bool searchPath) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    prepareStreams(actions, outputFd);
    prepareAttributes(attributes, extraFlags);
    std::vector<char*> argv = argumentVector(program, arguments);
    pid_t pid = -1;
    const int result = searchPath
        ? ::posix_spawnp(&pid, program.c_str(), &actions, &attributes, argv.data(), environ)
        : ::posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return result == 0 ? pid : -1;
}

}  // namespace

std::optional<CapturedRun> runCapturingOutput(const std::string& executable,
                                              const std::vector<std::string>& arguments,
                                              std::chrono::milliseconds limit) {
    const SteadyClock::time_point deadline = SteadyClock::now() + limit;
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) return std::nullopt;
    ::fcntl(pipeFds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(pipeFds[1], F_SETFD, FD_CLOEXEC);
    ::fcntl(pipeFds[0], F_SETFL, O_NONBLOCK);
    // A group of its own, so that whatever the child starts is killed with it.
    const pid_t pid = spawn(executable, arguments, pipeFds[1], POSIX_SPAWN_SETPGROUP, false);
    ::close(pipeFds[1]);
    if (pid < 0) {
        ::close(pipeFds[0]);
        return std::nullopt;
    }
    // Drain while the child runs so a long output can never fill the pipe.
    std::optional<std::string> output = readUntil(pipeFds[0], deadline);
    ::close(pipeFds[0]);
    CapturedRun run;
    const Waited waited = output ? waitForExitUntil(pid, deadline, run.exitStatus) : Waited::stillRunning;
    if (waited == Waited::stillRunning) {
        ::kill(-pid, SIGKILL);
        ::kill(pid, SIGKILL);
        waitForExit(pid);
        return std::nullopt;
    }
    if (waited == Waited::lost) return std::nullopt;
    run.standardOutput = std::move(*output);
    return run;
}

bool runAndWait(const std::string& executable, const std::vector<std::string>& arguments,
                std::chrono::milliseconds limit) {
    const pid_t pid = spawn(executable, arguments, -1, 0, false);
    if (pid < 0) return false;
    int exitCode = 0;
    waitForExitUntil(pid, SteadyClock::now() + limit, exitCode);
    return true;
}

bool startDetached(const std::string& program, const std::vector<std::string>& arguments) {
#if defined(POSIX_SPAWN_SETSID)
    const short flags = POSIX_SPAWN_SETSID;
#else
    const short flags = 0;
#endif
    return spawn(program, arguments, -1, flags, true) >= 0;
}

void reapExitedChildren() {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

}  // namespace AgentHook::platform
