#include "BenchSupport.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace bench {

double nowMs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

void fail(const std::string& message) {
    const int error = errno;
    std::fprintf(stderr, "bench: %s%s%s\n", message.c_str(), error != 0 ? ": " : "",
                 error != 0 ? std::strerror(error) : "");
    std::exit(2);
}

std::vector<std::string> hookEnvironment(const std::string& home, const std::string& pathPrefix) {
    std::vector<std::string> result;
    bool sawPath = false;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view item(*entry);
        const std::string_view name = item.substr(0, item.find('='));
        // A real desktop session must not change what is measured.
        if (name == "HOME" || name == "XDG_DATA_HOME" || name == "DBUS_SESSION_BUS_ADDRESS" ||
            name == "XDG_RUNTIME_DIR" || name == "VOXTREL_SCHEME") {
            continue;
        }
        if (name == "PATH" && !pathPrefix.empty()) {
            result.push_back("PATH=" + pathPrefix + ":" + std::string(item.substr(5)));
            sawPath = true;
            continue;
        }
        result.emplace_back(item);
    }
    if (!sawPath && !pathPrefix.empty()) result.push_back("PATH=" + pathPrefix + ":/usr/bin:/bin");
    result.push_back("HOME=" + home);
    return result;
}

pid_t spawnProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const SpawnOptions& options) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!options.stdinPath.empty()) {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, options.stdinPath.c_str(), O_RDONLY, 0);
    } else if (options.stdinFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, options.stdinFd, STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    if (options.stdoutFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, options.stdoutFd, STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    std::vector<char*> envp;
    char** environment = environ;
    if (options.environment != nullptr) {
        for (const std::string& entry : *options.environment) envp.push_back(const_cast<char*>(entry.c_str()));
        envp.push_back(nullptr);
        environment = envp.data();
    }

    pid_t pid = -1;
    const int result = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environment);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) {
        errno = result;
        fail("cannot start " + program);
    }
    return pid;
}

int waitForChild(pid_t pid, rusage* usage) {
    int status = 0;
    rusage ignored{};
    while (::wait4(pid, &status, 0, usage != nullptr ? usage : &ignored) < 0) {
        if (errno != EINTR) fail("wait4");
    }
    return status;
}

bool exitedCleanly(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }

std::string makeTemporaryDirectory(std::string_view label) {
    std::string pattern = "/tmp/agent-hook-" + std::string(label) + "-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) fail("mkdtemp");
    return pattern;
}

void removeTree(const std::string& path) {
    if (path.empty() || path == "/") return;
    ::nftw(
        path.c_str(),
        [](const char* entry, const struct stat*, int, FTW*) {
            ::remove(entry);
            return 0;
        },
        16,
        FTW_DEPTH | FTW_PHYS);
}

void createDirectories(const std::string& path) {
    for (std::size_t i = 1; i <= path.size(); ++i) {
        if (i != path.size() && path[i] != '/') continue;
        const std::string part = path.substr(0, i);
        if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) fail("mkdir " + part);
    }
}

namespace {
void writeAt(const std::string& path, std::string_view bytes, int flags, int mode) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, mode);
    if (fd < 0) fail("open " + path);
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            fail("write " + path);
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    if (::close(fd) != 0) fail("close " + path);
}
}  // namespace

void writeFile(const std::string& path, std::string_view bytes, int mode) { writeAt(path, bytes, O_TRUNC, mode); }

void appendFile(const std::string& path, std::string_view bytes) { writeAt(path, bytes, O_APPEND, 0644); }

std::vector<std::string> listDirectory(const std::string& path) {
    std::vector<std::string> names;
    DIR* directory = ::opendir(path.c_str());
    if (directory == nullptr) return names;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(directory);
    return names;
}

std::string readFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    std::string bytes;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return bytes;
}

std::string uniqueToken() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return std::to_string(::getpid()) + "-" + std::to_string(now.tv_sec % 1000000) + "-" +
           std::to_string(now.tv_nsec / 1000);
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double percentile(std::vector<double> values, double p) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const auto rank = static_cast<std::size_t>(std::ceil(p / 100.0 * static_cast<double>(values.size())));
    return values[std::clamp<std::size_t>(rank, 1, values.size()) - 1];
}

}  // namespace bench
