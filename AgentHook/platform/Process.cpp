#include "platform/Process.hpp"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
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

int waitForExit(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
                                              const std::vector<std::string>& arguments) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) return std::nullopt;
    ::fcntl(pipeFds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(pipeFds[1], F_SETFD, FD_CLOEXEC);
    const pid_t pid = spawn(executable, arguments, pipeFds[1], 0, false);
    ::close(pipeFds[1]);
    if (pid < 0) {
        ::close(pipeFds[0]);
        return std::nullopt;
    }
    // Drain while the child runs so a long output can never fill the pipe.
    std::optional<std::string> output = readAll(pipeFds[0]);
    ::close(pipeFds[0]);
    CapturedRun run;
    run.exitStatus = waitForExit(pid);
    run.standardOutput = output.value_or(std::string());
    return run;
}

bool runAndWait(const std::string& executable, const std::vector<std::string>& arguments) {
    const pid_t pid = spawn(executable, arguments, -1, 0, false);
    if (pid < 0) return false;
    waitForExit(pid);
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
