#include "TranscriptGenerator.hpp"

#include "text/Json.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace bench {
namespace {

class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 1) {}
    std::uint64_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return state_;
    }
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(next() % limit); }
    bool chance(unsigned percent) { return below(100) < percent; }

private:
    std::uint64_t state_;
};

// Mostly English, with the non-ASCII text real sessions carry: accents,
// combining marks, CJK, emoji with modifiers and joiners.
constexpr std::array<std::string_view, 64> kWords = {
    "the", "function", "returns", "a", "value", "when", "test", "build", "error", "file", "line", "module",
    "config", "update", "should", "we", "check", "parser", "string", "index", "cache", "result", "output",
    "input", "handler", "request", "response", "thread", "memory", "struct", "vector", "template", "compile",
    "warning", "link", "static", "library", "path", "directory", "branch", "commit", "merge", "refactor",
    "café", "naïve", "Größe", "résumé", "e\xCC\x81t\xC3\xA9", "日本語", "テスト", "文字列", "데이터", "Ωmega",
    "🚀", "👍🏽", "👩‍💻", "✅", "—", "«quoted»", "src/main.cpp", "CMakeLists.txt", "0x7ffd"};

constexpr std::array<std::string_view, 12> kCommands = {
    "ls -la", "git status", "cmake --build build -j2", "ctest --output-on-failure", "grep -rn TODO src",
    "cat src/parser.cpp", "git diff HEAD~1", "make test", "npm run lint", "cargo build --release",
    "python3 -m pytest -q", "find . -name '*.hpp' | head -50"};

void appendWords(std::string& out, Random& random, std::size_t bytes) {
    const std::size_t end = out.size() + bytes;
    std::size_t sentence = 0;
    while (out.size() < end) {
        std::string_view word = kWords[random.below(kWords.size())];
        if (sentence == 0 && word.size() > 0 && word[0] >= 'a' && word[0] <= 'z') {
            out.push_back(static_cast<char>(word[0] - 'a' + 'A'));
            word.remove_prefix(1);
        }
        out.append(word);
        if (++sentence > 8 + random.below(10)) {
            out.append(random.chance(20) ? ".\n\n" : ". ");
            sentence = 0;
        } else {
            out.push_back(' ');
        }
    }
}

// Terminal-like output: listings, compiler messages, code; sometimes coloured.
void appendToolOutput(std::string& out, Random& random, std::size_t bytes, bool coloured) {
    const std::size_t end = out.size() + bytes;
    char buffer[160];
    while (out.size() < end) {
        switch (random.below(4)) {
        case 0:
            std::snprintf(buffer, sizeof buffer, "-rw-r--r--  1 dev staff %6zu Oct %2zu 12:%02zu ",
                          random.below(200000), 1 + random.below(30), random.below(60));
            out.append(buffer);
            out.append(kWords[random.below(kWords.size())]);
            out.append(".cpp\n");
            break;
        case 1:
            if (coloured) out.append("\x1b[1m\x1b[31m");
            std::snprintf(buffer, sizeof buffer, "src/module%zu.cpp:%zu:%zu: ", random.below(40),
                          1 + random.below(900), 1 + random.below(80));
            out.append(buffer);
            out.append(coloured ? "error:\x1b[0m " : "error: ");
            appendWords(out, random, 40);
            out.push_back('\n');
            break;
        case 2:
            out.append("    if (value.size() > limit) { return \"");
            out.append(kWords[random.below(kWords.size())]);
            out.append("\\n\"; }\t// ");
            appendWords(out, random, 30);
            out.push_back('\n');
            break;
        default:
            if (coloured) out.append("\x1b[32m");
            std::snprintf(buffer, sizeof buffer, "[%3zu%%] Building CXX object CMakeFiles/core.dir/src/",
                          random.below(101));
            out.append(buffer);
            out.append(kWords[random.below(kWords.size())]);
            out.append(coloured ? ".cpp.o\x1b[0m\n" : ".cpp.o\n");
            break;
        }
    }
}

std::string hexId(Random& random, std::size_t length) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string id;
    for (std::size_t i = 0; i < length; ++i) id.push_back(kDigits[random.below(16)]);
    return id;
}

std::string uuid(Random& random) {
    std::string id = hexId(random, 32);
    for (const std::size_t at : {8, 13, 18, 23}) id.insert(at, 1, '-');
    return id;
}

struct LineWriter {
    const TranscriptShape& shape;
    Random& random;
    Transcript& transcript;
    const std::function<void(std::string_view)>* sink = nullptr;  // else lines gather in transcript.text
    std::string parent = "null";
    std::size_t second = 0;
    std::string pending{};

    std::string header(std::string_view type) {
        const std::string id = uuid(random);
        char timestamp[48];
        ++second;
        std::snprintf(timestamp, sizeof timestamp, "2025-10-%02zuT%02zu:%02zu:%02zu.%03zuZ", 1 + second / 86400 % 28,
                      second / 3600 % 24, second / 60 % 60, second % 60, random.below(1000));
        std::string line = "{\"parentUuid\":" + parent + ",\"isSidechain\":false,\"userType\":\"external\",\"cwd\":" +
                           jsonString(shape.cwd) + ",\"sessionId\":" + jsonString(shape.sessionId) +
                           ",\"version\":\"2.0.14\",\"gitBranch\":\"main\",\"type\":\"" + std::string(type) +
                           "\",\"uuid\":\"" + id + "\",\"timestamp\":\"" + timestamp + "\",";
        parent = "\"" + id + "\"";
        return line;
    }

    void finish(std::string&& line) {
        line.append("}\n");
        if (line.find("\\u") != std::string::npos) ++transcript.linesWithEscapes;
        transcript.bytes += line.size();
        ++transcript.lines;
        if (sink == nullptr) {
            transcript.text.append(line);
            return;
        }
        pending.append(line);
        if (pending.size() >= 1024 * 1024) flush();
    }

    void flush() {
        if (sink != nullptr && !pending.empty()) (*sink)(pending);
        pending.clear();
    }

    void userPrompt(std::size_t bytes) {
        std::string text;
        appendWords(text, random, bytes);
        std::string line = header("user");
        line += "\"message\":{\"role\":\"user\",\"content\":" + jsonString(text) + "}";
        finish(std::move(line));
    }

    void assistant(const std::string& text, const std::string* toolUseId) {
        std::string line = header("assistant");
        line += "\"requestId\":\"req_" + hexId(random, 24) + "\",\"message\":{\"id\":\"msg_" + hexId(random, 24) +
                "\",\"type\":\"message\",\"role\":\"assistant\",\"model\":\"claude-sonnet-4-5-20250929\","
                "\"content\":[{\"type\":\"text\",\"text\":" +
                jsonString(text) + "}";
        if (toolUseId != nullptr) {
            const std::string_view command = kCommands[random.below(kCommands.size())];
            line += ",{\"type\":\"tool_use\",\"id\":\"" + *toolUseId +
                    "\",\"name\":\"Bash\",\"input\":{\"command\":" + jsonString(command) +
                    ",\"description\":\"Run " + std::string(command.substr(0, command.find(' '))) + "\"}}";
        }
        line += "],\"stop_reason\":null,\"stop_sequence\":null,\"usage\":{\"input_tokens\":" +
                std::to_string(random.below(50)) + ",\"cache_creation_input_tokens\":" +
                std::to_string(random.below(20000)) + ",\"cache_read_input_tokens\":" +
                std::to_string(random.below(200000)) + ",\"output_tokens\":" + std::to_string(random.below(2000)) +
                ",\"service_tier\":\"standard\"}}";
        finish(std::move(line));
    }

    void toolResult(const std::string& toolUseId, std::size_t bytes, bool coloured) {
        std::string output;
        appendToolOutput(output, random, bytes, coloured);
        const std::string encoded = jsonString(output);
        std::string line = header("user");
        // Claude Code keeps the output twice: in the message and in toolUseResult.
        line += "\"message\":{\"role\":\"user\",\"content\":[{\"tool_use_id\":\"" + toolUseId +
                "\",\"type\":\"tool_result\",\"content\":" + encoded +
                ",\"is_error\":false}]},\"toolUseResult\":{\"stdout\":" + encoded +
                ",\"stderr\":\"\",\"interrupted\":false,\"isImage\":false}";
        finish(std::move(line));
    }
};

}  // namespace

std::string jsonString(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 16);
    AgentHook::text::appendJsonString(out, text);
    return out;
}

namespace {

Transcript generate(const TranscriptShape& shape, const std::function<void(std::string_view)>* sink) {
    Transcript transcript;
    if (sink == nullptr) transcript.text.reserve(shape.targetBytes + 64 * 1024);
    Random random(shape.seed);
    LineWriter writer{shape, random, transcript, sink};

    // A turn is 2.2 lines on average: an assistant call, its result (the
    // output twice, escaped), and every tenth turn a prompt and a plain
    // answer; about 2.2 kB of a turn is not tool output. The output size
    // follows from the wanted bytes per line.
    const double perLine = static_cast<double>(shape.targetBytes) / static_cast<double>(shape.targetLines);
    const auto meanOutput = static_cast<std::size_t>(std::max(200.0, (perLine * 2.2 - 2200) / 2));

    const std::size_t finalReserve = shape.finalMessage.size() + 1024;
    std::size_t turn = 0;
    while (transcript.bytes + finalReserve < shape.targetBytes) {
        if (turn % 10 == 0) writer.userPrompt(100 + random.below(900));
        std::string text;
        appendWords(text, random, 80 + random.below(500));
        const std::string toolUseId = "toolu_" + hexId(random, 24);
        writer.assistant(text, &toolUseId);
        // Mostly short outputs, a few very long ones (file reads, build logs).
        // Means: 8x for the 5 %, 0.63x for the rest, 1x overall.
        const std::size_t size = random.chance(5) ? meanOutput * 6 + random.below(meanOutput * 4)
                                                  : meanOutput / 10 + random.below(meanOutput * 106 / 100);
        writer.toolResult(toolUseId, size, random.chance(15));
        if (turn % 10 == 9) {
            std::string answer;
            appendWords(answer, random, 200 + random.below(800));
            writer.assistant(answer, nullptr);
        }
        ++turn;
    }
    writer.assistant(shape.finalMessage, nullptr);
    writer.flush();
    return transcript;
}

}  // namespace

Transcript generateTranscript(const TranscriptShape& shape) { return generate(shape, nullptr); }

Transcript generateTranscript(const TranscriptShape& shape, const std::function<void(std::string_view)>& sink) {
    return generate(shape, &sink);
}

}  // namespace bench
