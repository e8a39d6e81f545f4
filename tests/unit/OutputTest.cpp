// Decisions on standard output and payloads in the inbox: the exact bytes.
#include <gtest/gtest.h>

#include "bridge/AgentInboxPayload.hpp"
#include "runtime/Decisions.hpp"
#include "text/Json.hpp"

using namespace AgentHook;

TEST(Decisions, PermissionDecisionBytes) {
    const auto allow = permissionDecisionJson({PermissionResponse::Behavior::allow, std::nullopt});
    EXPECT_EQ(*allow, R"({"hookSpecificOutput":{"decision":{"behavior":"allow","message":""},"hookEventName":"PermissionRequest"}})");
    EXPECT_EQ(allow->size(), 105u);
    const auto deny = permissionDecisionJson({PermissionResponse::Behavior::deny, "not in /etc"});
    EXPECT_EQ(*deny, R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"not in \/etc"},"hookEventName":"PermissionRequest"}})");
}

TEST(Decisions, StopDecisionKeepsTheReplyExactly) {
    EXPECT_EQ(*stopHookDecisionJson("x"), R"({"decision":"block","reason":"x"})");
    EXPECT_EQ(stopHookDecisionJson("x")->size(), 33u);
    const std::string reply = "Say \"hi\" to a/b\nthen stop. Größe ✓";
    const std::string bytes = *stopHookDecisionJson(reply);
    EXPECT_EQ(bytes.back(), '}');
    EXPECT_NE(bytes.find("Größe ✓"), std::string::npos);
    EXPECT_EQ(text::parseJson(bytes)->at("reason").get<std::string>(), reply);
}

TEST(InboxPayload, UpdateShapeHasEveryKeyInByteOrder) {
    AgentInboxPayload payload;
    payload.title = "";
    payload.hookPid = 4242;
    payload.sessionId = "s1";
    payload.requestId = "s1-stop";
    payload.agent = std::string(agentRawValue(Agent::claude));
    payload.status = "completed";
    payload.summary = "Task complete";
    payload.messageFile = "/tmp/voxtrel-agent/s1-stop-message.txt";
    payload.responseFile = "/tmp/voxtrel-agent/s1-stop-response.txt";
    payload.cwd = "/Users/ann/web";
    payload.project = "web";
    payload.branch = "";
    EXPECT_EQ(*encodeInboxPayload(payload),
              R"({"agent":"claude-code","branch":"","cwd":"\/Users\/ann\/web","hookPid":4242,"kind":"update",)"
              R"("messageFile":"\/tmp\/voxtrel-agent\/s1-stop-message.txt","project":"web","requestId":"s1-stop",)"
              R"("responseFile":"\/tmp\/voxtrel-agent\/s1-stop-response.txt","sessionId":"s1","status":"completed",)"
              R"("summary":"Task complete","title":""})");
    EXPECT_EQ(decodeInboxPayload(*encodeInboxPayload(payload)), payload);
}

TEST(InboxPayload, DismissShapeHasTwoMembers) {
    AgentInboxPayload payload;
    payload.kind = AgentInboxPayload::Kind::dismiss;
    payload.sessionId = "s1";
    EXPECT_EQ(*encodeInboxPayload(payload), R"({"kind":"dismiss","sessionId":"s1"})");
}

TEST(InboxPayload, DecodingNeedsAKnownKind) {
    EXPECT_FALSE(decodeInboxPayload(R"({"sessionId":"s1"})"));
    EXPECT_FALSE(decodeInboxPayload(R"({"kind":"Update"})"));
    EXPECT_FALSE(decodeInboxPayload(R"({"kind":"update","hookPid":"12"})"));
    EXPECT_FALSE(decodeInboxPayload(R"({"kind":"update","hookPid":4294967296})"));
    const auto bare = decodeInboxPayload(R"({"kind":"dismiss","extra":[1]})");
    ASSERT_TRUE(bare);
    AgentInboxPayload dismiss;
    dismiss.kind = AgentInboxPayload::Kind::dismiss;
    EXPECT_EQ(*bare, dismiss);
}

TEST(InboxPayload, AgentIdentifiers) {
    EXPECT_EQ(agentRawValue(Agent::claude), "claude-code");
    EXPECT_EQ(agentRawValue(Agent::codex), "codex");
    EXPECT_EQ(agentRawValue(Agent::grok), "grok");
}
