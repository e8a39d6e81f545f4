// Small helpers shared by the process benchmarks: starting a program without
// a shell, the environment every hook run gets (a private HOME, no
// XDG_DATA_HOME, no session bus), scratch directories and summary statistics.
// Failures to set up are fatal: a benchmark that cannot run reports and exits.
#pragma once

#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

namespace bench {

// Milliseconds on the monotonic clock.
double nowMs();

// Prints the message with errno's text, then exits with status 2.
[[noreturn]] void fail(const std::string& message);

// The parent's environment without HOME, XDG_DATA_HOME and anything that
// leads to a desktop session bus, plus HOME=`home`; `pathPrefix` (when not
// empty) is put first on PATH.
std::vector<std::string> hookEnvironment(const std::string& home, const std::string& pathPrefix = {});

struct SpawnOptions {
    std::string stdinPath;  // opened read-only as standard input, when not empty
    int stdinFd = -1;       // dup'ed onto standard input, when not negative
    int stdoutFd = -1;      // dup'ed onto standard output, when not negative (else the null device)
    const std::vector<std::string>* environment = nullptr;  // the parent's when null
};

// posix_spawn of `program` (an absolute path) with `arguments` after argv[0];
// standard output and error go to the null device. Exits the benchmark on failure.
pid_t spawnProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const SpawnOptions& options);

// Waits for the child (retrying on EINTR); the raw wait status.
int waitForChild(pid_t pid, rusage* usage = nullptr);

// True when the wait status is a normal exit with status 0.
bool exitedCleanly(int status);

std::string makeTemporaryDirectory(std::string_view label);
void removeTree(const std::string& path);
void createDirectories(const std::string& path);
void writeFile(const std::string& path, std::string_view bytes, int mode = 0644);
void appendFile(const std::string& path, std::string_view bytes);
std::string readFile(const std::string& path);
// The names in a directory (none when it cannot be read).
std::vector<std::string> listDirectory(const std::string& path);

// A token that no other process on the machine uses at the same time.
std::string uniqueToken();

double median(std::vector<double> values);
// Nearest-rank percentile, `p` in (0, 100].
double percentile(std::vector<double> values, double p);

}  // namespace bench
