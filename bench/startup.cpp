// Start-up time of the hook on events that need no app, side by side with a
// statically linked one-line program. Every program is started with
// posix_spawn (no shell in between), standard input from a file, output to
// the null device, in round-robin so that machine noise hits all alike.
//
//   startup-bench [--runs N] [--warmup N] [--hook PATH] [--baseline PATH]
//
// Exit status 0 when every hook case meets its target, 1 when one misses.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "BenchSupport.hpp"

namespace {

constexpr double kTargetRatio = 1.1;

struct Case {
    std::string label;
    std::vector<std::string> arguments;
    std::string stdinPath;
    bool isBaseline = false;
    std::vector<double> samples;
    int failedRuns = 0;
};

void usage() {
    std::fprintf(stderr, "usage: startup-bench [--runs N] [--warmup N] [--hook PATH] [--baseline PATH]\n");
    std::exit(64);
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 200;
    int warmup = 10;
    std::string hook = AGENT_HOOK_PROGRAM;
    std::string baseline = STATIC_BASELINE_PROGRAM;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (i + 1 >= argc) usage();
        const char* value = argv[++i];
        if (option == "--runs") runs = std::atoi(value);
        else if (option == "--warmup") warmup = std::atoi(value);
        else if (option == "--hook") hook = value;
        else if (option == "--baseline") baseline = value;
        else usage();
    }
    if (runs < 1 || warmup < 0) usage();

    const std::string directory = bench::makeTemporaryDirectory("startup");
    const std::string home = directory + "/home";
    bench::createDirectories(home);
    const std::vector<std::string> environment = bench::hookEnvironment(home);

    const std::string token = bench::uniqueToken();
    const std::string preToolSession = "bench-startup-pretool-" + token;
    const std::string disabledSession = "bench-startup-disabled-" + token;
    const std::string codexSession = "bench-startup-codex-" + token;
    const std::string ruleSession = "bench-startup-rule-" + token;

    // Inputs are written without a trailing line feed, as the agents send them.
    const std::string preToolInput = directory + "/pretool.json";
    bench::writeFile(preToolInput, R"({"hook_event_name":"PreToolUse","session_id":")" + preToolSession +
                                       R"(","cwd":"/tmp","tool_name":"Bash","tool_input":{"command":"ls"}})");
    const std::string disabledInput = directory + "/disabled.json";
    bench::writeFile(disabledInput, R"({"hook_event_name":"Stop","session_id":")" + disabledSession +
                                        R"(","cwd":"/tmp","stop_hook_active":false})");
    const std::string ruleInput = directory + "/rule.json";
    bench::writeFile(ruleInput, R"({"hook_event_name":"PermissionRequest","session_id":")" + ruleSession +
                                    R"(","cwd":"/tmp","tool_name":"Bash","tool_input":{"command":"npm test"}})");
    const std::string codexInput = directory + "/codex.json";
    bench::writeFile(codexInput, R"({"hook_event_name":"PostToolUse","session_id":")" + codexSession + R"("})");
    const std::string grokInput = directory + "/grok.json";
    bench::writeFile(grokInput, R"({"hookEventName":"post_tool_use","sessionId":")" + codexSession + R"(-grok"})");

    const std::string scratch = "/tmp/voxtrel-agent";
    ::mkdir(scratch.c_str(), 0777);  // shared with everyone: created when missing, never removed
    const std::string marker = scratch + "/disabled-" + disabledSession;
    bench::writeFile(marker, "");
    const std::string rules = scratch + "/" + ruleSession + "-autoaccept-Bash";
    bench::writeFile(rules, "npm ");

    std::vector<Case> cases;
    const std::string baselineLabel =
        baseline == STATIC_BASELINE_PROGRAM ? "static baseline (puts, -static)"
                                            : "baseline " + baseline.substr(baseline.rfind('/') + 1);
    cases.push_back({baselineLabel, {}, preToolInput, true, {}, 0});
    cases.push_back({"claude PreToolUse Bash", {"claude"}, preToolInput, false, {}, 0});
    cases.push_back({"claude Stop, disabled session", {"claude"}, disabledInput, false, {}, 0});
    cases.push_back({"claude PermissionRequest allowed by a stored rule", {"claude"}, ruleInput, false, {}, 0});
    cases.push_back({"codex PostToolUse", {"codex"}, codexInput, false, {}, 0});
    cases.push_back({"grok post_tool_use", {"grok"}, grokInput, false, {}, 0});

    for (int round = 0; round < warmup + runs; ++round) {
        // Rotate the order so no case always follows the same neighbour.
        for (std::size_t k = 0; k < cases.size(); ++k) {
            Case& current = cases[(k + static_cast<std::size_t>(round)) % cases.size()];
            bench::SpawnOptions options;
            options.stdinPath = current.stdinPath;
            options.environment = &environment;
            const std::string& program = current.isBaseline ? baseline : hook;
            const double start = bench::nowMs();
            const pid_t pid = bench::spawnProgram(program, current.arguments, options);
            const int status = bench::waitForChild(pid);
            const double elapsed = bench::nowMs() - start;
            if (round < warmup) continue;
            current.samples.push_back(elapsed);
            if (!bench::exitedCleanly(status)) ++current.failedRuns;
        }
    }

    ::unlink(marker.c_str());
    ::unlink(rules.c_str());
    bench::removeTree(directory);

    const double baselineMedian = bench::median(cases[0].samples);
    std::printf("startup: %d runs per case (+%d warm-up), round-robin, stdin from a file\n", runs, warmup);
    std::printf("  %-52s %9s %9s %7s\n", "case", "median ms", "p90 ms", "ratio");
    bool allMet = true;
    for (const Case& current : cases) {
        const double middle = bench::median(current.samples);
        const double p90 = bench::percentile(current.samples, 90);
        if (current.isBaseline) {
            std::printf("  %-52s %9.3f %9.3f\n", current.label.c_str(), middle, p90);
            continue;
        }
        const double ratio = middle / baselineMedian;
        const bool met = ratio <= kTargetRatio && current.failedRuns == 0;
        allMet = allMet && met;
        std::printf("  %-52s %9.3f %9.3f %6.2fx  %s", current.label.c_str(), middle, p90, ratio,
                    met ? "ok" : "MISSED");
        if (current.failedRuns > 0) std::printf(" (%d runs exited non-zero)", current.failedRuns);
        std::printf("\n");
    }
    std::printf("  target: hook median <= %.1fx baseline median\n", kTargetRatio);
    return allMet ? 0 : 1;
}
