// Auto-accept rule matching against a 1 MB target (target < 10 ms each):
// literal prefixes, domain rules and globs, among them globs with many stars
// that do not match, which take a backtracking regular expression minutes.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "runtime/AutoAcceptRules.hpp"
#include "text/Glob.hpp"

namespace {

constexpr std::size_t kSize = 1024 * 1024;

std::string repeated(std::string head, std::string_view piece, std::string_view tail) {
    while (head.size() < kSize) head += piece;
    return head += tail;
}

// "/a/bb/bb/.../bb/y": a deep path that almost fits "/a/*/.../x".
const std::string& deepPath() {
    static const std::string text = repeated("/a/", "bb/", "y");
    return text;
}

// "/aaaa...a": one long name, the classic trap for nested stars.
const std::string& longName() {
    static const std::string text = repeated("/", "a", "");
    return text;
}

// A path of realistic names, ending in a file of the wanted kind.
const std::string& projectPath() {
    static const std::string text = repeated("/Users/ann/proj/", "src/módulo-ü/", "notes.txt");
    return text;
}

const std::string& command() {
    static const std::string text = repeated("npm run build -- ", "--flag=value ", "");
    return text;
}

const std::string& url() {
    static const std::string text = repeated("https://example.com/search?q=", "abc%20def", "");
    return text;
}

void glob(benchmark::State& state, const std::string& pattern, const std::string& target, bool expected) {
    for (auto _ : state) {
        const bool matched = AgentHook::text::globMatch(pattern, target);
        benchmark::DoNotOptimize(matched);
        if (matched != expected) state.SkipWithError("wrong answer");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(target.size()));
}

void rules(benchmark::State& state, const std::vector<std::string>& rules, const std::string& target, bool expected) {
    for (auto _ : state) {
        const bool matched = AgentHook::matchesAutoAcceptRules(rules, target, "Bash");
        benchmark::DoNotOptimize(matched);
        if (matched != expected) state.SkipWithError("wrong answer");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(target.size()));
}

void GlobStarsNoMatch1MB(benchmark::State& state) { glob(state, "/a/*/*/*/*/*/*/*/*/x", deepPath(), false); }
void GlobStarsAfterDoubleStarNoMatch1MB(benchmark::State& state) {
    glob(state, "/a/**/*/*/*/*/*/*/*/*/x", deepPath(), false);
}
void GlobDoubleStarsNoMatch1MB(benchmark::State& state) {
    glob(state, "/**a**a**a**a**a**a**a**a**a**a**a**a**a**a**a**a**b", longName(), false);
}
void GlobSingleStarsNoMatch1MB(benchmark::State& state) {
    glob(state, "/*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b", longName(), false);
}
void GlobQuestionMarksNoMatch1MB(benchmark::State& state) { glob(state, "/**?*?**?*?**?*?b", longName(), false); }
void GlobDenseMatches1MB(benchmark::State& state) { glob(state, "/**a*a?a*a**a", longName(), true); }
void GlobProjectTree1MB(benchmark::State& state) { glob(state, "/Users/ann/proj/**", projectPath(), true); }
void GlobSuffix1MB(benchmark::State& state) { glob(state, "/Users/**/src/**/*.txt", projectPath(), true); }
void PrefixRule1MB(benchmark::State& state) { rules(state, {"npm run"}, command(), true); }
void DomainRule1MB(benchmark::State& state) { rules(state, {"domain:example.com"}, url(), true); }
void NoRuleMatches1MB(benchmark::State& state) {
    rules(state, {"domain:example.com", "//Users/ann/proj/*/*.md", "git ", "//**.md"}, projectPath(), false);
}

BENCHMARK(GlobStarsNoMatch1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GlobStarsAfterDoubleStarNoMatch1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GlobDoubleStarsNoMatch1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GlobSingleStarsNoMatch1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GlobQuestionMarksNoMatch1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GlobDenseMatches1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GlobProjectTree1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GlobSuffix1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(PrefixRule1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(DomainRule1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(NoRuleMatches1MB)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
