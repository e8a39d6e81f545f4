// Many hooks logging at once: starts 64 hook processes together on a
// Notification event and checks that every line each of them writes is in
// the shared debug log whole, exactly once. The children block reading
// standard input (a pipe) after their first line, and get their input only
// once all are running, so the rest of their lines are written together.
//
//   concurrent-log-bench [--processes N] [--rounds N] [--hook PATH]
//
// Exit status 0 when no line is lost, doubled or broken, 1 otherwise.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "BenchSupport.hpp"

namespace {

constexpr const char* kLog = "/tmp/voxtrel-agent/debug.log";

void usage() {
    std::fprintf(stderr, "usage: concurrent-log-bench [--processes N] [--rounds N] [--hook PATH]\n");
    std::exit(64);
}

long long logSize() {
    struct stat info;
    return ::stat(kLog, &info) == 0 ? static_cast<long long>(info.st_size) : 0;
}

std::string logFrom(long long offset) {
    const int fd = ::open(kLog, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    std::string bytes;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::pread(fd, buffer, sizeof buffer, offset + static_cast<long long>(bytes.size()));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return bytes;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// "[YYYY-MM-DDTHH:MM:SSZ] [pid] message": the pid and the message, or false.
bool parseLine(const std::string& line, long& pid, std::string& message) {
    static const std::string shape = "[0000-00-00T00:00:00Z] [";
    if (line.size() < shape.size() + 3) return false;
    for (std::size_t i = 0; i < shape.size(); ++i) {
        if (shape[i] == '0' ? !isDigit(line[i]) : line[i] != shape[i]) return false;
    }
    std::size_t i = shape.size();
    const std::size_t digits = i;
    while (i < line.size() && isDigit(line[i])) ++i;
    if (i == digits || line.compare(i, 2, "] ") != 0) return false;
    pid = std::strtol(line.c_str() + digits, nullptr, 10);
    message = line.substr(i + 2);
    return true;
}

struct Tally {
    int expected = 0;
    int found = 0;
    int lost = 0;
    int doubled = 0;
    int broken = 0;  // our pid with a message we never write, or a fragment naming our run
    int failedProcesses = 0;
};

Tally runRound(const std::string& hook, const std::vector<std::string>& environment, const std::string& run,
               int processes) {
    Tally tally;
    const long long offset = logSize();

    std::vector<pid_t> pids;
    std::vector<int> writers;
    std::vector<std::string> inputs;
    for (int i = 0; i < processes; ++i) {
        // No trailing line feed, so the logged input record stays one line.
        inputs.push_back(R"({"hook_event_name":"Notification","session_id":"logbench-)" + run + "-" +
                         std::to_string(i) + R"(","notification_type":"idle_prompt"})");
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) bench::fail("pipe2");
        bench::SpawnOptions options;
        options.stdinFd = ends[0];
        options.environment = &environment;
        pids.push_back(bench::spawnProgram(hook, {"claude"}, options));
        ::close(ends[0]);
        writers.push_back(ends[1]);
    }
    for (int i = 0; i < processes; ++i) {
        if (::write(writers[i], inputs[i].data(), inputs[i].size()) != static_cast<ssize_t>(inputs[i].size())) {
            bench::fail("write to a hook");
        }
        ::close(writers[i]);
    }
    for (const pid_t pid : pids) {
        if (!bench::exitedCleanly(bench::waitForChild(pid))) ++tally.failedProcesses;
    }

    // Expected messages per pid, each to be seen exactly once.
    std::map<long, std::map<std::string, int>> expected;
    for (int i = 0; i < processes; ++i) {
        auto& messages = expected[pids[i]];
        messages["Hook started (claude)"] = 0;
        messages["Input (" + std::to_string(inputs[i].size()) + " bytes): " + inputs[i]] = 0;
        messages["Event: Notification session=logbench-" + run + "-" + std::to_string(i)] = 0;
        messages["Notification type: idle_prompt, skipping"] = 0;
    }

    const std::string text = logFrom(offset);
    const std::string marker = "logbench-" + run + "-";
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        // A last line without its line feed is broken too.
        const bool complete = end != std::string::npos;
        if (!complete) end = text.size();
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        long pid = 0;
        std::string message;
        const bool parsed = complete && parseLine(line, pid, message);
        const auto ours = parsed ? expected.find(pid) : expected.end();
        if (ours == expected.end()) {
            // Lines of other processes are not ours to judge, unless they carry
            // our run's text; a torn line of ours also shows as a lost one.
            if (line.find(marker) != std::string::npos) ++tally.broken;
            continue;
        }
        const auto slot = ours->second.find(message);
        if (slot == ours->second.end()) {
            ++tally.broken;
            continue;
        }
        ++slot->second;
    }
    for (const auto& [pid, messages] : expected) {
        for (const auto& [message, count] : messages) {
            ++tally.expected;
            if (count == 0) ++tally.lost;
            if (count >= 1) ++tally.found;
            if (count > 1) tally.doubled += count - 1;
        }
    }
    return tally;
}

}  // namespace

int main(int argc, char** argv) {
    int processes = 64;
    int rounds = 5;
    std::string hook = AGENT_HOOK_PROGRAM;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (i + 1 >= argc) usage();
        const char* value = argv[++i];
        if (option == "--processes") processes = std::atoi(value);
        else if (option == "--rounds") rounds = std::atoi(value);
        else if (option == "--hook") hook = value;
        else usage();
    }
    if (processes < 1 || rounds < 1) usage();

    const std::string home = bench::makeTemporaryDirectory("logbench");
    const std::vector<std::string> environment = bench::hookEnvironment(home);
    ::mkdir("/tmp/voxtrel-agent", 0777);  // shared: created when missing, never removed

    std::printf("concurrent log: %d rounds of %d hook processes at once, checked in %s\n", rounds, processes, kLog);
    bool allWhole = true;
    const std::string token = bench::uniqueToken();
    for (int round = 0; round < rounds; ++round) {
        const std::string run = token + "r" + std::to_string(round);
        const double start = bench::nowMs();
        const Tally tally = runRound(hook, environment, run, processes);
        const double elapsed = bench::nowMs() - start;
        const bool whole = tally.lost == 0 && tally.doubled == 0 && tally.broken == 0 && tally.failedProcesses == 0;
        allWhole = allWhole && whole;
        std::printf("  round %d: %d/%d lines whole, %d lost, %d doubled, %d broken, %d processes failed"
                    " (%.0f ms) %s\n",
                    round + 1, tally.found, tally.expected, tally.lost, tally.doubled,
                    tally.broken, tally.failedProcesses, elapsed, whole ? "ok" : "FAILED");
    }
    bench::removeTree(home);
    std::printf("  target: every line whole, none lost: %s\n", allWhole ? "ok" : "FAILED");
    return allWhole ? 0 : 1;
}
