#include <gtest/gtest.h>

#include <cstdlib>

#include "claude/Transcript.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook::Claude;
using testsupport::TempDir;

namespace {

std::string lastMessageOf(const TempDir& dir, const std::string& transcript) {
    testsupport::writeText(dir.file("t.jsonl"), transcript);
    return extractLastAssistantMessage(dir.file("t.jsonl")).value_or("<absent>");
}

const std::string kUser = R"({"type":"user","message":{"content":"do it"}})";

std::string assistant(const std::string& content) {
    return R"({"type":"assistant","message":{"role":"assistant","content":)" + content + "}}";
}

}  // namespace

TEST(Transcript, LastAssistantMessage) {
    struct Case {
        const char* label;
        std::string transcript;
        std::string expected;
    };
    const Case cases[] = {
        {"user line after the answer", assistant(R"([{"type":"text","text":"Done."}])") + "\n" + kUser + "\n", "Done."},
        {"plain string content", assistant(R"("All good")"), "All good"},
        {"text blocks around a tool call are joined",
         assistant(R"([{"type":"text","text":"A"},{"type":"tool_use","name":"Bash","input":{}},{"type":"text","text":"B"}])"),
         "A\nB"},
        {"tool-only entry is passed over",
         assistant(R"("earlier")") + "\n" + assistant(R"([{"type":"tool_use","name":"Bash","input":{"command":"ls"}}])"),
         "earlier"},
        {"a block with a non-object input empties the content",
         assistant(R"("earlier")") + "\n" + assistant(R"([{"type":"text","text":"x"},{"type":"tool_use","input":"ls"}])"),
         "earlier"},
        {"numeric slug fails the entry",
         assistant(R"("earlier")") + "\n" + R"({"type":"assistant","slug":7,"message":{"content":"later"}})",
         "earlier"},
        {"truncated last line", assistant(R"("complete")") + "\n" + R"({"type":"assistant","message":{"content":"cut)",
         "complete"},
        {"CR LF and other separators", assistant(R"("one")") + "\r\n" + kUser + "\xE2\x80\xA8" + "\n", "one"},
        {"null content is skipped", assistant(R"("earlier")") + "\n" + assistant("null"), "earlier"},
        {"empty text block counts as present", assistant(R"([{"type":"text","text":""},{"type":"text","text":"x"}])"),
         "\nx"},
        {"no assistant entry", kUser + "\n", "<absent>"},
        {"a file large enough to be mapped", assistant(R"("big")") + "\n" + std::string(3 << 20, ' ') + "\n", "big"},
        {"invalid UTF-8 anywhere", assistant(R"("fine")") + "\n\xFF\n", "<absent>"},
    };
    for (const Case& c : cases) {
        TempDir dir;
        EXPECT_EQ(lastMessageOf(dir, c.transcript), c.expected) << c.label;
    }
    EXPECT_FALSE(extractLastAssistantMessage("/nonexistent/transcript.jsonl"));
}

TEST(Transcript, ProjectFolderReplacesOnlySlashes) {
    EXPECT_EQ(projectDirectory("/Users/ann", "/Users/ann/my.app"), "/Users/ann/.claude/projects/-Users-ann-my.app");
    EXPECT_EQ(projectDirectory("/root/", "/w"), "/root/.claude/projects/-w");
}

TEST(Transcript, CustomTitles) {
    const std::string title = R"({"type":"custom-title","customTitle":"Voice work","sessionId":"s"})";
    struct Case {
        const char* label;
        std::string transcript;
        std::string expected;
    };
    const Case cases[] = {
        {"one title", kUser + "\n" + title + "\n" + kUser, "Voice work"},
        {"the later one wins", title + "\n" + R"({"type":"custom-title","customTitle":"Renamed"})", "Renamed"},
        {"an empty later title is passed over", title + "\n" + R"({"type":"custom-title","customTitle":""})",
         "Voice work"},
        {"a non-string title is passed over", title + "\n" + R"({"type":"custom-title","customTitle":5})",
         "Voice work"},
        {"escaped spelling still counts", R"({"type":"custom\u002dtitle","customTitle":"Escaped"})", "Escaped"},
        {"a mention inside text is not an entry", R"({"type":"user","message":"custom-title"})", "<absent>"},
        {"no title", kUser + "\n" + R"({"x":"\u001b[0m"})", "<absent>"},
    };
    for (const Case& c : cases) EXPECT_EQ(latestCustomTitle(c.transcript).value_or("<absent>"), c.expected) << c.label;
}

TEST(Transcript, IndexSummaries) {
    struct Case {
        const char* index;
        std::string expected;
    };
    const Case cases[] = {
        {R"({"entries":[{"sessionId":"other","summary":"No"},{"sessionId":"s1","summary":"Yes"}]})", "Yes"},
        {R"({"entries":[{},{"sessionId":"s1","summary":""},{"sessionId":"s1","summary":"Second"}]})", "Second"},
        {R"({"entries":[{"sessionId":"s1","summary":"Yes"},3]})", "<absent>"},
        {R"({"entries":{}})", "<absent>"},
        {R"([])", "<absent>"},
        {R"({"entries":[{"sessionId":"S1","summary":"case differs"}]})", "<absent>"},
    };
    for (const Case& c : cases) EXPECT_EQ(indexSummary(c.index, "s1").value_or("<absent>"), c.expected) << c.index;
}

TEST(Transcript, SessionTitleLookup) {
    TempDir dir;
    ::setenv("HOME", dir.path().c_str(), 1);
    const std::string project = projectDirectory(dir.path(), "/w/app");
    testsupport::makeDirectories(project);
    testsupport::writeText(project + "/sessions-index.json", R"({"entries":[{"sessionId":"s1","summary":"From index"}]})");
    EXPECT_EQ(getSessionTitle("s1", "/w/app"), "From index");

    testsupport::writeText(project + "/s1.jsonl", R"({"type":"custom-title","customTitle":"Custom"})" "\n");
    EXPECT_EQ(getSessionTitle("s1", "/w/app"), "Custom");
    // A transcript that is not UTF-8 anywhere has no custom title.
    testsupport::writeText(project + "/s1.jsonl", R"({"type":"custom-title","customTitle":"Custom"})" "\n\xFF\n");
    EXPECT_EQ(getSessionTitle("s1", "/w/app"), "From index");
    testsupport::writeText(project + "/s1.jsonl", R"({"type":"custom-title","customTitle":"Custom"})" "\n");
    EXPECT_FALSE(getSessionTitle("", "/w/app"));
    EXPECT_FALSE(getSessionTitle("s1", ""));

    // Claude Code's real folder name for "/w/my app" differs from ours: the
    // transcript's own folder is used when ours does not exist.
    const std::string real = dir.path() + "/.claude/projects/-w-my-app";
    testsupport::makeDirectories(real);
    testsupport::writeText(real + "/s2.jsonl", R"({"type":"custom-title","customTitle":"Found"})" "\n");
    EXPECT_EQ(getSessionTitle("s2", "/w/my app", real + "/s2.jsonl"), "Found");
    EXPECT_FALSE(getSessionTitle("s2", "/w/my app"));
}
