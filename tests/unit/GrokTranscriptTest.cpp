#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "grok/GrokTranscript.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook::Grok;
using AgentHook::text::Json;
using testsupport::TempDir;
using testsupport::writeText;

namespace {

const std::string kSession = "0199a2f4-grok-session";

// A fresh HOME and GROK_HOME=<dir>/grok for each test.
class GrokHistory : public ::testing::Test {
protected:
    void SetUp() override {
        variables_.set("HOME", dir_.file("home"));
        variables_.set("GROK_HOME", dir_.file("grok"));
    }

    // Writes <grokHome>/sessions/<group>/<session>/<name>; returns its path.
    std::string writeSessionFile(const std::string& name, const std::string& contents,
                                 const std::string& group = "2025-01", std::string grokHome = "") {
        if (grokHome.empty()) grokHome = dir_.file("grok");
        const std::string directory = grokHome + "/sessions/" + group + "/" + kSession;
        testsupport::makeDirectories(directory);
        writeText(directory + "/" + name, contents);
        return directory + "/" + name;
    }

    TempDir dir_;
    testsupport::ScopedVariables variables_;
};

std::string message(const std::string& role, const std::string& content) {
    return R"({"type":")" + role + R"(","content":)" + content + "}\n";
}

// An update-stream line carrying one chunk; the extras are spliced into the
// "update" and "params" objects.
std::string chunk(const std::string& text, const std::string& updateExtra = "", const std::string& paramsExtra = "") {
    return R"({"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s")" + paramsExtra +
           R"(,"update":{"sessionUpdate":"agent_message_chunk","content":{"type":"text","text":")" + text + "\"}" +
           updateExtra + "}}}\n";
}
std::string chunkFor(const std::string& promptId, const std::string& text) {
    return chunk(text, R"(,"_meta":{"promptId":")" + promptId + "\"}");
}

}  // namespace

TEST(GrokExtractText, MessageBodies) {
    const struct {
        const char* body;
        const char* expected;
    } cases[] = {
        {R"("plain")", "plain"},
        {R"([{"type":"text","text":"A"},{"type":"image"},{"text":7},{"text":"B"}])", "AB"},
        {R"([{"text":"A"},"B"])", ""},  // one element that is not an object spoils the array
        {R"({"text":"A"})", ""},
    };
    for (const auto& c : cases) {
        const Json body = Json::parse(c.body);
        EXPECT_EQ(extractText(&body), c.expected) << c.body;
    }
    EXPECT_EQ(extractText(nullptr), "");
}

TEST_F(GrokHistory, ReadFileTail) {
    const struct {
        const char* label;
        std::string contents;
        std::size_t maxBytes;
        std::optional<std::string> expected;
    } cases[] = {
        {"short file, read whole", "a\nb\n", 100, "a\nb\n"},
        {"exactly maxBytes is not a cut", "ab\ncd", 5, "ab\ncd"},
        {"partial first line dropped", "abc\ndef\nghi", 6, "ghi"},
        {"a cut at a line start still drops that line", "abc\ndef\n", 4, ""},
        {"no line feed after the cut", "abcdef", 3, "def"},
        {"invalid bytes before the tail do not matter", "\xFF\nok\n", 4, "ok\n"},
        {"cut inside a two-byte character", "x\xC3\xA9\n", 2, std::nullopt},
        {"invalid UTF-8 in the tail", "ok\n\xFF\n", 100, std::nullopt},
    };
    for (const auto& c : cases) {
        writeText(dir_.file("tail"), c.contents);
        EXPECT_EQ(readFileTail(dir_.file("tail"), c.maxBytes), c.expected) << c.label;
    }
    // Neither a missing file, a directory, a FIFO without writer nor an
    // endless device gives anything. A blocking open of the FIFO would hang
    // for good; the alarm ends the test program instead.
    ASSERT_EQ(::mkfifo(dir_.file("fifo").c_str(), 0600), 0);
    ::alarm(10);
    for (const std::string& path : {dir_.file("missing"), dir_.path(), dir_.file("fifo"), std::string("/dev/zero")}) {
        EXPECT_EQ(readFileTail(path, 1024), std::nullopt) << path;
    }
    ::alarm(0);
}

TEST_F(GrokHistory, LastFromChatHistory) {
    const std::string earlier = message("assistant", R"("earlier")");
    const struct {
        const char* label;
        std::string history;
        std::optional<std::string> expected;
    } cases[] = {
        {"block texts joined, user line after",
         message("user", R"("hi")") + message("assistant", R"([{"type":"text","text":"One "},{"type":"text","text":"two"}])") +
             message("user", R"("thanks")"),
         "One two"},
        {"string content, no final line feed", earlier + R"({"type":"assistant","content":"later"})", "later"},
        {"type wins over role", earlier + R"({"type":"reasoning","role":"assistant","content":"thought"})", "earlier"},
        {"role when type is not text", earlier + R"({"type":5,"role":"assistant","content":"by role"})", "by role"},
        {"empty answers passed over", earlier + message("assistant", R"("")") + message("assistant", "[]"), "earlier"},
        {"broken and non-object lines skipped", earlier + "{\"type\":\"assistant\",\"content\":\"cut\n[1]\n\n", "earlier"},
        {"invalid UTF-8 anywhere in the tail", earlier + "\xC3\n", std::nullopt},
    };
    for (const auto& c : cases) {
        writeSessionFile("chat_history.jsonl", c.history);
        EXPECT_EQ(lastFromChatHistory(kSession), c.expected) << c.label;
    }
}

TEST_F(GrokHistory, ChatHistoryReadsOnlyWholeLinesOfItsTail) {
    // The answer before the tail is never read, and the tail begins inside a
    // line whose remainder alone would parse as an answer.
    const std::string before = message("assistant", R"("before the tail")") + std::string(1000, 'x');
    const std::string cutLine = R"({"type":"assistant","content":"from a cut line"})" "\n";
    const auto historyEndingWith = [&](const std::string& lastLines) {
        const std::size_t filler = kChatHistoryTailBytes - cutLine.size() - message("user", R"("")").size() - lastLines.size();
        std::string longText = "\"";
        longText.append(filler, 'y').append("\"");
        return before + cutLine + message("user", longText) + lastLines;
    };
    writeSessionFile("chat_history.jsonl", historyEndingWith(message("user", R"("next")")));
    EXPECT_EQ(lastFromChatHistory(kSession), std::nullopt);
    writeSessionFile("chat_history.jsonl", historyEndingWith(message("assistant", R"("inside")")));
    EXPECT_EQ(lastFromChatHistory(kSession), "inside");
}

TEST_F(GrokHistory, LastFromUpdates) {
    const std::string twoPrompts = chunkFor("A", "a1") + chunkFor("B", "b1") + chunkFor("A", "a2") + chunkFor("B", "b2");
    const struct {
        const char* label;
        std::string updates;
        std::optional<std::string> promptId;
        std::string expected;
    } cases[] = {
        {"the caller's prompt", twoPrompts, "A", "a1a2"},
        {"no prompt id: the prompt that started last", twoPrompts, std::nullopt, "b1b2"},
        {"order of first appearance, not of last chunk", chunkFor("A", "a1") + chunkFor("B", "b1") + chunkFor("A", "a2"),
         std::nullopt, "b1"},
        {"the caller's prompt with empty text", chunkFor("A", "") + chunkFor("B", "b"), "A", "b"},
        {"envelope _meta", chunk("p", "", R"(,"_meta":{"promptId":"A"})") + chunkFor("B", "b"), "A", "p"},
        {"update _meta decides alone when an object",
         chunk("p", R"(,"_meta":{})", R"(,"_meta":{"promptId":"A"})") + chunkFor("B", "b"), "", "p"},
        {"no _meta: the empty prompt id", chunk("x") + chunk("y"), std::nullopt, "xy"},
        {"other updates and malformed lines skipped",
         chunk("kept") + R"({"params":{"update":{"sessionUpdate":"agent_thought_chunk","content":{"text":"no"}}}})" +
             "\n" + R"({"params":{"update":{"sessionUpdate":"agent_message_chunk","content":{"text":5}}}})" + "\n" +
             R"({"params":{"update":{"sessionUpdate":"agent_message_chunk","content":"no"}}})" + "\nnot json\n",
         std::nullopt, "kept"},
    };
    for (const auto& c : cases) {
        writeSessionFile("updates.jsonl", c.updates);
        EXPECT_EQ(lastFromUpdates(kSession, c.promptId, std::nullopt), c.expected) << c.label;
    }
}

TEST_F(GrokHistory, TranscriptPathNamesTheUpdateStream) {
    writeSessionFile("updates.jsonl", chunk("from the session"));
    writeText(dir_.file("transcript.jsonl"), chunk("from the transcript"));
    EXPECT_EQ(lastFromUpdates(kSession, std::nullopt, dir_.file("transcript.jsonl")), "from the transcript");
    EXPECT_EQ(lastFromUpdates(kSession, std::nullopt, dir_.file("missing.jsonl")), "from the session");
    EXPECT_EQ(lastFromUpdates(kSession, std::nullopt, std::string()), "from the session");
    EXPECT_EQ(lastFromUpdates("other-session", std::nullopt, std::nullopt), "");
}

TEST_F(GrokHistory, GrokHomeAndGroupingDirectories) {
    const std::string inHome = writeSessionFile("chat_history.jsonl", "", "g", dir_.file("home") + "/.grok");
    EXPECT_EQ(findSessionFile(kSession, "chat_history.jsonl"), std::nullopt);  // GROK_HOME set: HOME not searched
    variables_.set("GROK_HOME", "");
    EXPECT_EQ(findSessionFile(kSession, "chat_history.jsonl"), inHome);
    variables_.set("GROK_HOME", std::nullopt);
    EXPECT_EQ(findSessionFile(kSession, "chat_history.jsonl"), inHome);

    // Every grouping entry is tried, whatever the listing order.
    variables_.set("GROK_HOME", dir_.file("grok"));
    testsupport::makeDirectories(dir_.file("grok/sessions/a/" + kSession));
    writeText(dir_.file("grok/sessions/stray-file"), "");
    const std::string inB = writeSessionFile("updates.jsonl", "", "b");
    EXPECT_EQ(findSessionFile(kSession, "updates.jsonl"), inB);
    EXPECT_EQ(findSessionFile(kSession, "chat_history.jsonl"), std::nullopt);
}

TEST_F(GrokHistory, LastAssistantMessageRetries) {
    std::vector<double> pauses;
    const auto recordPause = [&](double seconds) { pauses.push_back(seconds); };

    EXPECT_EQ(lastAssistantMessage(kSession, std::nullopt, std::nullopt, recordPause), "");
    EXPECT_EQ(pauses, (std::vector<double>{0.04, 0.04}));

    // Grok finishes writing during the first pause.
    pauses.clear();
    const auto writeDuringPause = [&](double seconds) {
        pauses.push_back(seconds);
        writeSessionFile("updates.jsonl", chunk("streamed"));
    };
    EXPECT_EQ(lastAssistantMessage(kSession, std::nullopt, std::nullopt, writeDuringPause), "streamed");
    EXPECT_EQ(pauses.size(), 1u);

    // The chat history comes first and needs no pause.
    pauses.clear();
    writeSessionFile("chat_history.jsonl", message("assistant", R"("from history")"));
    EXPECT_EQ(lastAssistantMessage(kSession, std::nullopt, std::nullopt, recordPause), "from history");
    EXPECT_TRUE(pauses.empty());
}
