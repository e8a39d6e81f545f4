// Every prefix of real inputs, and random mutations of them, go through every
// decoder. A whole sample decodes to what it holds. A proper prefix of a JSON
// object is no JSON document, so every decoder refuses it (Grok reads no
// input at all as an empty event). Whatever the bytes, the event decoders
// accept exactly the JSON objects, and what any decoder returns can be
// written and logged.
#include <gtest/gtest.h>

#include <random>

#include "bridge/AgentInboxPayload.hpp"
#include "claude/ClaudeHookInput.hpp"
#include "claude/SessionIndex.hpp"
#include "claude/TranscriptLines.hpp"
#include "codex/CodexHookInput.hpp"
#include "grok/GrokHookInput.hpp"
#include "runtime/AutoAcceptRules.hpp"
#include "text/Glob.hpp"
#include "runtime/Logging.hpp"
#include "text/Utf8.hpp"

using namespace AgentHook;
using AgentHook::text::globMatch;

namespace {

// What each decoder made of the bytes.
struct Outcome {
    bool claudeEvent = false;
    bool codexEvent = false;
    bool grokEvent = false;
    bool transcriptEntry = false;
    bool inboxPayload = false;
    std::optional<std::string> title;
    std::optional<std::string> summary;

    bool anything() const {
        return claudeEvent || codexEvent || grokEvent || transcriptEntry || inboxPayload || title || summary;
    }
};

bool isJsonObject(std::string_view bytes) {
    const std::optional<text::Json> parsed = text::parseJson(bytes);
    return parsed && parsed->is_object();
}

std::optional<std::string> noVariables(const char*) { return std::nullopt; }

// Feeds the bytes to every decoder and checks what holds for any input.
Outcome feedEverywhere(const std::string& bytes) {
    Outcome outcome;
    const bool object = isJsonObject(bytes);

    const auto claude = Claude::decodeHookInput(bytes, 1);
    outcome.claudeEvent = claude.has_value();
    EXPECT_EQ(outcome.claudeEvent, object);
    if (claude && claude->toolInput) {
        const auto questions = claude->toolInput->elicitationQuestions();
        if (claude->toolInput->questions && !claude->toolInput->questions->empty()) {
            EXPECT_TRUE(questions && questions->size() == claude->toolInput->questions->size());
        }
        for (const Claude::ElicitationQuestion& question : questions.value_or(std::vector<Claude::ElicitationQuestion>{})) {
            EXPECT_TRUE(text::toCompactJson(Claude::toJson(question)));
        }
    }
    outcome.codexEvent = Codex::decodeHookInput(bytes, 1).has_value();
    EXPECT_EQ(outcome.codexEvent, object);
    outcome.grokEvent = Grok::decodeHookInput(bytes, noVariables, 1).has_value();
    EXPECT_EQ(outcome.grokEvent, object || bytes.empty());

    if (const auto entry = Claude::decodeTranscriptEntry(bytes)) {
        outcome.transcriptEntry = true;
        EXPECT_TRUE(object);
        if (entry->message && entry->message->content) {
            EXPECT_TRUE(text::isValidUtf8(Claude::contentText(*entry->message->content)));
        }
    }
    if (const auto payload = decodeInboxPayload(bytes)) {
        outcome.inboxPayload = true;
        EXPECT_TRUE(object);
        const std::optional<std::string> encoded = encodeInboxPayload(*payload);
        EXPECT_TRUE(encoded && decodeInboxPayload(*encoded) == payload) << bytes;
    }
    outcome.title = Claude::latestCustomTitle(bytes);
    EXPECT_NE(outcome.title, "");
    outcome.summary = Claude::indexSummary(bytes, "abc");
    EXPECT_NE(outcome.summary, "");

    const std::string record = inputRecord(bytes);
    EXPECT_TRUE(record.starts_with("Input (" + std::to_string(bytes.size()) + " bytes): "));
    EXPECT_TRUE(text::isValidUtf8(record));
    return outcome;
}

// A Bash permission request as Claude Code sends it.
const std::string kPermissionEvent =
    R"({"session_id":"3f0c2a4e-8d1b-4c55-9a0e-6b2f7d9e1c11","transcript_path":"\/home\/ann\/.claude\/projects\/-home-ann-web\/3f0c2a4e-8d1b-4c55-9a0e-6b2f7d9e1c11.jsonl",)"
    R"("cwd":"\/home\/ann\/web","permission_mode":"default","hook_event_name":"PermissionRequest","tool_name":"Bash",)"
    R"("tool_input":{"command":"npm test -- --grep \"caf\u00e9\"","description":"Run the tests","timeout":120000},)"
    R"("permission_suggestions":[{"type":"addDirectories","directories":["\/tmp"],"destination":"session"},)"
    R"({"type":"setMode","mode":"acceptEdits","destination":"session"},)"
    R"({"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm test:*"}],"behavior":"allow","destination":"localSettings"}]})";
const std::string kQuestionEvent =
    R"({"session_id":"abc","transcript_path":"/t.jsonl","cwd":"/w","hook_event_name":"PermissionRequest",)"
    R"("tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which?","header":"H",)"
    R"("options":[{"label":"A","description":"a"},{"label":"B"}],"multiSelect":false}],"answers":{"Which?":"A"}},)"
    R"("permission_suggestions":[{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"ls:*"}]}]})";
const std::string kAssistantEntry =
    R"({"type":"assistant","slug":"s","message":{"content":[{"type":"text","text":"h\u00e9 \ud83d\ude00"},)"
    R"({"type":"tool_use","name":"AskUserQuestion","input":{"questions":[{"question":"Q","options":[]}]}}]}})";
const std::string kPayload =
    R"({"agent":"codex","branch":"","hookPid":12,"kind":"update","messageFile":"\/tmp\/m","title":"T"})";
const std::string kTitleEntry = R"({"type":"custom-title","customTitle":"Voice work","sessionId":"abc"})";
const std::string kIndex = R"({"entries":[{"sessionId":"other","summary":"No"},{"sessionId":"abc","summary":"Fix it"}]})";

const std::string* const kSamples[] = {&kPermissionEvent, &kQuestionEvent, &kAssistantEntry, &kPayload, &kTitleEntry, &kIndex};

}  // namespace

TEST(DecoderRobustness, EveryWholeSampleDecodesToWhatItHolds) {
    const Outcome permission = feedEverywhere(kPermissionEvent);
    EXPECT_TRUE(permission.claudeEvent && permission.codexEvent && permission.grokEvent);
    const auto input = Claude::decodeHookInput(kPermissionEvent, 1);
    ASSERT_TRUE(input);
    EXPECT_EQ(input->cwd, "/home/ann/web");
    EXPECT_EQ(input->toolName, "Bash");
    ASSERT_TRUE(input->toolInput);
    EXPECT_EQ(input->toolInput->command, "npm test -- --grep \"caf\u00e9\"");
    ASSERT_TRUE(input->permissionSuggestions);
    ASSERT_EQ(input->permissionSuggestions->size(), 3u);
    EXPECT_EQ((*input->permissionSuggestions)[1].type, "setMode");
    EXPECT_EQ((*input->permissionSuggestions)[2].rules->at(0).at("ruleContent"), "npm test:*");

    const auto question = Claude::decodeHookInput(kQuestionEvent, 1);
    ASSERT_TRUE(question && question->toolInput);
    const auto questions = question->toolInput->elicitationQuestions();
    ASSERT_TRUE(questions);
    ASSERT_EQ(questions->size(), 1u);
    EXPECT_EQ(questions->at(0).options.at(1).label, "B");
    EXPECT_EQ(question->toolInput->answers->at("Which?"), "A");

    const Outcome assistant = feedEverywhere(kAssistantEntry);
    EXPECT_TRUE(assistant.transcriptEntry);
    const auto entry = Claude::decodeTranscriptEntry(kAssistantEntry);
    EXPECT_EQ(Claude::contentText(*entry->message->content), "h\u00e9 \U0001F600");

    EXPECT_TRUE(feedEverywhere(kPayload).inboxPayload);
    EXPECT_EQ(decodeInboxPayload(kPayload)->hookPid, 12);
    EXPECT_EQ(feedEverywhere(kTitleEntry).title, "Voice work");
    EXPECT_EQ(feedEverywhere(kIndex).summary, "Fix it");
}

TEST(DecoderRobustness, NoDecoderTakesAProperPrefix) {
    for (const std::string* sample : kSamples) {
        for (std::size_t length = 1; length < sample->size(); ++length) {
            const Outcome outcome = feedEverywhere(sample->substr(0, length));
            EXPECT_FALSE(outcome.anything()) << sample->substr(0, length);
        }
    }
    // Nothing at all is an empty Grok event, and nothing else.
    Outcome empty = feedEverywhere("");
    EXPECT_TRUE(empty.grokEvent);
    empty.grokEvent = false;
    EXPECT_FALSE(empty.anything());
}

TEST(DecoderRobustness, TheLinesOfATranscriptCutAnywhere) {
    // A cut transcript holds the titles of its whole lines and maybe one cut
    // line that is not read: the title is the last whole one, or none.
    const std::string transcript = kAssistantEntry + "\n" + kTitleEntry + "\n" +
                                   R"({"type":"custom-title","customTitle":"Renamed"})" + "\n";
    const std::size_t firstTitleEnds = kAssistantEntry.size() + 1 + kTitleEntry.size();
    const std::size_t secondTitleEnds = transcript.size() - 1;
    for (std::size_t length = 0; length <= transcript.size(); ++length) {
        const std::optional<std::string> title = Claude::latestCustomTitle(transcript.substr(0, length));
        const std::optional<std::string> expected = length >= secondTitleEnds  ? std::optional<std::string>("Renamed")
                                                    : length >= firstTitleEnds ? std::optional<std::string>("Voice work")
                                                                               : std::nullopt;
        EXPECT_EQ(title, expected) << length;
    }
}

TEST(DecoderRobustness, RandomMutations) {
    std::mt19937 random(20261123);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes = *kSamples[round % std::size(kSamples)];
        const int edits = 1 + static_cast<int>(random() % 8);
        for (int i = 0; i < edits && !bytes.empty(); ++i) {
            const std::size_t at = random() % bytes.size();
            switch (random() % 3) {
                case 0: bytes[at] = static_cast<char>(random() % 256); break;
                case 1: bytes.erase(at, 1 + random() % 4); break;
                default: bytes.insert(at, 1, "{}[]\",:\\0tn"[random() % 11]); break;
            }
        }
        feedEverywhere(bytes);
    }
}

TEST(DecoderRobustness, DeepNestingDoesNotOverflow) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_FALSE(feedEverywhere(deep).anything());
    const Outcome wrapped = feedEverywhere("{\"tool_input\":" + deep + "}");
    EXPECT_TRUE(wrapped.claudeEvent);
    EXPECT_FALSE(Claude::decodeHookInput("{\"tool_input\":" + deep + "}", 1)->toolInput);
}

// Found by fuzzing: a glob over 4095 bytes is refused even when its stars
// leave it few enough elements for the matcher.
TEST(FuzzFindings, AGlobLongerThanAnyPathNeverMatches) {
    std::string stars;
    while (stars.size() < 4092) stars += "**";
    EXPECT_TRUE(globMatch("/a" + stars + "*", "/a"));   // 4095 bytes
    EXPECT_FALSE(globMatch("/a" + stars + "**", "/a"));  // 4096 bytes
    EXPECT_FALSE(matchesAutoAcceptRules({"//a" + stars + "**"}, "/a", "Edit"));
}
