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
        {"envelope _meta", chunk("p", "", R"(,"_meta":{"promptId":"A"})") + chunkFor("B", "b"), "A", "p"},
        {"update _meta decides alone when an object",
         chunk("p", R"(,"_meta":{})", R"(,"_meta":{"promptId":"A"})") + chunkFor("B", "b"), "", "p"},
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

