// In-process costs of the text work on large inputs: the custom-title scan
// of a 100 MB transcript that holds none (target < 100 ms; the scan must not
// JSON-parse lines that cannot be a custom-title entry), and grapheme
// counting and cutting of 1 MB of mixed-script text.
#include <benchmark/benchmark.h>

#include <string>

#include "TranscriptGenerator.hpp"
#include "claude/TranscriptLines.hpp"
#include "text/Utf8.hpp"

namespace {

const std::string& largeTranscript() {
    static const std::string text = [] {
        bench::TranscriptShape shape;
        shape.sessionId = "title-bench";
        return bench::generateTranscript(shape).text;
    }();
    return text;
}

// ASCII prose with accents, combining marks, CJK, Hangul, flags and emoji
// sequences (modifiers, joiners): the clusters that make counting costly.
const std::string& mixedText() {
    static const std::string text = [] {
        const std::string pieces[] = {
            "The quick brown fox jumps over the lazy dog. ", "café naïve résumé ", "e\xCC\x81 a\xCC\x8A\xCC\x81 ",
            "日本語のテキスト ", "한국어 데이터 ", "🇫🇷🇯🇵 ", "👩‍💻👨‍👩‍👧‍👦 ", "👍🏽✅ ", "Ωμέγα ", "\r\n",
        };
        std::string out;
        std::size_t i = 0;
        while (out.size() < 1024 * 1024) out += pieces[(i++ * 7) % std::size(pieces)];
        return out;
    }();
    return text;
}

void latestCustomTitle100MB(benchmark::State& state) {
    const std::string& transcript = largeTranscript();
    for (auto _ : state) {
        auto title = AgentHook::Claude::latestCustomTitle(transcript);
        benchmark::DoNotOptimize(title);
        if (title) state.SkipWithError("found a custom title in a transcript without one");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(transcript.size()));
}
BENCHMARK(latestCustomTitle100MB)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void characterCount1MB(benchmark::State& state) {
    const std::string& text = mixedText();
    for (auto _ : state) benchmark::DoNotOptimize(AgentHook::text::characterCount(text));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(characterCount1MB)->Unit(benchmark::kMillisecond);

void characterPrefix1MB(benchmark::State& state) {
    const std::string& text = mixedText();
    const std::size_t all = AgentHook::text::characterCount(text);
    for (auto _ : state) benchmark::DoNotOptimize(AgentHook::text::characterPrefix(text, all - 1));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(characterPrefix1MB)->Unit(benchmark::kMillisecond);

void isValidUtf8100MB(benchmark::State& state) {
    const std::string& transcript = largeTranscript();
    for (auto _ : state) benchmark::DoNotOptimize(AgentHook::text::isValidUtf8(transcript));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(transcript.size()));
}
BENCHMARK(isValidUtf8100MB)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
