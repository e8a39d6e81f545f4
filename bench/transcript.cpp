// The Stop event of a long session: the final message must come from a
// 100 MB transcript (about 40,000 entries) and the title from the sessions
// index beside it, since the transcript holds no custom title. Times the
// work from process start until the payload lands in the inbox, then sends
// SIGINT (the hook dismisses and exits) and takes the peak memory from wait4.
//
//   transcript-bench [--runs N] [--warmup N] [--megabytes N] [--lines N] [--hook PATH] [--keep]
//
// --keep leaves the temporary HOME, transcript and event in place and prints
// how to start the hook on them by hand (for a profiler).
// Exit status 0 when both targets are met, 1 when one misses.
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <poll.h>
#include <string>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "BenchSupport.hpp"
#include "TranscriptGenerator.hpp"

namespace {

constexpr double kTargetMs = 150;
constexpr double kTargetMemoryRatio = 1.5;
constexpr const char* kScratch = "/tmp/voxtrel-agent";

void usage() {
    std::fprintf(stderr,
                 "usage: transcript-bench [--runs N] [--warmup N] [--megabytes N] [--lines N] [--hook PATH]"
                 " [--keep]\n");
    std::exit(64);
}

void emptyDirectory(const std::string& path) {
    DIR* directory = ::opendir(path.c_str());
    if (directory == nullptr) return;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") ::unlink((path + "/" + name).c_str());
    }
    ::closedir(directory);
}

// Removes this session's files from the shared scratch directory, and only those.
void removeScratchFiles(const std::string& sessionId) {
    const std::string prefix = sessionId + "-stop-";
    DIR* directory = ::opendir(kScratch);
    if (directory == nullptr) return;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) == 0) ::unlink((std::string(kScratch) + "/" + name).c_str());
    }
    ::closedir(directory);
}

// True once the process has a handler for SIGINT: only then does the signal
// mean "dismiss" rather than the default termination.
bool catchesInterrupt(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("SigCgt:", 0) != 0) continue;
        const unsigned long long mask = std::strtoull(line.c_str() + 7, nullptr, 16);
        return (mask & (1ull << (SIGINT - 1))) != 0;
    }
    return false;
}

// The name of the first finished payload (a "*.json" moved or written into
// the inbox) within `timeoutMs`; empty when none came or the child ended first.
std::string awaitPayload(int watch, pid_t pid, double timeoutMs) {
    const double deadline = bench::nowMs() + timeoutMs;
    alignas(inotify_event) char buffer[4096];
    while (bench::nowMs() < deadline) {
        pollfd waiting{watch, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, 20);
        if (ready > 0) {
            const ssize_t length = ::read(watch, buffer, sizeof buffer);
            for (ssize_t offset = 0; offset < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                if (event->len == 0) continue;
                const std::string name = event->name;
                if (name.size() > 5 && name.compare(name.size() - 5, 5, ".json") == 0) return name;
            }
            continue;
        }
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            std::fprintf(stderr, "transcript-bench: the hook ended (status %d) before writing a payload\n", status);
            std::exit(2);
        }
    }
    return {};
}

struct Run {
    double milliseconds = 0;
    long peakKilobytes = 0;
    bool clean = false;
};

}  // namespace

int main(int argc, char** argv) {
    int runs = 5;
    int warmup = 1;
    std::size_t megabytes = 100;
    std::size_t lines = 40000;
    std::string hook = AGENT_HOOK_PROGRAM;
    bool keep = false;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--keep") {
            keep = true;
            continue;
        }
        if (i + 1 >= argc) usage();
        const char* value = argv[++i];
        if (option == "--runs") runs = std::atoi(value);
        else if (option == "--warmup") warmup = std::atoi(value);
        else if (option == "--megabytes") megabytes = std::strtoul(value, nullptr, 10);
        else if (option == "--lines") lines = std::strtoul(value, nullptr, 10);
        else if (option == "--hook") hook = value;
        else usage();
    }
    if (runs < 1 || warmup < 0 || megabytes < 1 || lines < 10) usage();

    // The project folder lies outside any git repository: git runs on it.
    const std::string root = bench::makeTemporaryDirectory("transcript");
    const std::string home = root + "/home";
    const std::string cwd = root + "/project";
    const std::string bin = root + "/bin";
    bench::createDirectories(cwd);
    bench::createDirectories(bin);
    // The app is not running, so the hook asks xdg-open to wake it; a no-op stands in.
    bench::writeFile(bin + "/xdg-open", "#!/bin/sh\nexit 0\n", 0755);

    const std::string sessionId = "bench-transcript-" + bench::uniqueToken();
    std::string folder = cwd;
    for (char& c : folder) {
        if (c == '/') c = '-';
    }
    const std::string projectDirectory = home + "/.claude/projects/" + folder;
    bench::createDirectories(projectDirectory);
    const std::string transcriptPath = projectDirectory + "/" + sessionId + ".jsonl";

    bench::TranscriptShape shape;
    shape.targetBytes = megabytes * 1024 * 1024;
    shape.targetLines = lines;
    shape.sessionId = sessionId;
    shape.cwd = cwd;
    shape.finalMessage = "Done. The parser now streams its input, and all 214 tests pass \xE2\x9C\x85";
    const double generationStart = bench::nowMs();
    bench::Transcript transcript = bench::generateTranscript(shape);
    bench::writeFile(transcriptPath, transcript.text);
    const std::size_t fileBytes = transcript.text.size();
    const std::size_t lineCount = transcript.lines;
    const std::size_t escapedLines = transcript.linesWithEscapes;
    std::string().swap(transcript.text);
    const double generationMs = bench::nowMs() - generationStart;

    const std::string summary = "Benchmark session: stream the parser input";
    bench::writeFile(projectDirectory + "/sessions-index.json",
                     "{\"version\":1,\"entries\":[{\"sessionId\":\"other-session\",\"summary\":\"Another session\"},"
                     "{\"sessionId\":" + bench::jsonString(sessionId) + ",\"fullPath\":" +
                         bench::jsonString(transcriptPath) + ",\"summary\":" + bench::jsonString(summary) +
                         ",\"messageCount\":" + std::to_string(lineCount) + ",\"projectPath\":" +
                         bench::jsonString(cwd) + ",\"isSidechain\":false}]}");

    const std::string eventPath = root + "/stop.json";
    bench::writeFile(eventPath, "{\"hook_event_name\":\"Stop\",\"session_id\":" + bench::jsonString(sessionId) +
                                    ",\"transcript_path\":" + bench::jsonString(transcriptPath) +
                                    ",\"cwd\":" + bench::jsonString(cwd) + ",\"stop_hook_active\":false}");

    // The app would have made the inbox long ago; it must exist to be watched.
    const std::string inbox = home + "/.local/share/voxtrel/agent/inbox";
    bench::createDirectories(inbox);
    const int watch = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watch < 0 || ::inotify_add_watch(watch, inbox.c_str(), IN_MOVED_TO | IN_CLOSE_WRITE) < 0) {
        bench::fail("inotify");
    }

    const std::vector<std::string> environment = bench::hookEnvironment(home, bin);
    const std::string messageFile = std::string(kScratch) + "/" + sessionId + "-stop-message.txt";
    std::vector<Run> measured;
    std::string problems;
    for (int round = 0; round < warmup + runs; ++round) {
        emptyDirectory(inbox);
        char drain[4096];
        while (::read(watch, drain, sizeof drain) > 0) {
        }

        bench::SpawnOptions options;
        options.stdinPath = eventPath;
        options.environment = &environment;
        const double start = bench::nowMs();
        const pid_t pid = bench::spawnProgram(hook, {"claude"}, options);
        const std::string payloadName = awaitPayload(watch, pid, 30000);
        const double elapsed = bench::nowMs() - start;
        if (payloadName.empty()) {
            ::kill(pid, SIGKILL);
            bench::waitForChild(pid);
            std::fprintf(stderr, "transcript-bench: no payload within 30 s\n");
            return 2;
        }
        const double handlerDeadline = bench::nowMs() + 10000;
        while (!catchesInterrupt(pid) && bench::nowMs() < handlerDeadline) ::usleep(200);
        ::kill(pid, SIGINT);
        rusage usage{};
        const int status = bench::waitForChild(pid, &usage);

        const std::string payload = bench::readFile(inbox + "/" + payloadName);
        if (payload.find("\"title\":" + bench::jsonString(summary)) == std::string::npos) {
            problems += "  run " + std::to_string(round) + ": the payload lacks the index title\n";
        }
        if (bench::readFile(messageFile) != shape.finalMessage) {
            problems += "  run " + std::to_string(round) + ": the message file is not the transcript's final message\n";
        }
        if (round < warmup) continue;
        measured.push_back({elapsed, usage.ru_maxrss, bench::exitedCleanly(status)});
    }

    ::close(watch);
    removeScratchFiles(sessionId);
    if (keep) {
        std::printf("kept %s; to run the hook by hand:\n  env -u XDG_DATA_HOME HOME=%s PATH=%s:$PATH %s claude < %s\n",
                    root.c_str(), home.c_str(), bin.c_str(), hook.c_str(), eventPath.c_str());
    } else {
        bench::removeTree(root);
    }

    std::vector<double> times;
    long peak = 0;
    bool allClean = true;
    std::printf("transcript: %.1f MB, %zu lines (%zu with \\u escapes), no custom title, title from the index"
                " (generated in %.0f ms)\n",
                static_cast<double>(fileBytes) / 1e6, lineCount, escapedLines, generationMs);
    for (std::size_t i = 0; i < measured.size(); ++i) {
        const Run& run = measured[i];
        times.push_back(run.milliseconds);
        peak = std::max(peak, run.peakKilobytes);
        allClean = allClean && run.clean;
        std::printf("  run %zu: %7.1f ms to the payload, peak RSS %6.1f MB%s\n", i + 1, run.milliseconds,
                    static_cast<double>(run.peakKilobytes) * 1024 / 1e6, run.clean ? "" : ", exit status not 0");
    }
    const double middle = bench::median(times);
    const double memoryRatio = static_cast<double>(peak) * 1024 / static_cast<double>(fileBytes);
    const bool timeMet = middle < kTargetMs;
    const bool memoryMet = memoryRatio < kTargetMemoryRatio;
    std::printf("  work before the wait, median of %d: %.1f ms (target < %.0f ms) %s\n", runs, middle, kTargetMs,
                timeMet ? "ok" : "MISSED");
    std::printf("  peak RSS: %.1f MB = %.2fx the transcript (target < %.1fx) %s\n",
                static_cast<double>(peak) * 1024 / 1e6, memoryRatio, kTargetMemoryRatio,
                memoryMet ? "ok" : "MISSED");
    if (!problems.empty()) std::printf("  wrong output:\n%s", problems.c_str());
    if (!allClean) std::printf("  some runs did not exit with status 0 after SIGINT\n");
    return timeMet && memoryMet && problems.empty() && allClean ? 0 : 1;
}
