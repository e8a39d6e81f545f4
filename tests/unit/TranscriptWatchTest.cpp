// The transcript watch on real-shaped lines: which appended lines mean that
// the session moved on without the app, and which mean nothing.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "claude/TranscriptWatch.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook;
using namespace AgentHook::Claude;
using testsupport::TempDir;

namespace {

std::string toolUse(const std::string& id, const std::string& name, const std::string& input) {
    return R"({"parentUuid":"p","type":"assistant","message":{"role":"assistant","content":[{"type":"tool_use","id":")" + id +
           R"(","name":")" + name + R"(","input":)" + input + "}]}}";
}
std::string toolResult(const std::string& id) {
    return R"({"type":"user","message":{"role":"user","content":[{"tool_use_id":")" + id +
           R"(","type":"tool_result","content":"hi","is_error":false}]},"toolUseResult":{"stdout":"hi"}})";
}
const std::string kEnqueue = R"({"type":"queue-operation","operation":"enqueue","timestamp":"2026-11-23T14:00:00Z","content":"use tabs"})";
const std::string kAttachment =
    R"({"type":"attachment","attachment":{"type":"hook_success","hookEvent":"PreToolUse","stdout":"","stderr":"tool_result queue-operation"}})";

class TranscriptWatchTest : public ::testing::Test {
protected:
    TempDir dir_;
    std::string path_ = dir_.file("t.jsonl");
    void append(const std::string& text) {
        testsupport::writeText(path_, testsupport::readText(path_) + text);
    }
};

const std::string kInput = R"({"command":"npm test","description":"Run the tests"})";

}  // namespace

TEST_F(TranscriptWatchTest, AResultForThePendingCallEndsTheWait) {
    // Two parallel Bash calls, written before the request went out; ours is the second.
    testsupport::writeText(path_, toolUse("toolu_A", "Bash", R"({"command":"ls"})") + "\n" +
                                      toolUse("toolu_B", "Bash", kInput) + "\n" + toolResult("toolu_old") + "\n");
    TranscriptWatch watch = startTranscriptWatch(path_, PendingCall{"Bash", *text::parseJson(kInput)});
    EXPECT_EQ(watch.callIds, std::vector<std::string>{"toolu_B"});
    const std::string cut = toolResult("toolu_B");
    const std::pair<std::string, std::optional<std::string>> steps[] = {
        {toolResult("toolu_A") + "\n", std::nullopt},      // the other call
        {kAttachment + "\r\n", std::nullopt},              // another hook's output
        {kEnqueue + "\n", std::nullopt},                   // a queued prompt means nothing here
        {cut.substr(0, 40), std::nullopt},                 // a line still being written
        {cut.substr(40) + "\r\n", "The call was answered in Claude Code (toolu_B)"},
    };
    for (const auto& [text, reason] : steps) {
        append(text);
        EXPECT_EQ(sessionMovedOn(watch), reason) << text;
    }
}

// The prompt queue decides, not one line: a prompt still queued a moment
// after its enqueue was typed while the turn waited; `claude -p` writes its
// own prompt as an enqueue and a dequeue at once, possibly in two writes.
TEST_F(TranscriptWatchTest, APromptStillQueuedEndsAFinishedTurnsWait) {
    const std::string dequeue = R"({"type":"queue-operation","operation":"dequeue","timestamp":"2026-11-23T14:00:00Z"})";
    const std::string popAll = R"({"type":"queue-operation","operation":"popAll"})";
    const std::string typed = "A prompt was typed into Claude Code";
    struct Look {
        std::string appended;
        double now;
        std::optional<std::string> reason;
    };
    const std::vector<std::vector<Look>> cases = {
        // typed during the wait: withdrawn once it has stayed queued for a moment
        {{kEnqueue + "\r\n", 0, std::nullopt}, {"", 0.05, std::nullopt}, {"", 0.2, typed}},
        // the run's own prompt, in one write and in two
        {{kEnqueue + "\n" + dequeue + "\n", 0, std::nullopt}, {"", 5, std::nullopt}},
        {{kEnqueue + "\n", 0, std::nullopt}, {dequeue + "\n", 0.05, std::nullopt}, {"", 5, std::nullopt}},
        // typed after the run's own prompt
        {{kEnqueue + "\n" + dequeue + "\n", 0, std::nullopt}, {kEnqueue + "\n", 1, std::nullopt}, {"", 1.2, typed}},
        // a prompt queued before the wait leaves: the queue is never less than empty
        {{dequeue + "\n" + kEnqueue + "\n", 0, std::nullopt}, {"", 0.2, typed}},
        {{kEnqueue + "\n" + kEnqueue + "\n" + popAll + "\n", 0, std::nullopt}, {"", 5, std::nullopt}},
        // other lines, and results of calls, mean nothing to a finished turn
        {{kAttachment + "\n" + toolResult("toolu_A") + "\n", 0, std::nullopt}, {"", 5, std::nullopt}},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        testsupport::writeText(path_, kEnqueue + "\n");  // typed before the turn ended: not ours
        TranscriptWatch watch = startTranscriptWatch(path_, std::nullopt);
        for (const Look& look : cases[i]) {
            append(look.appended);
            EXPECT_EQ(sessionMovedOn(watch, look.now), look.reason) << "case " << i << " at " << look.now;
        }
    }
}

// A transcript cut shorter or replaced by another file is followed from the
// new file's end; a burst appended at once is read through at one look.
TEST_F(TranscriptWatchTest, ACutOrReplacedTranscriptAndABurst) {
    // Lines that cannot matter, as most are: passed over without a parse.
    const std::string filler = R"({"type":"progress","data":")" + std::string(200, 'x') + "\"}\n";
    struct Case {
        const char* what;
        std::function<void()> change;
    };
    const Case cases[] = {
        {"cut shorter", [&] { testsupport::writeText(path_, ""); }},
        {"replaced", [&] {
             testsupport::writeText(path_ + ".new", "{}\n");
             ASSERT_EQ(::rename((path_ + ".new").c_str(), path_.c_str()), 0);
         }},
        {"a burst", [&] {
             std::string burst;
             while (burst.size() < (5u << 20)) burst += filler;
             append(burst);
         }},
    };
    for (const Case& c : cases) {
        testsupport::writeText(path_, toolUse("toolu_1", "Bash", kInput) + "\n" + filler + filler);
        TranscriptWatch watch = startTranscriptWatch(path_, PendingCall{"Bash", *text::parseJson(kInput)});
        c.change();
        EXPECT_EQ(sessionMovedOn(watch, 0), std::nullopt) << c.what;
        append(toolResult("toolu_1") + "\n");
        EXPECT_EQ(sessionMovedOn(watch, 0.25), "The call was answered in Claude Code (toolu_1)") << c.what;
    }
}
