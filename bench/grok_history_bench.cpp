// Recovering a Grok session's last reply from 100 MB session files: only the
// tails are read (64 KiB of the chat history, 128 KiB of the update stream),
// so the cost must not grow with the file. With the answer in the chat
// history no retry pause happens; with only the update stream it is found on
// the first attempt, again without a pause.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "grok/GrokTranscript.hpp"

namespace {

constexpr std::size_t kFileBytes = 100u * 1024 * 1024;
const std::string kHistorySession = "bench-history-session";
const std::string kUpdatesSession = "bench-updates-session";

std::string& grokHome() {
    static std::string path;
    return path;
}

// Writes whole lines taken in turn from `lines` until the file holds about
// `kFileBytes`, then `last`.
void writeLines(const std::string& path, const std::string lines[], std::size_t count, const std::string& last) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    std::string block;
    for (std::size_t i = 0; block.size() < 4u * 1024 * 1024; ++i) block += lines[i % count];
    for (std::size_t written = 0; written < kFileBytes; written += block.size()) out << block;
    out << last;
}

std::string text(std::size_t length, char fill) { return std::string(length, fill); }

void makeSessions() {
    const std::string sessions = grokHome() + "/sessions/";
    const std::string history[] = {
        R"({"type":"user","content":"Please look at the failing test )" + text(200, 'u') + "\"}\n",
        R"({"type":"assistant","content":[{"type":"text","text":")" + text(1500, 'a') + R"("},{"type":"text","text":"."}]})" + "\n",
        R"({"type":"tool","content":")" + text(3000, 't') + "\"}\n",
    };
    writeLines(sessions + "2025-05/" + kHistorySession + "/chat_history.jsonl", history, std::size(history),
               R"({"type":"assistant","content":"The test passes now."})" "\n" R"({"type":"user","content":"thanks"})" "\n");

    const auto chunk = [](const std::string& promptId, const std::string& body) {
        return R"({"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s","update":{"sessionUpdate":"agent_message_chunk","content":{"type":"text","text":")" +
               body + R"("},"_meta":{"promptId":")" + promptId + "\"}}}}\n";
    };
    const std::string updates[] = {
        chunk("p-old", text(60, 'c')),
        R"({"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s","update":{"sessionUpdate":"tool_call","title":")" +
            text(400, 'r') + "\"}}}\n",
    };
    writeLines(sessions + "2025-05/" + kUpdatesSession + "/updates.jsonl", updates, std::size(updates),
               chunk("p-last", "Done: ") + chunk("p-last", "all green."));
}

void lastAssistantMessageFromHistory100MB(benchmark::State& state) {
    for (auto _ : state) {
        std::string reply = AgentHook::Grok::lastAssistantMessage(kHistorySession, std::nullopt, std::nullopt);
        if (reply != "The test passes now.") state.SkipWithError("wrong reply from the chat history");
        benchmark::DoNotOptimize(reply);
    }
}
BENCHMARK(lastAssistantMessageFromHistory100MB)->Unit(benchmark::kMicrosecond);

void lastAssistantMessageFromUpdates100MB(benchmark::State& state) {
    for (auto _ : state) {
        std::string reply = AgentHook::Grok::lastAssistantMessage(kUpdatesSession, std::nullopt, std::nullopt);
        if (reply != "Done: all green.") state.SkipWithError("wrong reply from the update stream");
        benchmark::DoNotOptimize(reply);
    }
}
BENCHMARK(lastAssistantMessageFromUpdates100MB)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    std::string pattern = (std::filesystem::temp_directory_path() / "grok-history-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    grokHome() = pattern;
    ::setenv("GROK_HOME", pattern.c_str(), 1);
    makeSessions();

    benchmark::Initialize(&argc, argv);
    int status = 0;
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        status = 1;
    } else {
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
    }
    std::error_code ignored;
    std::filesystem::remove_all(pattern, ignored);
    return status;
}
