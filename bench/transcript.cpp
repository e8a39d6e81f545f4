// The Stop event of a long session: the final message must come from a
// generated transcript (100 MB and about 40,000 entries by default) and the
// title from the sessions index beside it, since the transcript holds no
// custom title. Times the work from process start until the payload lands in
// the inbox, then sends SIGINT (the hook dismisses and exits) and takes the
// peak memory from wait4. Each round also times `wc -l` on the same file,
// started the same way, as the yardstick of reading the file once.
//
//   transcript-bench [--runs N] [--warmup N] [--megabytes N] [--lines N] [--hook PATH] [--keep]
//
// Targets: peak memory under 16 MiB at any size; at the default 100 MB the
// work before the wait under 150 ms; from 1024 MB (1 GiB) on, at most three
// times what `wc -l` takes. --lines defaults to 400 per megabyte. The
// transcript is written in pieces (a 1 GiB file is never held in memory) and
// removed at the end, whatever the outcome.
//
// --keep leaves the temporary HOME, transcript and event in place and prints
// how to start the hook on them by hand (for a profiler).
// Exit status 0 when every target that applies is met, 1 when one misses.
#include <algorithm>
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
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "BenchSupport.hpp"
#include "TranscriptGenerator.hpp"

namespace {

constexpr double kTargetMs = 150;  // at the default size
constexpr std::size_t kDefaultMegabytes = 100;
constexpr double kTargetWcRatio = 3;  // from kWcRatioFromMegabytes on
constexpr std::size_t kWcRatioFromMegabytes = 1024;
constexpr double kTargetPeakBytes = 16.0 * 1024 * 1024;
constexpr const char* kScratch = "/tmp/voxtrel-agent";

// The temporary tree, removed at every exit unless --keep.
std::string temporaryRoot;
void removeTemporaryRoot() {
    if (!temporaryRoot.empty()) bench::removeTree(temporaryRoot);
}

std::string wcProgram() {
    for (const char* candidate : {"/usr/bin/wc", "/bin/wc"}) {
        if (::access(candidate, X_OK) == 0) return candidate;
    }
    bench::fail("no wc in /usr/bin or /bin");
}

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
    double wcMilliseconds = 0;
    long peakKilobytes = 0;
    bool clean = false;
};

// Milliseconds from starting `wc -l path` to its exit.
double timeWc(const std::string& wc, const std::string& path, const std::vector<std::string>& environment) {
    bench::SpawnOptions options;
    options.environment = &environment;
    const double start = bench::nowMs();
    const pid_t pid = bench::spawnProgram(wc, {"-l", path}, options);
    const int status = bench::waitForChild(pid);
    const double elapsed = bench::nowMs() - start;
    if (!bench::exitedCleanly(status)) bench::fail("wc -l failed");
    return elapsed;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 5;
    int warmup = 1;
    std::size_t megabytes = kDefaultMegabytes;
    std::size_t lines = 0;
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
    if (lines == 0) lines = megabytes * 400;
    if (runs < 1 || warmup < 0 || megabytes < 1 || lines < 10) usage();

    // The project folder lies outside any git repository: git runs on it.
    const std::string root = bench::makeTemporaryDirectory("transcript");
    if (!keep) {
        temporaryRoot = root;
        std::atexit(removeTemporaryRoot);
    }
    struct statvfs disk{};
    if (::statvfs(root.c_str(), &disk) == 0 &&
        static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize) <
            static_cast<double>(megabytes) * 1024 * 1024 + 512.0 * 1024 * 1024) {
        std::fprintf(stderr, "transcript-bench: not enough free disk space in %s for a %zu MB transcript\n",
                     root.c_str(), megabytes);
        return 2;
    }
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
    std::FILE* output = std::fopen(transcriptPath.c_str(), "wb");
    if (output == nullptr) bench::fail("cannot create " + transcriptPath);
    const bench::Transcript transcript = bench::generateTranscript(shape, [&](std::string_view piece) {
        if (std::fwrite(piece.data(), 1, piece.size(), output) != piece.size()) bench::fail("cannot write the transcript");
    });
    if (std::fclose(output) != 0) bench::fail("cannot write the transcript");
    const std::size_t fileBytes = transcript.bytes;
    const std::size_t lineCount = transcript.lines;
    const std::size_t escapedLines = transcript.linesWithEscapes;
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
    const std::string wc = wcProgram();
    const std::string messageFile = std::string(kScratch) + "/" + sessionId + "-stop-message.txt";
    std::vector<Run> measured;
    std::string problems;
    for (int round = 0; round < warmup + runs; ++round) {
        // wc runs before the hook in even rounds and after it in odd ones.
        const double wcBefore = round % 2 == 0 ? timeWc(wc, transcriptPath, environment) : 0;
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
        const double wcMilliseconds = round % 2 == 0 ? wcBefore : timeWc(wc, transcriptPath, environment);
        if (round < warmup) continue;
        measured.push_back({elapsed, wcMilliseconds, usage.ru_maxrss, bench::exitedCleanly(status)});
    }

    ::close(watch);
    removeScratchFiles(sessionId);
    if (keep) {
        std::printf("kept %s; to run the hook by hand:\n  env -u XDG_DATA_HOME HOME=%s PATH=%s:$PATH %s claude < %s\n",
                    root.c_str(), home.c_str(), bin.c_str(), hook.c_str(), eventPath.c_str());
    } else {
        removeTemporaryRoot();
        temporaryRoot.clear();
    }

    std::vector<double> times;
    std::vector<double> wcTimes;
    long peak = 0;
    bool allClean = true;
    const double fileMegabytes = static_cast<double>(fileBytes) / 1e6;
    std::printf("transcript: %.1f MB, %zu lines (%zu with \\u escapes), no custom title, title from the index"
                " (generated in %.0f ms)\n",
                fileMegabytes, lineCount, escapedLines, generationMs);
    for (std::size_t i = 0; i < measured.size(); ++i) {
        const Run& run = measured[i];
        times.push_back(run.milliseconds);
        wcTimes.push_back(run.wcMilliseconds);
        peak = std::max(peak, run.peakKilobytes);
        allClean = allClean && run.clean;
        std::printf("  run %zu: %7.1f ms to the payload (wc -l %7.1f ms), peak RSS %5.1f MB%s\n", i + 1,
                    run.milliseconds, run.wcMilliseconds, static_cast<double>(run.peakKilobytes) * 1024 / 1e6,
                    run.clean ? "" : ", exit status not 0");
    }
    const double middle = bench::median(times);
    const double wcMiddle = bench::median(wcTimes);
    const double ratio = middle / wcMiddle;
    const double peakBytes = static_cast<double>(peak) * 1024;
    bool met = true;
    if (megabytes == kDefaultMegabytes) {
        const bool timeMet = middle < kTargetMs;
        met = met && timeMet;
        std::printf("  work before the wait, %.0f MB, median of %d: %.1f ms (target < %.0f ms) %s\n", fileMegabytes,
                    runs, middle, kTargetMs, timeMet ? "ok" : "MISSED");
    }
    if (megabytes >= kWcRatioFromMegabytes) {
        const bool ratioMet = ratio <= kTargetWcRatio;
        met = met && ratioMet;
        std::printf("  work before the wait, %.0f MB, median of %d: %.1f ms = %.2fx wc -l (%.1f ms) (target <= %.0fx) %s\n",
                    fileMegabytes, runs, middle, ratio, wcMiddle, kTargetWcRatio, ratioMet ? "ok" : "MISSED");
    } else {
        std::printf("  wc -l on the same file, median: %.1f ms (the hook takes %.2fx)\n", wcMiddle, ratio);
    }
    const bool memoryMet = peakBytes < kTargetPeakBytes;
    met = met && memoryMet;
    std::printf("  peak RSS, %.0f MB: %.1f MB (target < 16 MiB) %s\n", fileMegabytes, peakBytes / 1e6,
                memoryMet ? "ok" : "MISSED");
    if (!problems.empty()) std::printf("  wrong output:\n%s", problems.c_str());
    if (!allClean) std::printf("  some runs did not exit with status 0 after SIGINT\n");
    return met && problems.empty() && allClean ? 0 : 1;
}
