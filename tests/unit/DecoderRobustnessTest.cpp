// Every prefix of valid inputs, and random mutations of them, go through the
// decoders: none may crash, and only JSON objects may decode.
#include <gtest/gtest.h>

#include <random>

#include "bridge/AgentInboxPayload.hpp"
#include "claude/ClaudeHookInput.hpp"
#include "claude/Transcript.hpp"
#include "runtime/Logging.hpp"

using namespace AgentHook;

namespace {

const std::string kSamples[] = {
    R"({"session_id":"abc","transcript_path":"/t.jsonl","cwd":"/w","hook_event_name":"PermissionRequest",)"
    R"("tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which?","header":"H",)"
    R"("options":[{"label":"A","description":"a"},{"label":"B"}],"multiSelect":false}],"answers":{"Which?":"A"}},)"
    R"("permission_suggestions":[{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"ls:*"}]}]})",
    R"({"type":"assistant","slug":"s","message":{"content":[{"type":"text","text":"h\u00e9 \ud83d\ude00"},)"
    R"({"type":"tool_use","name":"AskUserQuestion","input":{"questions":[{"question":"Q","options":[]}]}}]}})",
    R"({"agent":"codex","branch":"","hookPid":12,"kind":"update","messageFile":"\/tmp\/m","title":"T"})",
};

// A Bash permission request as Claude Code sends it.
const std::string kPermissionEvent =
    R"({"session_id":"3f0c2a4e-8d1b-4c55-9a0e-6b2f7d9e1c11","transcript_path":"\/home\/ann\/.claude\/projects\/-home-ann-web\/3f0c2a4e-8d1b-4c55-9a0e-6b2f7d9e1c11.jsonl",)"
    R"("cwd":"\/home\/ann\/web","permission_mode":"default","hook_event_name":"PermissionRequest","tool_name":"Bash",)"
    R"("tool_input":{"command":"npm test -- --grep \"caf\u00e9\"","description":"Run the tests","timeout":120000},)"
    R"("permission_suggestions":[{"type":"addDirectories","directories":["\/tmp"],"destination":"session"},)"
    R"({"type":"setMode","mode":"acceptEdits","destination":"session"},)"
    R"({"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm test:*"}],"behavior":"allow","destination":"localSettings"}]})";

void feedEverywhere(const std::string& bytes) {
    const auto input = Claude::decodeHookInput(bytes, 1);
    if (input) {
        EXPECT_EQ(bytes.find_first_not_of(" \t\r\n"), bytes.find('{'));
        if (input->toolInput) input->toolInput->elicitationQuestions();
    }
    if (const auto entry = Claude::decodeTranscriptEntry(bytes); entry && entry->message && entry->message->content) {
        Claude::contentText(*entry->message->content);
    }
    decodeInboxPayload(bytes);
    Claude::latestCustomTitle(bytes);
    Claude::indexSummary(bytes, "abc");
    inputRecord(bytes);
}

}  // namespace

TEST(DecoderRobustness, EveryPrefixOfAValidInput) {
    for (const std::string& sample : kSamples) {
        for (std::size_t length = 0; length <= sample.size(); ++length) feedEverywhere(sample.substr(0, length));
    }
}

TEST(DecoderRobustness, ARealPermissionEventDecodesWholeAndNoPrefixDoes) {
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
    for (std::size_t length = 0; length < kPermissionEvent.size(); ++length) {
        EXPECT_FALSE(Claude::decodeHookInput(kPermissionEvent.substr(0, length), 1)) << length;
    }
}

TEST(DecoderRobustness, RandomMutations) {
    std::mt19937 random(20261123);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes = kSamples[round % std::size(kSamples)];
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
    feedEverywhere(deep);
    feedEverywhere("{\"tool_input\":" + deep + "}");
}
