#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "claude/ClaudeHookInput.hpp"
#include "claude/SessionIndex.hpp"
#include "claude/SessionTitle.hpp"
#include "claude/TranscriptFile.hpp"
#include "claude/TranscriptLines.hpp"
#include "support/TestSupport.hpp"
#include "text/Json.hpp"
#include "text/Utf8.hpp"

using namespace AgentHook;
using namespace AgentHook::Claude;
using testsupport::TempDir;

namespace {

std::string assistant(const std::string& content) {
    return R"({"type":"assistant","message":{"role":"assistant","content":)" + content + "}}";
}

}  // namespace

// A FIFO is never opened for a blocking read, and an endless device or a
// directory is never read: each is as good as no transcript.
TEST(Transcript, OnlyRegularFilesAreRead) {
    TempDir dir;
    const std::string fifo = dir.file("fifo.jsonl");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    testsupport::makeDirectories(dir.file("folder.jsonl"));
    for (const std::string& path : {fifo, std::string("/dev/zero"), dir.file("folder.jsonl")}) {
        EXPECT_FALSE(extractLastAssistantMessage(path)) << path;
        EXPECT_FALSE(customTitleOfTranscript(path)) << path;
        EXPECT_FALSE(indexSummaryOfFile(path, "s1")) << path;
    }
}

// ---------------------------------------------------------------------------
// The bounded readers against whole-file reading, on generated files.

namespace {

// Whole-file reading, step by step as the lookup is defined; lines longer
// than `longestLine` count as absent, as the bounded readers skip them.
namespace reference {

bool isLineSeparator(long codePoint) {
    return (codePoint >= 0x0A && codePoint <= 0x0D) || codePoint == 0x85 || codePoint == 0x2028 ||
           codePoint == 0x2029;
}

std::optional<std::string> lastAssistantMessage(std::string_view file, std::size_t longestLine) {
    if (!text::isValidUtf8(file)) return std::nullopt;
    std::vector<std::string_view> lines;
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < file.size();) {
        const std::size_t before = i;
        if (isLineSeparator(text::decodeCodePoint(file, i))) {
            lines.push_back(file.substr(lineStart, before - lineStart));
            lineStart = i;
        }
    }
    lines.push_back(file.substr(lineStart));
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (line->empty() || line->size() > longestLine) continue;
        const std::optional<TranscriptEntry> entry = decodeTranscriptEntry(*line);
        if (!entry || entry->type != "assistant" || !entry->message || !entry->message->content) continue;
        std::string message = contentText(*entry->message->content);
        if (!message.empty()) return message;
    }
    return std::nullopt;
}

std::optional<std::string> customTitle(std::string_view file, std::size_t longestLine, bool checkUtf8) {
    if (checkUtf8 && !text::isValidUtf8(file)) return std::nullopt;
    std::vector<std::string_view> lines;
    for (std::size_t start = 0;;) {
        const std::size_t end = file.find('\n', start);
        lines.push_back(file.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (line->size() > longestLine) continue;
        const std::optional<text::Json> entry = text::parseJson(*line);
        if (!entry || !entry->is_object() || text::stringMember(*entry, "type") != "custom-title") continue;
        std::optional<std::string> title = text::stringMember(*entry, "customTitle");
        if (title && !title->empty()) return title;
    }
    return std::nullopt;
}

}  // namespace reference

class Generator {
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    bool chance(unsigned percent) { return below(100) < percent; }
    std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_); }
    template <class T, std::size_t N>
    const T& pick(const T (&items)[N]) { return items[below(N)]; }

    // The inside of a JSON string: words, non-ASCII text, escapes, raw line
    // separators (allowed in JSON strings), now and then one of the byte
    // sequences at the edges of UTF-8, and sometimes long.
    std::string stringBody() {
        static const char* const pieces[] = {
            "done ", "the parser ", "é", "日本語", "🚀", "\\u00e9", "\\u001b[0m", "\\n", "\\\"q\\\" ", "\\\\",
            "custom-title ", "assistant ", "\xE2\x80\xA8", "\xE2\x80\xA9", "\xC2\x85", "\xC2\x80", "\xDF\xBF",
            "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"};
        std::string body;
        const std::size_t count = chance(15) ? 40 + below(120) : below(8);
        for (std::size_t i = 0; i < count; ++i) body += pick(pieces);
        if (chance(2)) body += pick(kInvalid);
        return body;
    }

    std::string entry() {
        std::string text = stringBody();  // appended to, not "\"" + ...: g++ 12 warns of an overlap that is not there
        text.insert(text.begin(), '"');
        text.push_back('"');
        switch (below(12)) {
            case 0: return R"({"type":"assistant","message":{"content":)" + text + "}}";
            case 1:
                return R"({"type":"assistant","message":{"content":[{"type":"text","text":)" + text +
                       R"(},{"type":"tool_use","name":"Bash","input":{}},{"type":"text","text":)" + text + "}]}}";
            case 2: return R"({"type":"assistant","message":{"content":[{"type":"tool_use","name":"Read","input":{}}]}})";
            case 3: return R"({"type":"assistant","message":{"content":[{"type":"text","text":""}]}})";
            case 4: return R"({"type":"\u0061ssistant","slug":)" + std::string(chance(50) ? "7" : "\"s\"") +
                           R"(,"message":{"content":)" + text + "}}";
            case 5: return R"({"type":"user","message":{"content":)" + text + "}}";
            case 6: return R"({"type":"custom-title","customTitle":)" + text + R"(,"sessionId":"s1"})";
            case 7: return R"({"customTitle":)" + text + R"(,"type":"custom\u002dtitle"})";
            case 8: return R"({"type":"custom-title","customTitle":)" + std::string(chance(50) ? "5" : "\"\"") + "}";
            case 9: return R"({"type":"summary","summary":)" + text + "}";
            case 10: return stringBody();
            default: return "";
        }
    }

    std::string transcript() {
        static const char* const separators[] = {"\n", "\n", "\n", "\n", "\r\n", "\r", "\x0B", "\x0C", "\xC2\x85",
                                                 "\xE2\x80\xA8", "\n\n"};
        std::string file;
        const std::size_t lines = below(25);
        for (std::size_t i = 0; i < lines; ++i) {
            std::string line = entry();
            if (chance(10)) line.resize(below(line.size() + 1));  // cut short
            file += line;
            if (i + 1 < lines || chance(60)) file += pick(separators);
        }
        if (chance(3)) file.insert(below(file.size() + 1), pick(kInvalid));
        return file;
    }

private:
    static constexpr const char* kInvalid[] = {"\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80",
                                                "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
                                                "\xFF", "\x80", "\xE2\x82", "\xC3"};
    std::mt19937 random_;
};

std::string shown(const std::optional<std::string>& value) { return value.value_or("<absent>"); }

// Chunks from a few bytes (every boundary falls inside a line, a separator or
// a character) to the default, with and without a line limit the files reach.
const TranscriptLimits kLimits[] = {{7, 300}, {16, 64u << 20}, {64, 300}, {1000, 300}, {}};

}  // namespace

TEST(TranscriptReaders, GiveWhatReadingTheWholeFileGives) {
    TempDir dir;
    Generator generator(20240611);
    std::vector<std::string> files = {"", "\n", "\r\n", assistant(R"("no line feed")"), "\xE2\x80\xA8"};
    // Lines of exactly the longest length of a limit below (300 bytes), and one byte longer.
    for (const std::size_t length : {300u, 301u}) {
        std::string title = R"({"type":"custom-title","customTitle":")", message = R"({"type":"assistant","message":{"content":")";
        title.append(length - title.size() - 2, 'x').append("\"}");
        message.append(length - message.size() - 3, 'x').append("\"}}");
        files.push_back(title + "\n" + message);
        files.push_back(message + "\r\n" + title + "\n");
    }
    while (files.size() < 400) files.push_back(generator.transcript());
    for (std::size_t f = 0; f < files.size(); ++f) {
        const std::string& file = files[f];
        EXPECT_EQ(shown(latestCustomTitle(file)), shown(reference::customTitle(file, SIZE_MAX, false))) << file;
        for (std::size_t l = 0; l < std::size(kLimits); ++l) {
            const TranscriptLimits& limits = kLimits[l];
            const std::string path = dir.file(std::to_string(f) + "-" + std::to_string(l) + ".jsonl");
            testsupport::writeText(path, file);
            // The title alone, and again from the pass the message lookup made.
            const std::optional<std::string> title = customTitleOfTranscript(path, limits);
            std::optional<TranscriptPass> pass;
            const std::optional<std::string> message = extractLastAssistantMessage(path, limits, &pass);
            const std::string context = "file " + std::to_string(f) + ", chunk " + std::to_string(limits.chunk) +
                                        ", longest line " + std::to_string(limits.longestLine) + ":\n" + file;
            const std::string expectedTitle = shown(reference::customTitle(file, limits.longestLine, true));
            EXPECT_EQ(shown(message), shown(reference::lastAssistantMessage(file, limits.longestLine))) << context;
            EXPECT_EQ(shown(title), expectedTitle) << context;
            EXPECT_EQ(shown(customTitleOfTranscript(path, limits, pass)), expectedTitle) << context;
        }
    }
}

// The index is read as a stream: reads of a few bytes cut it anywhere.
TEST(TranscriptReaders, IndexSummaries) {
    const std::pair<std::string, std::string> cases[] = {
        {R"({"entries":[{"sessionId":"other","summary":"No"},{"sessionId":"s1","summary":"Yes"}]})", "Yes"},
        {R"({"version":1,"entries":[{},{"sessionId":"s1","summary":""},{"summary":"Second","sessionId":"s1"}],)"
         R"("more":[{"entries":[]}]})",
         "Second"},
        {R"({"entries":[{"sessionId":"s1","x":{"sessionId":"s9","summary":"Deep"},"summary":"Outer"}]})", "Outer"},
        {R"({"entries":[{"summary":"Last id","sessionId":"s2","sessionId":"s1"}]})", "Last id"},
        {R"({"entries":[{"sessionId":"s1","summary":"Old"}],"entries":[{"sessionId":"s1","summary":"New"}]})", "New"},
        {R"({"entries":[{"sessionId":"s1","summary":"Dup","summary":7}]})", "<absent>"},
        {R"({"entries":[{"sessionId":"s1","summary":"Yes"},3]})", "<absent>"},
        {R"({"entries":{"sessionId":"s1","summary":"Object"}})", "<absent>"},
        {R"({"entries":[{"sessionId":"s1","summary":"Yes"}]} {})", "<absent>"},
        {R"({"entries":[{"sessionId":"s1","summary":"Yes"}])", "<absent>"},
    };
    TempDir dir;
    for (const auto& [index, expected] : cases) {
        EXPECT_EQ(shown(indexSummary(index, "s1")), expected) << index;
        testsupport::writeText(dir.file("index.json"), index);
        for (const TranscriptLimits& limits : kLimits) {
            EXPECT_EQ(shown(indexSummaryOfFile(dir.file("index.json"), "s1", limits)),
                      index.size() > limits.longestLine ? "<absent>" : expected)
                << "chunk " << limits.chunk << ": " << index;
        }
    }
}
