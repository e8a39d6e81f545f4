// How fast the voice loop reacts, with the real program and this benchmark
// playing the app (it takes each payload from the inbox, as the app does):
//
// - answer: from the response file moved into place to the decision on the
//   hook's standard output (a Codex permission request);
// - withdrawal: from Claude Code's transcript line that answers the call in
//   its own dialog to the dismiss payload in the inbox;
//
// each at several moments of the wait, with p50 and p99. And the CPU time a
// hook uses while it waits a minute for an answer.
//
//   latency-bench [--runs N] [--cpu-seconds S]
//
// Exit status 0 when every figure meets its target, 1 when one misses.
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "BenchSupport.hpp"
#include "bridge/AgentInboxPayload.hpp"

namespace {

constexpr double kTargetP99Ms = 10;
constexpr double kTargetCpuMsPerMinute = 20;
// Seconds after the request reached the app: inside the first poll, between
// polls, and later in the first five minutes.
constexpr double kMoments[] = {0.05, 0.4, 1.5, 3.2};

struct Setup {
    std::string directory;
    std::string inbox;
    std::vector<std::string> environment;
};

void sleepMs(double ms) { ::usleep(static_cast<useconds_t>(ms * 1000)); }

// Waits for the session's update payload, takes it from the inbox as the app
// does, and returns it.
AgentHook::AgentInboxPayload takeRequest(const Setup& setup, const std::string& session) {
    const double deadline = bench::nowMs() + 10000;
    while (bench::nowMs() < deadline) {
        for (const std::string& name : bench::listDirectory(setup.inbox)) {
            const std::string path = setup.inbox + "/" + name;
            if (!name.ends_with(".json")) continue;
            const auto payload = AgentHook::decodeInboxPayload(bench::readFile(path));
            if (!payload || payload->sessionId != session ||
                payload->kind != AgentHook::AgentInboxPayload::Kind::update) {
                continue;
            }
            ::unlink(path.c_str());
            return *payload;
        }
        sleepMs(0.5);
    }
    bench::fail("no request from the hook within 10 s");
}

struct Hook {
    pid_t pid = -1;
    int output = -1;  // the reading end of its standard output
};

Hook startHook(const Setup& setup, const std::string& agent, const std::string& input) {
    const std::string inputPath = setup.directory + "/input-" + bench::uniqueToken() + ".json";
    bench::writeFile(inputPath, input);
    int fds[2];
    if (::pipe(fds) != 0) bench::fail("pipe");
    bench::SpawnOptions options;
    options.stdinPath = inputPath;
    options.stdoutFd = fds[1];
    options.environment = &setup.environment;
    Hook hook{bench::spawnProgram(AGENT_HOOK_PROGRAM, {agent}, options), fds[0]};
    ::close(fds[1]);
    return hook;
}

Hook startCodexPermission(const Setup& setup, const std::string& session) {
    return startHook(setup, "codex",
                     R"({"hook_event_name":"PermissionRequest","session_id":")" + session +
                         R"(","cwd":"/tmp","tool_name":"Bash","tool_input":{"command":"make"}})");
}

std::string finishHook(Hook& hook) {
    std::string out;
    char buffer[4096];
    for (ssize_t n; (n = ::read(hook.output, buffer, sizeof buffer)) > 0;) out.append(buffer, static_cast<std::size_t>(n));
    ::close(hook.output);
    bench::waitForChild(hook.pid);
    return out;
}

// Milliseconds from the answer's rename to the first byte of the decision.
double answerLatency(const Setup& setup, double moment) {
    const std::string session = "bench-answer-" + bench::uniqueToken();
    Hook hook = startCodexPermission(setup, session);
    const AgentHook::AgentInboxPayload request = takeRequest(setup, session);
    sleepMs(moment * 1000);
    const std::string response = request.responseFile.value_or("");
    bench::writeFile(response + ".partial", "allow", 0600);
    const double start = bench::nowMs();
    if (::rename((response + ".partial").c_str(), response.c_str()) != 0) bench::fail("rename " + response);
    pollfd ready{hook.output, POLLIN, 0};
    if (::poll(&ready, 1, 10000) != 1) bench::fail("no decision within 10 s of the answer");
    const double latency = bench::nowMs() - start;
    if (finishHook(hook).find("allow") == std::string::npos) bench::fail("the decision is not \"allow\"");
    return latency;
}

// Milliseconds from the transcript line to the dismiss payload's arrival.
double withdrawalLatency(const Setup& setup, double moment) {
    const std::string session = "bench-withdrawal-" + bench::uniqueToken();
    const std::string transcript = setup.directory + "/" + session + ".jsonl";
    bench::writeFile(transcript,
                     R"({"type":"assistant","message":{"content":[{"type":"tool_use","id":"toolu_1","name":"Bash","input":{"command":"make"}}]}})"
                     "\n");
    Hook hook = startHook(setup, "claude",
                          R"({"hook_event_name":"PermissionRequest","session_id":")" + session +
                              R"(","cwd":"/tmp","transcript_path":")" + transcript +
                              R"(","tool_name":"Bash","tool_input":{"command":"make"}})");
    takeRequest(setup, session);
    // Watched from now on: the next payload in is the dismiss.
    const int events = ::inotify_init1(IN_CLOEXEC);
    if (events < 0 || ::inotify_add_watch(events, setup.inbox.c_str(), IN_MOVED_TO) < 0) bench::fail("inotify");
    sleepMs(moment * 1000);
    const std::string line =
        R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"toolu_1","content":"ok"}]}})" "\n";
    const double start = bench::nowMs();
    bench::appendFile(transcript, line);
    for (;;) {
        pollfd ready{events, POLLIN, 0};
        if (::poll(&ready, 1, 10000) != 1) bench::fail("no dismiss within 10 s of the transcript line");
        alignas(inotify_event) char buffer[4096];
        if (::read(events, buffer, sizeof buffer) > 0) break;
    }
    const double latency = bench::nowMs() - start;
    ::close(events);
    finishHook(hook);
    return latency;
}

// CPU milliseconds a hook uses while it waits `seconds` for an answer.
double waitingCpuMs(const Setup& setup, double seconds) {
    const std::string session = "bench-cpu-" + bench::uniqueToken();
    Hook hook = startCodexPermission(setup, session);
    takeRequest(setup, session);
    sleepMs(seconds * 1000);
    ::kill(hook.pid, SIGTERM);
    ::close(hook.output);
    rusage usage{};
    bench::waitForChild(hook.pid, &usage);
    const auto ms = [](const timeval& t) { return static_cast<double>(t.tv_sec) * 1000 + t.tv_usec / 1000.0; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

bool report(const char* label, const std::vector<std::vector<double>>& perMoment) {
    std::vector<double> all;
    std::printf("  %-12s", label);
    for (const std::vector<double>& samples : perMoment) {
        std::printf("  %6.2f/%6.2f", bench::median(samples), bench::percentile(samples, 99));
        all.insert(all.end(), samples.begin(), samples.end());
    }
    const double p99 = bench::percentile(all, 99);
    const bool ok = p99 <= kTargetP99Ms;
    std::printf("   %6.2f  %6.2f  %s\n", bench::median(all), p99, ok ? "ok" : "MISSED");
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 5;
    double cpuSeconds = 60;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--runs" && i + 1 < argc) {
            runs = std::atoi(argv[++i]);
        } else if (option == "--cpu-seconds" && i + 1 < argc) {
            cpuSeconds = std::atof(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: latency-bench [--runs N] [--cpu-seconds S]\n");
            return 64;
        }
    }

    Setup setup;
    setup.directory = bench::makeTemporaryDirectory("latency");
    const std::string home = setup.directory + "/home";
    const std::string bin = setup.directory + "/bin";
    bench::createDirectories(bin);
    bench::writeFile(bin + "/xdg-open", "#!/bin/sh\nexit 0\n", 0755);  // no desktop to wake
    setup.inbox = home + "/.local/share/voxtrel/agent/inbox";
    bench::createDirectories(setup.inbox);
    setup.environment = bench::hookEnvironment(home, bin);

    std::vector<std::vector<double>> answers(std::size(kMoments));
    std::vector<std::vector<double>> withdrawals(std::size(kMoments));
    for (int run = 0; run < runs; ++run) {
        for (std::size_t m = 0; m < std::size(kMoments); ++m) {
            answers[m].push_back(answerLatency(setup, kMoments[m]));
            withdrawals[m].push_back(withdrawalLatency(setup, kMoments[m]));
        }
    }

    std::printf("latency: %d runs per moment, ms as p50/p99 at %.2f, %.2f, %.2f and %.2f s into the wait\n", runs,
                kMoments[0], kMoments[1], kMoments[2], kMoments[3]);
    std::printf("  %-12s  %13s  %13s  %13s  %13s   %6s  %6s\n", "", "", "", "", "", "p50", "p99");
    bool ok = report("answer", answers);
    ok = report("withdrawal", withdrawals) && ok;
    std::printf("  target: p99 <= %.0f ms\n", kTargetP99Ms);

    const double cpu = waitingCpuMs(setup, cpuSeconds);
    const double perMinute = cpu * 60 / cpuSeconds;
    const bool cpuOk = perMinute <= kTargetCpuMsPerMinute;
    std::printf("waiting: %.1f ms of CPU in %.0f s (%.1f ms a minute)  %s\n  target: <= %.0f ms a minute\n", cpu,
                cpuSeconds, perMinute, cpuOk ? "ok" : "MISSED", kTargetCpuMsPerMinute);
    bench::removeTree(setup.directory);
    return ok && cpuOk ? 0 : 1;
}
